// Replacement by moving the rest of the text at every hit: slow and plain. The string library's
// Replace is compared with it.
#ifndef KESTA_UNIT_REPLACE_STEPS_H
#define KESTA_UNIT_REPLACE_STEPS_H

#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

struct ReplacedText {
    int count = 0;
    std::string text;
    // Whether a step gave the byte its value. Where a growing text pushes a piece past its old
    // end, the walk stops before the piece and the text is shorter than its counted length: the
    // bytes between hold whatever the buffer held, and nothing can be said of them.
    std::vector<bool> defined;
};

class ReplaceSteps {
public:
    ReplaceSteps(std::string_view text, const char* oldText, const char* newText)
        : text_(text), old_(oldText), new_(newText == nullptr ? "" : newText) {}

    ReplacedText Run() {
        ReplacedText result;
        result.text = text_;
        result.defined.assign(text_.size(), true);
        if (old_ == nullptr || *old_ == '\0') return result;
        result.count = CountHits();
        if (result.count == 0) return result;

        const std::size_t oldLength = text_.size();
        const std::size_t newLength = oldLength +
                                      static_cast<std::size_t>(result.count) * new_.size() -
                                      static_cast<std::size_t>(result.count) * std::strlen(old_);
        buffer_.assign(std::max(oldLength, newLength) + 1, '?');
        defined_.assign(buffer_.size(), false);
        std::memcpy(buffer_.data(), text_.data(), oldLength);
        buffer_[oldLength] = '\0';
        std::fill_n(defined_.begin(), oldLength + 1, true);
        ReplaceHits();

        result.text.assign(buffer_.data(), newLength);
        result.defined.assign(defined_.begin(),
                              defined_.begin() + static_cast<std::ptrdiff_t>(newLength));
        return result;
    }

private:
    int CountHits() const {
        const std::string terminated(text_);
        const char* start = terminated.c_str();
        const char* const end = start + text_.size();
        int count = 0;
        while (start < end) {
            while (const char* hit = std::strstr(start, old_)) {
                ++count;
                start = hit + std::strlen(old_);
            }
            start += std::strlen(start) + 1;
        }
        return count;
    }

    void ReplaceHits() {
        char* start = buffer_.data();
        const char* const oldEnd = start + text_.size();
        std::size_t length = text_.size();
        while (start < oldEnd) {
            while (char* hit = std::strstr(start, old_)) {
                const auto at = static_cast<std::size_t>(hit - buffer_.data());
                const std::size_t rest = length - at - std::strlen(old_);
                Move(at + new_.size(), at + std::strlen(old_), rest);
                for (std::size_t i = 0; i < new_.size(); ++i) Put(at + i, new_[i]);
                Put(at + new_.size() + rest, '\0');
                length = at + new_.size() + rest;
                start = hit + new_.size();
            }
            start += std::strlen(start) + 1;
        }
    }

    void Move(std::size_t to, std::size_t from, std::size_t n) {
        std::memmove(&buffer_[to], &buffer_[from], n);
        const std::vector<bool> moved(defined_.begin() + static_cast<std::ptrdiff_t>(from),
                                      defined_.begin() + static_cast<std::ptrdiff_t>(from + n));
        std::copy(moved.begin(), moved.end(), defined_.begin() + static_cast<std::ptrdiff_t>(to));
    }

    void Put(std::size_t at, char c) {
        buffer_[at] = c;
        defined_[at] = true;
    }

    std::string_view text_;
    const char* old_;
    std::string new_;
    std::vector<char> buffer_;
    std::vector<bool> defined_;
};

inline ReplacedText ReplaceBySteps(std::string_view text, const char* oldText,
                                   const char* newText) {
    return ReplaceSteps(text, oldText, newText).Run();
}

#endif

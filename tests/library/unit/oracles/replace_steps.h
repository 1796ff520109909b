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
    ReplaceSteps(std::string_view text, const char* old_text, const char* new_text)
        : m_text(text), m_old(old_text), m_new(new_text == nullptr ? "" : new_text) {}

    ReplacedText run() {
        ReplacedText result;
        result.text = m_text;
        result.defined.assign(m_text.size(), true);
        if (m_old == nullptr || *m_old == '\0') return result;
        result.count = count_hits();
        if (result.count == 0) return result;

        const std::size_t old_length = m_text.size();
        const std::size_t new_length = old_length +
                                       static_cast<std::size_t>(result.count) * m_new.size() -
                                       static_cast<std::size_t>(result.count) * std::strlen(m_old);
        m_buffer.assign(std::max(old_length, new_length) + 1, '?');
        m_defined.assign(m_buffer.size(), false);
        std::memcpy(m_buffer.data(), m_text.data(), old_length);
        m_buffer[old_length] = '\0';
        std::fill_n(m_defined.begin(), old_length + 1, true);
        replace_hits();

        result.text.assign(m_buffer.data(), new_length);
        result.defined.assign(m_defined.begin(),
                              m_defined.begin() + static_cast<std::ptrdiff_t>(new_length));
        return result;
    }

private:
    int count_hits() const {
        const std::string terminated(m_text);
        const char* start = terminated.c_str();
        const char* const end = start + m_text.size();
        int count = 0;
        while (start < end) {
            while (const char* hit = std::strstr(start, m_old)) {
                ++count;
                start = hit + std::strlen(m_old);
            }
            start += std::strlen(start) + 1;
        }
        return count;
    }

    void replace_hits() {
        char* start = m_buffer.data();
        const char* const old_end = start + m_text.size();
        std::size_t length = m_text.size();
        while (start < old_end) {
            while (char* hit = std::strstr(start, m_old)) {
                const auto at = static_cast<std::size_t>(hit - m_buffer.data());
                const std::size_t rest = length - at - std::strlen(m_old);
                move(at + m_new.size(), at + std::strlen(m_old), rest);
                for (std::size_t i = 0; i < m_new.size(); ++i) put(at + i, m_new[i]);
                put(at + m_new.size() + rest, '\0');
                length = at + m_new.size() + rest;
                start = hit + m_new.size();
            }
            start += std::strlen(start) + 1;
        }
    }

    void move(std::size_t to, std::size_t from, std::size_t n) {
        std::memmove(&m_buffer[to], &m_buffer[from], n);
        const std::vector<bool> moved(m_defined.begin() + static_cast<std::ptrdiff_t>(from),
                                      m_defined.begin() + static_cast<std::ptrdiff_t>(from + n));
        std::copy(moved.begin(), moved.end(), m_defined.begin() + static_cast<std::ptrdiff_t>(to));
    }

    void put(std::size_t at, char c) {
        m_buffer[at] = c;
        m_defined[at] = true;
    }

    std::string_view m_text;
    const char* m_old;
    std::string m_new;
    std::vector<char> m_buffer;
    std::vector<bool> m_defined;
};

inline ReplacedText replace_by_steps(std::string_view text, const char* old_text,
                                     const char* new_text) {
    return ReplaceSteps(text, old_text, new_text).run();
}

#endif

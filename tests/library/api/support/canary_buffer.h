// A caller's buffer with a guard on both sides: writes beyond the size offered show.
#ifndef KESTA_API_CANARY_BUFFER_H
#define KESTA_API_CANARY_BUFFER_H

#include <algorithm>
#include <string>
#include <vector>

class CanaryBuffer {
public:
    explicit CanaryBuffer(std::size_t size, char fill = '\x5A')
        : size_(size), fill_(fill), bytes_(size + 2 * guard, mark) {
        std::fill(data(), data() + size, fill);
    }

    char* data() { return bytes_.data() + guard; }
    std::string bytes() const { return {bytes_.data() + guard, size_}; }
    std::string text() const { return bytes_.data() + guard; }  // up to the first NUL

    // Nothing outside the buffer was written.
    bool guards_intact() const {
        const auto is_mark = [](char byte) { return byte == mark; };
        return std::all_of(bytes_.begin(), bytes_.begin() + guard, is_mark) &&
               std::all_of(bytes_.end() - guard, bytes_.end(), is_mark);
    }
    // Nothing at all was written.
    bool untouched() const { return guards_intact() && bytes() == std::string(size_, fill_); }
    // The first part was written with exactly these bytes, the rest and the guards not at all.
    bool holds_only(const std::string& written) const {
        return guards_intact() && written.size() <= size_ &&
               bytes() == written + std::string(size_ - written.size(), fill_);
    }

private:
    static constexpr std::ptrdiff_t guard = 64;
    static constexpr char mark = '\x3C';
    std::size_t size_;
    char fill_;
    std::vector<char> bytes_;
};

#endif

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
    std::string Bytes() const { return {bytes_.data() + guard, size_}; }
    std::string Text() const { return bytes_.data() + guard; }  // up to the first NUL

    // Nothing outside the buffer was written.
    bool GuardsIntact() const {
        const auto isMark = [](char byte) { return byte == mark; };
        return std::all_of(bytes_.begin(), bytes_.begin() + guard, isMark) &&
               std::all_of(bytes_.end() - guard, bytes_.end(), isMark);
    }
    // Nothing at all was written.
    bool Untouched() const { return GuardsIntact() && Bytes() == std::string(size_, fill_); }
    // The first part was written with exactly these bytes, the rest and the guards not at all.
    bool HoldsOnly(const std::string& written) const {
        return GuardsIntact() && written.size() <= size_ &&
               Bytes() == written + std::string(size_ - written.size(), fill_);
    }

private:
    static constexpr std::ptrdiff_t guard = 64;
    static constexpr char mark = '\x3C';
    std::size_t size_;
    char fill_;
    std::vector<char> bytes_;
};

#endif

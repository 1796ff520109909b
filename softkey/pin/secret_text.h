// A short text that must not outlive its use: a PIN. It stands on the secure heap, never grows, so
// that no copy is left behind, and wipes itself.
#ifndef SOFTKEY_PIN_SECRET_TEXT_H
#define SOFTKEY_PIN_SECRET_TEXT_H

#include <cstddef>
#include <cstring>
#include <string_view>

#include "softkey/crypto/secret_bytes.h"

namespace softkey {

class SecretText {
public:
    static constexpr std::size_t kCapacity = 256;

    SecretText() : text_(kCapacity + 1) {}

    // False, and unchanged, when the text has no room for that many more bytes.
    bool Append(const char* text, std::size_t length) {
        if (length > kCapacity - length_) return false;
        std::memcpy(text_.data() + length_, text, length);
        length_ += length;
        return true;
    }

    bool Assign(std::string_view text) {
        Clear();
        return Append(text.data(), text.size());
    }

    // Takes the last byte away when it is this one.
    void DropLast(char byte) {
        if (!Empty() && View().back() == byte) text_.data()[--length_] = 0;
    }

    void Clear() {
        explicit_bzero(text_.data(), text_.size());
        length_ = 0;
    }

    std::string_view View() const { return {CStr(), length_}; }
    // One byte beyond the capacity is always NUL.
    const char* CStr() const { return reinterpret_cast<const char*>(text_.data()); }
    std::size_t Size() const { return length_; }
    bool Empty() const { return length_ == 0; }

private:
    SecretBytes text_;
    std::size_t length_ = 0;
};

}  // namespace softkey

#endif

// A short text that must not outlive its use: a PIN. It never allocates, so that no copy is left
// behind by a growing buffer, and wipes itself.
#ifndef SOFTKEY_PIN_SECRET_TEXT_H
#define SOFTKEY_PIN_SECRET_TEXT_H

#include <cstddef>
#include <cstring>
#include <string_view>

namespace softkey {

class SecretText {
public:
    static constexpr std::size_t kCapacity = 256;

    SecretText() = default;
    ~SecretText() { Clear(); }
    SecretText(const SecretText&) = delete;
    SecretText& operator=(const SecretText&) = delete;

    // False, and unchanged, when the text has no room for that many more bytes.
    bool Append(const char* text, std::size_t length) {
        if (length > kCapacity - length_) return false;
        std::memcpy(text_ + length_, text, length);
        length_ += length;
        return true;
    }

    bool Assign(std::string_view text) {
        Clear();
        return Append(text.data(), text.size());
    }

    void Clear() {
        explicit_bzero(text_, sizeof text_);
        length_ = 0;
    }

    std::string_view View() const { return {text_, length_}; }
    const char* CStr() const { return text_; }  // one byte beyond the capacity is always NUL
    std::size_t Size() const { return length_; }
    bool Empty() const { return length_ == 0; }

private:
    char text_[kCapacity + 1] = {};
    std::size_t length_ = 0;
};

}  // namespace softkey

#endif

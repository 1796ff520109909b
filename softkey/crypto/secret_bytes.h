// Bytes on OpenSSL's secure heap: locked into memory, left out of core files, wiped when they go.
#ifndef SOFTKEY_CRYPTO_SECRET_BYTES_H
#define SOFTKEY_CRYPTO_SECRET_BYTES_H

#include <cstddef>
#include <cstdint>
#include <utility>

namespace softkey {

// OpenSSL is not taken down when the process ends: a thread may be inside then. To be called before
// anything else of OpenSSL is.
void KeepOpenssl();

// Sees to it that OpenSSL has a secure heap, in which it then keeps private numbers too. A client
// that set one up before keeps its own.
void PrepareSecureHeap();

class SecretBytes {
public:
    explicit SecretBytes(std::size_t size);
    SecretBytes(const std::uint8_t* bytes, std::size_t size);
    ~SecretBytes();
    SecretBytes(SecretBytes&& other) noexcept { Swap(other); }
    SecretBytes& operator=(SecretBytes&& other) noexcept {
        Swap(other);
        return *this;
    }
    SecretBytes(const SecretBytes&) = delete;
    SecretBytes& operator=(const SecretBytes&) = delete;

    std::uint8_t* data() { return bytes_; }
    const std::uint8_t* data() const { return bytes_; }
    std::size_t size() const { return size_; }
    void Shrink(std::size_t size) { size_ = size; }

private:
    void Swap(SecretBytes& other) noexcept {
        std::swap(bytes_, other.bytes_);
        std::swap(size_, other.size_);
    }

    std::uint8_t* bytes_ = nullptr;
    std::size_t size_ = 0;
};

}  // namespace softkey

#endif

// MessagePack into memory that is on the stack as long as it suffices.
#ifndef KESTA_RECORDER_PACKER_H
#define KESTA_RECORDER_PACKER_H

#include <msgpack/pack.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace kesta {
namespace recorder {

class Packer {
public:
    Packer() { msgpack_packer_init(&packer_, this, &Packer::Write); }
    ~Packer() {
        if (data_ != inline_) std::free(data_);
    }
    Packer(const Packer&) = delete;
    Packer& operator=(const Packer&) = delete;

    void Array(std::size_t count) { msgpack_pack_array(&packer_, count); }
    void Number(std::int64_t value) { msgpack_pack_int64(&packer_, value); }
    void UnsignedNumber(std::uint64_t value) { msgpack_pack_uint64(&packer_, value); }
    void Nil() { msgpack_pack_nil(&packer_); }
    void Present() { msgpack_pack_true(&packer_); }
    void Bytes(const void* data, std::size_t size) {
        msgpack_pack_bin_with_body(&packer_, data, size);
    }
    void String(const char* text) { msgpack_pack_str_with_body(&packer_, text, std::strlen(text)); }

    // Null when memory ran out.
    const unsigned char* data() const { return failed_ ? nullptr : data_; }
    std::size_t size() const { return size_; }

private:
    static int Write(void* self, const char* data, std::size_t size) {
        return static_cast<Packer*>(self)->Add(data, size);
    }

    int Add(const char* data, std::size_t size) {
        if (size > capacity_ - size_ && !Widen(size)) return -1;
        std::memcpy(data_ + size_, data, size);
        size_ += size;
        return 0;
    }

    bool Widen(std::size_t size) {
        const std::size_t capacity = (capacity_ + size) * 2;
        auto* const wider =
            static_cast<unsigned char*>(std::realloc(data_ == inline_ ? nullptr : data_, capacity));
        if (wider == nullptr) {
            failed_ = true;
            return false;
        }
        if (data_ == inline_) std::memcpy(wider, inline_, size_);
        data_ = wider;
        capacity_ = capacity;
        return true;
    }

    msgpack_packer packer_;
    bool failed_ = false;
    std::size_t size_ = 0;
    unsigned char inline_[1024];
    std::size_t capacity_ = sizeof inline_;
    unsigned char* data_ = inline_;
};

}  // namespace recorder
}  // namespace kesta

#endif

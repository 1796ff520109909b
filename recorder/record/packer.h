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
    Packer() { msgpack_packer_init(&m_packer, this, &Packer::write); }
    ~Packer() {
        if (m_data != m_inline) std::free(m_data);
    }
    Packer(const Packer&) = delete;
    Packer& operator=(const Packer&) = delete;

    void array(std::size_t count) { msgpack_pack_array(&m_packer, count); }
    void number(std::int64_t value) { msgpack_pack_int64(&m_packer, value); }
    void unsignedNumber(std::uint64_t value) { msgpack_pack_uint64(&m_packer, value); }
    void nil() { msgpack_pack_nil(&m_packer); }
    void present() { msgpack_pack_true(&m_packer); }
    void bytes(const void* data, std::size_t size) {
        msgpack_pack_bin_with_body(&m_packer, data, size);
    }
    void string(const char* text) {
        msgpack_pack_str_with_body(&m_packer, text, std::strlen(text));
    }

    // Null when memory ran out.
    const unsigned char* data() const { return m_failed ? nullptr : m_data; }
    std::size_t size() const { return m_size; }

private:
    static int write(void* self, const char* data, std::size_t size) {
        return static_cast<Packer*>(self)->add(data, size);
    }

    int add(const char* data, std::size_t size) {
        if (size > m_capacity - m_size && !widen(size)) return -1;
        std::memcpy(m_data + m_size, data, size);
        m_size += size;
        return 0;
    }

    bool widen(std::size_t size) {
        const std::size_t capacity = (m_capacity + size) * 2;
        auto* const wider = static_cast<unsigned char*>(
            std::realloc(m_data == m_inline ? nullptr : m_data, capacity));
        if (wider == nullptr) {
            m_failed = true;
            return false;
        }
        if (m_data == m_inline) std::memcpy(wider, m_inline, m_size);
        m_data = wider;
        m_capacity = capacity;
        return true;
    }

    msgpack_packer m_packer;
    bool m_failed = false;
    std::size_t m_size = 0;
    unsigned char m_inline[1024];
    std::size_t m_capacity = sizeof m_inline;
    unsigned char* m_data = m_inline;
};

}  // namespace recorder
}  // namespace kesta

#endif

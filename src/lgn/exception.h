// What the string library throws.
#ifndef LGN_EXCEPTION_H
#define LGN_EXCEPTION_H

#include <cstdint>

namespace LGN {

constexpr int kOutOfMemory = static_cast<int>(0x8007000Eu);
constexpr int kInvalidArgument = static_cast<int>(0x80070057u);

class CLgnException {
public:
    explicit CLgnException(int code) : m_nCode(code) {}
    int GetCode() const { return m_nCode; }

private:
    std::int32_t m_nCode;
};

[[noreturn]] void LgnThrow(int code);

}  // namespace LGN

#endif

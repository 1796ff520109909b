// What the string library throws.
#ifndef LGN_EXCEPTION_H
#define LGN_EXCEPTION_H

#include <cstdint>

namespace LGN {

constexpr int kOutOfMemory = static_cast<int>(0x8007000Eu);
constexpr int kInvalidArgument = static_cast<int>(0x80070057u);

class CLgnException {
public:
    explicit CLgnException(int code) : code_(code) {}
    int GetCode() const { return code_; }

private:
    std::int32_t code_;
};

[[noreturn]] void LgnThrow(int code);

}  // namespace LGN

#endif

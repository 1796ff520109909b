// What the library's string type throws, declared as a peer would: by name and layout alone.
#ifndef KESTA_API_LGN_EXCEPTION_H
#define KESTA_API_LGN_EXCEPTION_H

#include <cstdint>

namespace LGN {
class CLgnException {
public:
    std::uint32_t code;
};
}  // namespace LGN

constexpr std::uint32_t kOutOfMemory = 0x8007000E;
constexpr std::uint32_t invalid_argument = 0x80070057;

// The code that what throws, or 0 when it returns.
template <class Function>
std::uint32_t CodeThrownBy(Function what) {
    try {
        what();
    } catch (const LGN::CLgnException& exception) {
        return exception.code;
    }
    return 0;
}

#endif

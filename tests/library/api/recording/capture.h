// Turns the arguments of one entry point into a recorded call and carries its answer out. Each
// entry point has a row of roles, one word per argument:
//   v value    t text in    m<size> memory of that size    l address of a 32-bit number
//   r address of the text pointer that receives a request  s string object    p pointer
#ifndef KESTA_RECORDING_CAPTURE_H
#define KESTA_RECORDING_CAPTURE_H

#include <cstdint>
#include <string>
#include <type_traits>
#include <vector>

#include "kesta/token_library.h"
#include "recording.h"

namespace recording {

// One argument before its role is known.
struct Raw {
    std::int64_t value;
    int width;
    void* address;
};

template <class T>
Raw RawOf(T value) {
    if constexpr (std::is_pointer_v<T>) {
        return {0, 0, const_cast<void*>(static_cast<const void*>(value))};
    } else {
        static_assert(std::is_integral_v<T>, "an argument is an integer or a pointer");
        return {static_cast<std::int64_t>(value), sizeof value, nullptr};
    }
}

// References cross as addresses.
inline Raw RawArgument(KestaStringObject& object) {
    return {0, 0, &object};
}
template <class T>
Raw RawArgument(T& value) {
    return RawOf(value);
}

// Records, answers, and returns the answer for its code.
RECORDING_API Answer CarryOut(const char* entry, const char* roles, const std::vector<Raw>& raws);

}  // namespace recording

#endif

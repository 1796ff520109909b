// Rules over the arguments of exports: which lengths are taken, and how much room a result takes.
#ifndef KESTA_ARGUMENTS_H
#define KESTA_ARGUMENTS_H

#include <cstdint>
#include <cstring>

#include "kesta/places.h"

namespace kesta {

inline bool IsDataName(const char* name) {
    const std::size_t length = std::strlen(name);
    return length >= limits::kShortestDataName && length <= limits::kLongestDataName;
}

inline bool IsDataValue(const char* value) {
    return std::strlen(value) <= limits::kLongestData;
}

// The room for what is made of a text: twice the text and some. Counted in 32 bits, as callers
// who ask for a size expect.
inline std::uint32_t WorkSize(const char* text) {
    return (static_cast<std::uint32_t>(std::strlen(text)) + 4096) * 2;
}

// The room for the signatures of a batch. Null texts count nothing, and a list counts once for each
// separator in it, not for each text: a list of one text adds nothing.
inline std::uint32_t BatchSize(const char* data, const char* list, std::uint32_t separators) {
    const auto room = [](const char* text) {
        return text == nullptr ? 0 : static_cast<std::uint32_t>(std::strlen(text)) + 2048;
    };
    return (room(data) + room(list) * separators) * 2;
}

}  // namespace kesta

#endif

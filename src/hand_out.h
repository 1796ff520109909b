// How texts reach the caller's buffer.
#ifndef KESTA_HAND_OUT_H
#define KESTA_HAND_OUT_H

#include <string.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "last_error.h"

namespace kesta {

// Copies at most capacity characters of a text that may fill its array, and a NUL behind them.
inline void copyText(char* to, const char* text, std::size_t arraySize, std::size_t capacity) {
    const std::size_t length = std::min(strnlen(text, arraySize), capacity);
    std::memcpy(to, text, length);
    to[length] = '\0';
}

// Answers the question for a size.
template <typename Length>
int answerSize(Length* length, Length size) {
    *length = size;
    return setLastError(KESTA_OK);
}

// A text that the token library wrote into an array, and the length that it or the text tells.
struct ReadText {
    const char* characters;
    std::size_t arraySize;
    std::uint32_t length;
    // What the caller is told when the buffer is too small. A question for the size counts the NUL
    // always, this answer for some exports only; clients know which.
    std::uint32_t neededLength;
};

template <std::size_t kSize>
ReadText readText(const char (&text)[kSize]) {
    const auto length = static_cast<std::uint32_t>(strnlen(text, kSize));
    return {text, kSize, length, length};
}

// Hands a text out by the two-call convention. A buffer without room for the NUL is accepted:
// callers pass the length that they were told. Lengths are compared as signed numbers.
template <typename Length>
int handOut(const ReadText& text, char* buffer, Length* bufferLength) {
    if (buffer == nullptr) {
        *bufferLength = static_cast<Length>(text.length + 1);
        return KESTA_OK;
    }
    const auto capacity = static_cast<std::uint32_t>(*bufferLength);
    if (static_cast<std::int32_t>(capacity) < static_cast<std::int32_t>(text.length)) {
        *bufferLength = static_cast<Length>(text.neededLength);
        return setLastError(KESTA_BUFFER_TOO_SMALL);
    }
    *bufferLength = static_cast<Length>(text.length);
    copyText(buffer, text.characters, text.arraySize, capacity);
    return KESTA_OK;
}

}  // namespace kesta

#endif

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
inline void CopyText(char* to, const char* text, std::size_t arraySize, std::size_t capacity) {
    const std::size_t length = std::min(strnlen(text, arraySize), capacity);
    std::memcpy(to, text, length);
    to[length] = '\0';
}

// Hands a text out without a look at the caller's capacity, and tells its length without the NUL.
template <std::size_t kSize>
void HandOutWhole(const char (&text)[kSize], char* buffer, unsigned int* length) {
    const std::size_t size = strnlen(text, kSize);
    if (buffer != nullptr) CopyText(buffer, text, kSize, size);
    *length = static_cast<unsigned int>(size);
}

// Answers the question for a size.
template <typename Length>
int AnswerSize(Length* length, Length size) {
    *length = size;
    return SetLastError(KESTA_OK);
}

// A text that the token library wrote into an array, and the length that it or the text tells.
struct ReadText {
    const char* characters;
    std::size_t arraySize;
    std::uint32_t length;
};

// Hands a text out by the two-call convention. A buffer without room for the NUL is accepted:
// callers pass the length that they were told. Lengths are compared as signed numbers. A question
// for the size is answered with room for the NUL; a buffer that is too small is so for some exports
// only, where nulWhenShort is 1, and clients know which.
template <typename Length>
int HandOut(const ReadText& text, char* buffer, Length* bufferLength,
            std::uint32_t nulWhenShort = 0) {
    if (buffer == nullptr) {
        *bufferLength = static_cast<Length>(text.length + 1);
        return KESTA_OK;
    }
    const auto capacity = static_cast<std::uint32_t>(*bufferLength);
    if (static_cast<std::int32_t>(capacity) < static_cast<std::int32_t>(text.length)) {
        *bufferLength = static_cast<Length>(text.length + nulWhenShort);
        return SetLastError(KESTA_BUFFER_TOO_SMALL);
    }
    *bufferLength = static_cast<Length>(text.length);
    CopyText(buffer, text.characters, text.arraySize, capacity);
    return KESTA_OK;
}

// Clears the last error, reads a text of at most kSize bytes and hands it out.
template <std::size_t kSize, typename Read>
int ReadAndHandOut(char* buffer, int* bufferLength, Read read, std::uint32_t nulWhenShort = 0) {
    SetLastError(KESTA_OK);
    char text[kSize] = {};
    const int result = read(&text[0]);
    if (result != KESTA_OK) return result;
    const auto length = static_cast<std::uint32_t>(strnlen(text, kSize));
    return HandOut({text, kSize, length}, buffer, bufferLength, nulWhenShort);
}

}  // namespace kesta

#endif

// How a parameter of a recorded function is read, and who may see it.
#ifndef KESTA_RECORDER_PARAMETER_H
#define KESTA_RECORDER_PARAMETER_H

#include <cstddef>
#include <cstdint>

#include "kesta/places.h"

namespace kesta {
namespace recorder {

enum class Class : std::uint8_t {
    kNone,        // a parameter that has this one does not compile
    kPublic,      // kept
    kIdentifier,  // a pseudonym, unless the recording is a full one
    kContent,     // its length and a tag, unless the recording is a full one
    kSecret,      // never more than its length and a tag
};

enum class Shape : std::uint8_t {
    kNumber,        // an integer
    kText,          // a text that is handed in
    kTextOut,       // a buffer that receives a text
    kBytesOut,      // a buffer that receives bytes, as many as its length tells
    kLength,        // 32 bits: room on entry, length on return
    kLengthOut,     // 32 bits, written alone; with a partner, where that buffer is null
    kNumberOut,     // 32 bits, written alone
    kNumberInOut,   // 32 bits, read and written
    kNumbersOut,    // an array of 32 bits; its length parameter counts numbers
    kNewText,       // receives a text from new[]
    kOpaque,        // an address that nobody here knows the meaning of
    kStringObject,  // KestaStringObject&
    kDevice,        // _S_DEV_CONFIG*
    kEvent,         // VALTO_EVENT_INFO*
    kRequest,       // KestaRequestRecord*
};

// How far the text in a buffer may be read after a success.
enum class Bound : std::uint8_t { kSize, kRoom, kLength };

struct Parameter {
    const char* name = nullptr;
    Class visibility = Class::kNone;
    Shape shape = Shape::kNumber;
    Bound bound = Bound::kSize;
    std::uint16_t size = 0;    // of a buffer; of a text that may lack its NUL
    std::int8_t partner = -1;  // the buffer's length parameter, or the length's buffer
};

// The most parameters that a function has.
constexpr std::size_t kMostParameters = 13;

struct Row {
    const char* name;
    Parameter parameters[kMostParameters];
};

constexpr std::size_t CountOf(const Row& row) {
    std::size_t count = 0;
    while (count < kMostParameters && row.parameters[count].name != nullptr) ++count;
    return count;
}

// ---- The rows' vocabulary -----------------------------------------------------------------------

constexpr Class Public = Class::kPublic, Identifier = Class::kIdentifier, Content = Class::kContent,
                Secret = Class::kSecret;

constexpr Parameter Number(const char* name) {
    return {name, Public, Shape::kNumber, Bound::kSize, 0, -1};
}
constexpr Parameter Text(const char* name, Class visibility, std::size_t size = 0) {
    return {name, visibility, Shape::kText, Bound::kSize, static_cast<std::uint16_t>(size), -1};
}
constexpr Parameter Serial(const char* name) {
    return Text(name, Identifier);
}
// A buffer of a fixed size.
constexpr Parameter Buffer(const char* name, Class visibility, std::size_t size, int length = -1) {
    return {name,
            visibility,
            Shape::kTextOut,
            Bound::kSize,
            static_cast<std::uint16_t>(size),
            static_cast<std::int8_t>(length)};
}
// A buffer whose text is as long as parameter number `length` tells afterwards.
constexpr Parameter TextOut(const char* name, Class visibility, int length) {
    return {name, visibility, Shape::kTextOut, Bound::kLength, 0, static_cast<std::int8_t>(length)};
}
// A buffer as large as parameter number `length` tells beforehand; a text ends at its NUL.
constexpr Parameter RoomOut(const char* name, Class visibility, int length) {
    return {name, visibility, Shape::kTextOut, Bound::kRoom, 0, static_cast<std::int8_t>(length)};
}
constexpr Parameter BytesOut(const char* name, Class visibility, int length) {
    return {name, visibility, Shape::kBytesOut, Bound::kRoom, 0, static_cast<std::int8_t>(length)};
}
constexpr Parameter Length(const char* name, int buffer) {
    return {name, Public, Shape::kLength, Bound::kSize, 0, static_cast<std::int8_t>(buffer)};
}
constexpr Parameter LengthOut(const char* name) {
    return {name, Public, Shape::kLengthOut, Bound::kSize, 0, -1};
}
constexpr Parameter NumberOut(const char* name) {
    return {name, Public, Shape::kNumberOut, Bound::kSize, 0, -1};
}
constexpr Parameter Opaque(const char* name) {
    return {name, Secret, Shape::kOpaque, Bound::kSize, 0, -1};
}
constexpr Parameter As(const char* name, Class visibility, Shape shape, int partner = -1) {
    return {name, visibility, shape, Bound::kSize, 0, static_cast<std::int8_t>(partner)};
}

}  // namespace recorder
}  // namespace kesta

#endif

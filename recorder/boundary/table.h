// The recorded functions by number: the exports, the token library's entry points, the event
// library's, each in the order of its rows. A recording tells numbers and names once, at its head.
#ifndef KESTA_RECORDER_TABLE_H
#define KESTA_RECORDER_TABLE_H

#include <iterator>

#include "rows.h"

namespace kesta {
namespace recorder {

enum class Boundary : std::uint8_t { kExports, kToken, kEvents };
constexpr int kBoundaries = 3;

constexpr std::size_t kExportCount = std::size(kExportRows);
constexpr std::size_t kTokenCount = std::size(kTokenRows);
constexpr std::size_t kFunctionCount = kExportCount + kTokenCount + std::size(kEventRows);

constexpr Boundary BoundaryOf(std::size_t number) {
    if (number < kExportCount) return Boundary::kExports;
    return number < kExportCount + kTokenCount ? Boundary::kToken : Boundary::kEvents;
}

constexpr const Row& RowOf(std::size_t number) {
    switch (BoundaryOf(number)) {
        case Boundary::kExports:
            return kExportRows[number];
        case Boundary::kToken:
            return kTokenRows[number - kExportCount];
        default:
            return kEventRows[number - kExportCount - kTokenCount];
    }
}

constexpr bool SameText(const char* one, const char* other) {
    while (*one != '\0' && *one == *other) ++one, ++other;
    return *one == *other;
}

// kFunctionCount where there is none.
constexpr std::size_t NumberOf(Boundary boundary, const char* name) {
    for (std::size_t number = 0; number < kFunctionCount; ++number) {
        if (BoundaryOf(number) == boundary && SameText(RowOf(number).name, name)) return number;
    }
    return kFunctionCount;
}

constexpr const char* NameOf(Boundary boundary) {
    constexpr const char* kNames[kBoundaries] = {"exports", "token", "events"};
    return kNames[static_cast<int>(boundary)];
}

constexpr const char* NameOf(Class visibility) {
    constexpr const char* kNames[] = {"none", "public", "identifier", "content", "secret"};
    return kNames[static_cast<int>(visibility)];
}

}  // namespace recorder
}  // namespace kesta

#endif

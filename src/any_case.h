// Comparison of names that count in any case, byte by byte in the C locale's sense.
#ifndef KESTA_ANY_CASE_H
#define KESTA_ANY_CASE_H

#include <algorithm>
#include <cctype>
#include <string_view>

namespace kesta {

inline bool EqualInAnyCase(std::string_view left, std::string_view right) {
    const auto upper = [](char c) { return std::toupper(static_cast<unsigned char>(c)); };
    return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                      [upper](char a, char b) { return upper(a) == upper(b); });
}

}  // namespace kesta

#endif

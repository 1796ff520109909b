// Inputs that the library must not be given: they would end the process, raise an exception
// through a C interface, or reach the token as something else than was meant.
#ifndef KESTA_UKEY_CHECKS_HPP
#define KESTA_UKEY_CHECKS_HPP

#include <cctype>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "kesta/places.h"
#include "kesta/ukey/sentences.hpp"

namespace kesta {
namespace checks {

// A check answers the reason for a refusal, or nothing.
using Reason = std::optional<std::string>;

// Whether an output size of (size + 4096) * 2 leaves the range of a signed 32-bit length.
constexpr bool IsTooLong(std::size_t size) {
    return size > 0x7fffffff / 2 - 4096;
}

inline Reason Text(const std::string& text) {
    if (text.find('\0') != std::string::npos) return Say(Sentence::kNulByte);
    if (IsTooLong(text.size())) return Say(Sentence::kTextTooLong);
    return std::nullopt;
}

inline std::string Without(std::string_view text, std::string_view dropped) {
    std::string kept;
    for (const char c : text) {
        if (dropped.find(c) == std::string_view::npos) kept += c;
    }
    return kept;
}

// What the library would copy into its key buffer: a longer text ends the process.
inline Reason KeyText(std::string_view keyText) {
    const std::string clean = Without(keyText, ",");
    const bool header = clean.find(places::kKeyHeader) != std::string::npos;
    const std::size_t body = clean.size() - (header ? places::kKeyHeader.size() : 0);
    if (body <= limits::kKeyBuffer) return std::nullopt;
    return Say(Sentence::kKeyTooLong, {std::to_string(body), std::to_string(limits::kKeyBuffer)});
}

// The same for each key text of a bundle, found in it as the library finds it.
inline Reason Bundle(std::string_view bundle) {
    constexpr std::string_view kOpener = "EncPriKey(";
    const std::string clean = Without(bundle, ",\r\n");
    const std::size_t first = clean.find('(');
    if (first == std::string::npos || first == 0) return std::nullopt;  // one certificate
    std::size_t at = clean.find(kOpener);
    while (at != std::string::npos) {
        const std::size_t end = clean.find(')', at);
        if (end == std::string::npos) break;
        const std::size_t start = at + kOpener.size();
        if (Reason reason = KeyText(std::string_view(clean).substr(start, end - start))) {
            return reason;
        }
        at = clean.find(kOpener, end + 2);
    }
    return std::nullopt;
}

inline bool IsItemName(std::string_view name) {
    const auto blank = [](char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; };
    while (!name.empty() && blank(name.back())) name.remove_suffix(1);
    while (!name.empty() && blank(name.front())) name.remove_prefix(1);
    std::string upper;
    for (const char c : name) {
        upper += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    }
    return upper == "CERTTYPE" || upper == "KEYTYPE" || upper == "HASHTYPE";
}

// True when the group ends right after one of the three names, where the library looks for a value
// beyond the text. A name that it does not know ends the parsing before that.
inline bool EndsAfterName(std::string_view group) {
    std::size_t at = 0;
    for (;;) {
        at = group.find_first_not_of('(', at);
        if (at == std::string_view::npos) return false;
        const std::size_t open = group.find('(', at);
        if (!IsItemName(group.substr(at, open == std::string_view::npos ? open : open - at))) {
            return false;
        }
        if (open == std::string_view::npos) return true;
        at = group.find_first_not_of(')', open + 1);
        if (at == std::string_view::npos) return false;
        at = group.find(')', at);
        if (at == std::string_view::npos) return false;
        ++at;
    }
}

inline Reason RequestInfo(std::string_view text) {
    while (!text.empty()) {
        const std::size_t bar = text.find('|');
        if (EndsAfterName(text.substr(0, bar))) {
            return Say(Sentence::kGroupEndsAfterName);
        }
        if (bar == std::string_view::npos) break;
        text.remove_prefix(bar + 1);
    }
    return std::nullopt;
}

// A text in a list that is joined by "||".
inline Reason ListItem(std::string_view item) {
    if (item.empty()) return Say(Sentence::kEmptyItem);
    if (item.find("||") != std::string_view::npos || item.front() == '|' || item.back() == '|') {
        return Say(Sentence::kItemSeparator);
    }
    return std::nullopt;
}

}  // namespace checks
}  // namespace kesta

#endif

#include "kit/text.h"

#include <wchar.h>

#include <algorithm>
#include <cstddef>

#include "kit/language.h"

namespace kit {
namespace {

struct Character {
    unsigned point = 0;
    std::size_t length = 1;
    bool good = false;
};

// The character at the start of a text that is not empty.
Character Decode(std::string_view text) {
    constexpr unsigned kLeast[] = {0, 0, 0x80, 0x800, 0x10000};  // by length; less is overlong
    const unsigned lead = static_cast<unsigned char>(text[0]);
    if (lead < 0x80) return {lead, 1, true};
    if (lead < 0xC2 || lead > 0xF4) return {lead, 1, false};
    const std::size_t length = lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    if (text.size() < length) return {lead, 1, false};
    unsigned point = lead & (0x7FU >> length);
    for (std::size_t i = 1; i < length; ++i) {
        const unsigned byte = static_cast<unsigned char>(text[i]);
        if ((byte & 0xC0U) != 0x80U) return {lead, 1, false};
        point = (point << 6U) | (byte & 0x3FU);
    }
    const bool good =
        point >= kLeast[length] && point <= 0x10FFFF && (point < 0xD800 || point > 0xDFFF);
    return {point, good ? length : 1, good};
}

bool Steers(unsigned point) {
    const bool control = point < 0x20 || (point >= 0x7F && point < 0xA0);
    const bool turns = point == 0x061C || point == 0x200E || point == 0x200F ||
                       (point >= 0x2028 && point <= 0x202E) || (point >= 0x2066 && point <= 0x2069);
    return control || turns;
}

bool Wide(unsigned point) {
    return (point >= 0x1100 && point <= 0x115F) || (point >= 0x2E80 && point <= 0xA4CF) ||
           (point >= 0xAC00 && point <= 0xD7A3) || (point >= 0xF900 && point <= 0xFAFF) ||
           (point >= 0xFE30 && point <= 0xFE4F) || (point >= 0xFF00 && point <= 0xFF60) ||
           (point >= 0xFFE0 && point <= 0xFFE6) || (point >= 0x20000 && point <= 0x3FFFD);
}

// The locale knows its terminals: some show quotation marks and dashes as wide as ideographs. What
// it does not know is left to the table, or becomes a question mark.
std::size_t ColumnsOf(unsigned point) {
    if (point < 0x80) return 1;
    const int known = ::wcwidth(static_cast<wchar_t>(point));
    if (known >= 0) return static_cast<std::size_t>(known);
    return CharsetName() == "UTF-8" && Wide(point) ? 2 : 1;
}

}  // namespace

bool IsUtf8(std::string_view text) {
    while (!text.empty()) {
        const Character next = Decode(text);
        if (!next.good) return false;
        text.remove_prefix(next.length);
    }
    return true;
}

std::size_t CharacterSize(std::string_view text) {
    return Decode(text).length;
}

std::string Fill(std::string_view sentence, std::initializer_list<std::string_view> parts) {
    std::string text;
    for (std::size_t i = 0; i < sentence.size(); ++i) {
        const bool hole = sentence[i] == '{' && i + 2 < sentence.size() && sentence[i + 2] == '}';
        const auto number = hole ? static_cast<std::size_t>(sentence[i + 1] - '0') : 0;
        if (number >= 1 && number <= parts.size()) {
            text += ToUtf8(parts.begin()[number - 1]);
            i += 2;
        } else {
            text += sentence[i];
        }
    }
    return text;
}

std::string Printable(std::string_view given, std::string_view kept) {
    const std::string whole = ToUtf8(given);
    std::string_view text = whole;
    std::string clean;
    while (!text.empty()) {
        const Character next = Decode(text);
        const bool keep = kept.find(text[0]) != std::string_view::npos;
        if (keep || (next.good && !Steers(next.point))) {
            clean += text.substr(0, next.length);
        } else {
            clean += '?';
        }
        text.remove_prefix(next.length);
    }
    return clean;
}

std::size_t Columns(std::string_view text) {
    std::size_t columns = 0;
    while (!text.empty()) {
        const Character next = Decode(text);
        columns += next.good ? ColumnsOf(next.point) : 1;
        text.remove_prefix(next.length);
    }
    return columns;
}

std::string Trimmed(std::string text) {
    text.erase(text.find_last_not_of(" \t\r\n") + 1);
    return text;
}

}  // namespace kit

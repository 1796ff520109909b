#include "report/mask.h"

#include <algorithm>
#include <cctype>
#include <cstdio>

#include "kit/text.h"

namespace ukey {
namespace {

// A value of so many characters is no part of another word by chance.
constexpr std::size_t kLong = 6;

constexpr std::string_view kHomes = "/home/";

bool IsWord(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) != 0;
}

std::string Hexadecimal(const std::string& value, const char* format) {
    std::string text;
    for (const char c : value) {
        char digits[3];
        std::snprintf(digits, sizeof digits, format,
                      static_cast<unsigned>(static_cast<unsigned char>(c)));
        text += digits;
    }
    return text;
}

}  // namespace

const std::string& Mask::NameOf(const std::string& kind, const std::string& value) {
    std::string& name = names_[value];
    if (name.empty()) name = kind + "-" + std::to_string(++counts_[kind]);
    return name;
}

std::string Mask::Name(const std::string& kind, const std::string& value) {
    if (!masking_ || value.empty()) return value;
    const std::string name = NameOf(kind, value);
    if (!known_.insert(value).second) return name;
    writings_.push_back({value, name, value.size() >= kLong});
    if (value.size() >= kLong / 2) {
        writings_.push_back({Hexadecimal(value, "%02X"), name, true});
        writings_.push_back({Hexadecimal(value, "%02x"), name, true});
    }
    return name;
}

std::string Mask::Hidden(const std::string& kind, const std::string& value) {
    return "<" +
           kit::Fill(kit::_("{1}: {2} characters"),
                     {NameOf(kind, value), std::to_string(value.size())}) +
           ">";
}

void Mask::LearnFrom(const std::string& text) {
    for (std::size_t at = 0; (at = text.find(kHomes, at)) != std::string::npos;) {
        at += kHomes.size();
        Name("user", text.substr(at, text.find_first_of("/ ,;:'\"()", at) - at));
    }
}

const Mask::Writing* Mask::Longest(std::string_view text, std::size_t at) const {
    const Writing* longest = nullptr;
    for (const Writing& writing : writings_) {
        const std::size_t size = writing.text.size();
        if (longest != nullptr && size <= longest->text.size()) continue;
        if (text.compare(at, size, writing.text) != 0) continue;
        const std::size_t end = at + size;
        const bool within = (at > 0 && IsWord(text[at]) && IsWord(text[at - 1])) ||
                            (end < text.size() && IsWord(text[end - 1]) && IsWord(text[end]));
        if (writing.anywhere || !within) longest = &writing;
    }
    return longest;
}

std::string Mask::Text(const std::string& text) const {
    std::string masked;
    for (std::size_t at = 0; at < text.size();) {
        const Writing* const writing = Longest(text, at);
        masked += writing != nullptr ? writing->name : text.substr(at, 1);
        at += writing != nullptr ? writing->text.size() : 1;
    }
    return masked;
}

}  // namespace ukey

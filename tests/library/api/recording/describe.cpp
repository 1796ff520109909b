// Calls as text, for comparison with what a test expects.
#include <cstdio>
#include <stdexcept>

#include "recording.h"

namespace recording {

namespace {

constexpr std::size_t longest_shown = 160;

std::string Quoted(const std::string& bytes) {
    if (bytes.size() > longest_shown) {
        return "text of " + std::to_string(bytes.size()) + " characters";
    }
    std::string shown = "\"";
    for (const char character : bytes) {
        const auto code = static_cast<unsigned char>(character);
        if (code >= 0x20 && code < 0x7F) {
            shown += character;
        } else {
            char escaped[8];
            std::snprintf(escaped, sizeof escaped, "\\x%02X", code);
            shown += escaped;
        }
    }
    return shown + "\"";
}

std::string Hexadecimal(const std::string& bytes) {
    std::string shown;
    for (const char character : bytes) {
        char digits[4];
        std::snprintf(digits, sizeof digits, "%02X", static_cast<unsigned char>(character));
        shown += digits;
    }
    return shown;
}

std::string Memory(const std::string& bytes) {
    const std::string size = "[" + std::to_string(bytes.size()) + "]";
    const std::size_t used = bytes.find_last_not_of('\0') + 1;
    if (used == 0) return "zero" + size;
    if (bytes.size() <= 32) return Hexadecimal(bytes);
    return Quoted(bytes.substr(0, used)) + size;
}

}  // namespace

std::string Argument::Describe() const {
    if (kind != Kind::Value && !address) return "null";
    switch (kind) {
        case Kind::Value:
            return std::to_string(value);
        case Kind::Text:
            return Quoted(bytes);
        case Kind::Memory:
            return Memory(bytes);
        case Kind::Length:
            return "&" + std::to_string(value);
        case Kind::Request:
            return value ? "&set" : "&null";
        case Kind::String:
            return "string" + Quoted(bytes);
        case Kind::Pointer:
            return "pointer";
    }
    throw std::logic_error("an argument of no kind");
}

std::string Call::Describe() const {
    std::string line = entry + "(";
    for (std::size_t index = 0; index < arguments.size(); ++index) {
        if (index) line += ", ";
        line += arguments[index].Describe();
    }
    return line + ")";
}

const Argument& Call::At(std::size_t index) const {
    return arguments.at(index);
}

const std::string& Call::Bytes(std::size_t index) const {
    return arguments.at(index).bytes;
}

}  // namespace recording

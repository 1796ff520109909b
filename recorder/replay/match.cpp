#include "match.h"

#include <cstdio>

namespace kesta {
namespace recorder {
namespace {

Json Parsed(const Packer& packer) {
    if (packer.data() == nullptr) throw std::bad_alloc();
    return Json::from_msgpack(packer.data(), packer.data() + packer.size());
}

bool IsHidden(const Json& value) {
    return value.is_array() && value.size() == 2 && value[0].is_number() && value[1].is_binary();
}

// A hidden value may stand for one that is shown in the other recording.
std::uint64_t LengthOf(const Json& value) {
    return IsHidden(value) ? value[0].get<std::uint64_t>() : value.get_binary().size();
}

bool HasLength(const Json& value) {
    return IsHidden(value) || value.is_binary();
}

std::string Shortened(const Json::binary_t& bytes) {
    constexpr std::size_t kMost = 48;
    std::string text = "\"";
    char escaped[8];
    for (std::size_t i = 0; i < bytes.size() && i < kMost; ++i) {
        if (bytes[i] >= 0x20 && bytes[i] < 0x7f) {
            text += static_cast<char>(bytes[i]);
        } else {
            std::snprintf(escaped, sizeof escaped, "\\x%02x", bytes[i]);
            text += escaped;
        }
    }
    return text + (bytes.size() > kMost ? "\"..." : "\"");
}

}  // namespace

Json ArgumentsOf(const LiveCall& call, const Discretion& discretion) {
    Packer packer;
    PackArguments(packer, call, discretion);
    return Parsed(packer);
}

Json OutputsOf(const LiveCall& call, const Discretion& discretion) {
    Packer packer;
    PackOutputs(packer, call, discretion);
    return Parsed(packer);
}

Json ResultOf(const LiveCall& call) {
    Packer packer;
    PackResult(packer, call);
    return Parsed(packer);
}

bool SameValue(const Json& expected, const Json& found, bool exact) {
    if (!exact && HasLength(expected) && HasLength(found) &&
        (IsHidden(expected) || IsHidden(found))) {
        return LengthOf(expected) == LengthOf(found);
    }
    if (!expected.is_array() || !found.is_array() || IsHidden(expected)) return expected == found;
    if (expected.size() != found.size()) return false;
    for (std::size_t i = 0; i < expected.size(); ++i) {
        if (!SameValue(expected[i], found[i], exact)) return false;
    }
    return true;
}

std::optional<Difference> DifferenceOf(const Json& expected, const Json& found,
                                       const Function& function, bool exact) {
    for (std::size_t i = 0; i < expected.size() && i < found.size(); ++i) {
        if (SameValue(expected[i], found[i], exact)) continue;
        Difference difference{function.parameters[i].name, InMessage(expected[i]),
                              InMessage(found[i])};
        if (difference.expected == difference.found) difference.found += " of other content";
        return difference;
    }
    return std::nullopt;
}

std::string InMessage(const Json& value) {
    if (value.is_null()) return "null";
    if (value.is_boolean()) return "a buffer";
    if (IsHidden(value)) return value[0].dump() + " bytes";
    if (value.is_binary()) {
        return Shortened(value.get_binary()) + " (" + std::to_string(value.get_binary().size()) +
               " bytes)";
    }
    if (!value.is_array()) return value.dump();
    std::string text;
    for (const Json& one : value) text += (text.empty() ? "" : ", ") + InMessage(one);
    return "[" + text + "]";
}

}  // namespace recorder
}  // namespace kesta

#include "match.h"

#include <cstdio>

namespace kesta {
namespace recorder {
namespace {

Json parsed(const Packer& packer) {
    if (packer.data() == nullptr) throw std::bad_alloc();
    return Json::from_msgpack(packer.data(), packer.data() + packer.size());
}

bool isHidden(const Json& value) {
    return value.is_array() && value.size() == 2 && value[1].is_binary();
}

// A hidden value may stand for one that is shown in the other recording.
std::uint64_t lengthOf(const Json& value) {
    return isHidden(value) ? value[0].get<std::uint64_t>() : value.get_binary().size();
}

bool hasLength(const Json& value) {
    return isHidden(value) || value.is_binary();
}

std::string shortened(const Json::binary_t& bytes) {
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

Json argumentsOf(const LiveCall& call, const Discretion& discretion) {
    Packer packer;
    packArguments(packer, call, discretion);
    return parsed(packer);
}

Json outputsOf(const LiveCall& call, const Discretion& discretion) {
    Packer packer;
    packOutputs(packer, call, discretion);
    return parsed(packer);
}

Json resultOf(const LiveCall& call) {
    Packer packer;
    packResult(packer, call);
    return parsed(packer);
}

bool sameValue(const Json& expected, const Json& found, bool exact) {
    if (!exact && hasLength(expected) && hasLength(found) &&
        (isHidden(expected) || isHidden(found))) {
        return lengthOf(expected) == lengthOf(found);
    }
    if (!expected.is_array() || !found.is_array() || isHidden(expected)) return expected == found;
    if (expected.size() != found.size()) return false;
    for (std::size_t i = 0; i < expected.size(); ++i) {
        if (!sameValue(expected[i], found[i], exact)) return false;
    }
    return true;
}

std::optional<Difference> differenceOf(const Json& expected, const Json& found,
                                       const Function& function, bool exact) {
    for (std::size_t i = 0; i < expected.size() && i < found.size(); ++i) {
        if (sameValue(expected[i], found[i], exact)) continue;
        Difference difference{function.parameters[i].name, inMessage(expected[i]),
                              inMessage(found[i])};
        if (difference.expected == difference.found) difference.found += " of other content";
        return difference;
    }
    return std::nullopt;
}

std::string inMessage(const Json& value) {
    if (value.is_null()) return "null";
    if (value.is_boolean()) return "a buffer";
    if (isHidden(value)) return value[0].dump() + " bytes";
    if (value.is_binary()) {
        return shortened(value.get_binary()) + " (" + std::to_string(value.get_binary().size()) +
               " bytes)";
    }
    if (!value.is_array()) return value.dump();
    std::string text;
    for (const Json& one : value) text += (text.empty() ? "" : ", ") + inMessage(one);
    return "[" + text + "]";
}

}  // namespace recorder
}  // namespace kesta

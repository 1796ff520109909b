// The stand-in steered from outside C++: the tests of the bindings load this library as a client
// does and tell it what to answer.
#include <cstring>
#include <functional>
#include <map>

#include "stand_in.h"

#define CONTROL extern "C" __attribute__((visibility("default")))

CONTROL void stand_in_reset() {
    stand_in().Reset();
}

// False for a field that there is none of.
CONTROL bool stand_in_number(const char* field, long long value) {
    StandIn& s = stand_in();
    const auto word = static_cast<std::uint32_t>(value);
    const auto number = static_cast<int>(value);
    const std::map<std::string, std::function<void()>> fields = {
        {"code", [&] { s.code = number; }},
        {"probeCode", [&] { s.probeCode = number; }},
        {"reported", [&] { s.reported = word; }},
        {"probed", [&] { s.probed = word; }},
        {"beyond", [&] { s.beyond = word; }},
        {"fetchCode", [&] { s.fetchCode = number; }},
        {"fetchLost", [&] { s.fetchLost = number != 0; }},
        {"waitFailure", [&] { s.waitFailure = number; }},
        {"deafMillis", [&] { s.deafMillis = number; }},
        {"asking", [&] { s.asking = number != 0; }},
    };
    const auto found = fields.find(field);
    if (found == fields.end()) return false;
    found->second();
    return true;
}

CONTROL bool stand_in_text(const char* field, const char* bytes, std::size_t size) {
    if (std::strcmp(field, "text") == 0) {
        stand_in().text.assign(bytes, size);
    } else if (std::strcmp(field, "message") == 0) {
        stand_in().message.assign(bytes, size);
    } else {
        return false;
    }
    return true;
}

CONTROL void stand_in_event(unsigned kind, const char* mediaId, int code) {
    const std::lock_guard<std::mutex> lock(stand_in().mutex);
    stand_in().occurrences.push_back({kind, mediaId, code});
}

// How many operations are inside, and how many have been at most.
CONTROL int stand_in_inside() {
    return stand_in().inside;
}
CONTROL int stand_in_most_inside() {
    return stand_in().mostInside;
}
CONTROL int stand_in_waits() {
    return stand_in().waits;
}

// Joined by line breaks. Valid until the next call of this function.
CONTROL const char* stand_in_calls() {
    static std::string joined;
    const std::lock_guard<std::mutex> lock(stand_in().mutex);
    joined.clear();
    for (const std::string& call : stand_in().calls) joined += call + "\n";
    return joined.c_str();
}

// events_face: tells of keys that are inserted and removed, through the C++ face. The waiter has a
// thread of its own and ends it when it is destroyed.
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <string>

#include "kesta/ukey.hpp"

namespace {

const char kUsage[] =
    "usage: events_face COUNT SECONDS\n"
    "\n"
    "Prints a line for each key that is inserted or removed, until COUNT events have been seen or\n"
    "SECONDS have passed.\n"
    "\n"
    "example:\n"
    "  events_face 2 30\n"
    "exit status: 3 when it ended before COUNT events were seen.\n";

const char* Word(kesta::Event::Kind kind) {
    switch (kind) {
        case kesta::Event::Kind::kArrival:
            return "inserted";
        case kesta::Event::Kind::kRemoval:
            return "removed";
        default:
            return "other event";
    }
}

int Wait(int wanted, int seconds) {
    using Clock = std::chrono::steady_clock;
    const auto key = kesta::Library::Linked();
    key.Initialize();
    kesta::EventWaiter waiter(key);
    const auto end = Clock::now() + std::chrono::seconds(seconds);
    int seen = 0;
    while (seen < wanted && Clock::now() < end) {
        const auto event = waiter.Next(std::chrono::milliseconds(200));
        if (const auto failure = waiter.LastFailure()) throw kesta::Error(*failure);
        if (!event) continue;
        std::cout << Word(event->kind) << ' ' << event->mediaId << std::endl;
        ++seen;
    }
    return seen == wanted ? 0 : 3;
}

}  // namespace

int main(int count, char** arguments) {
    if (count != 3) {
        const bool help = count == 2 && std::string(arguments[1]) == "--help";
        (help ? std::cout : std::cerr) << kUsage;
        return help ? 0 : 2;
    }
    try {
        return Wait(std::atoi(arguments[1]), std::atoi(arguments[2]));
    } catch (const kesta::Error& error) {
        std::cerr << "events_face: " << error.what() << '\n';
        return 1;
    }
}

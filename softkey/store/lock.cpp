#include "softkey/store/lock.h"

#include <fcntl.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <thread>

#include "softkey/store/places.h"

namespace softkey {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::microseconds;
using std::chrono::milliseconds;

constexpr std::chrono::seconds kPatience{5};  // while nothing moves
constexpr std::chrono::seconds kLongest{60};

// Who has waited longer asks more often, so that nobody is overtaken for long.
microseconds Pause(Clock::duration waited) {
    const auto age = std::min<std::int64_t>(waited / milliseconds(250), 6);
    return milliseconds(8) / (std::int64_t{1} << age);
}

// Enough to see a change: a guard, or the first counts of calls.
using Beginning = std::array<char, 512>;

Beginning Look(const File& file) {
    Beginning text{};
    file.ReadAt(0, text.data(), text.size());
    return text;
}

}  // namespace

Lock::Lock(const std::string& home, off_t place, GuardFile guard)
    : Lock(home, place,
           std::make_shared<File>(GuardPath(home),
                                  O_RDWR | (guard == GuardFile::kMadeWhenMissing ? O_CREAT : 0))) {}

Lock::Lock(const std::string& home, off_t place, std::shared_ptr<const File> file)
    : file_(std::move(file)), place_(place) {
    file_->Required();
    Wait(home);
}

void Lock::Wait(const std::string& home) const {
    const Clock::time_point start = Clock::now();
    Clock::time_point moved = start;
    Beginning seen{};
    while (!file_->TryLock(place_)) {
        const Clock::time_point now = Clock::now();
        const Beginning text = Look(*file_);
        if (text != seen) moved = now;
        seen = text;
        if (now - moved > kPatience || now - start > kLongest) {
            throw Failure(kStateBusy, Sentence("{1}: another process holds the state", {home}));
        }
        std::this_thread::sleep_for(Pause(now - start));
    }
}

}  // namespace softkey

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
        std::this_thread::sleep_for(Pause(std::chrono::duration_cast<milliseconds>(now - start)));
    }
}

microseconds Lock::Pause(milliseconds waited) {
    const auto halvings = std::min<std::int64_t>(waited.count() / 250, 6);
    return microseconds(8000 >> halvings);
}

}  // namespace softkey

#include "softkey/store/stamp.h"

#include <ctime>

namespace softkey {
namespace {

constexpr long kClockStepMs = 10;

bool IsSame(const struct timespec& left, const struct timespec& right) {
    return left.tv_sec == right.tv_sec && left.tv_nsec == right.tv_nsec;
}

bool IsOld(const struct timespec& time) {
    struct timespec now {};
    clock_gettime(CLOCK_REALTIME_COARSE, &now);
    return (now.tv_sec - time.tv_sec) * 1000 + (now.tv_nsec - time.tv_nsec) / 1000000 >
           kClockStepMs;
}

}  // namespace

void Stamp::Take(const struct stat& status) {
    seen_ = status;
    kind_ = IsOld(status.st_ctim) ? Kind::kTaken : Kind::kNever;
}

void Stamp::Expect(std::size_t size, const struct timespec& changed) {
    seen_.st_size = static_cast<off_t>(size);
    seen_.st_mtim = changed;
    kind_ = Kind::kExpected;
}

bool Stamp::Holds(int folder, const char* path) {
    struct stat now {};
    return fstatat(folder, path, &now, 0) == 0 && Holds(now);
}

bool Stamp::Holds(const struct stat& now) {
    if (kind_ == Kind::kNever || now.st_size != seen_.st_size ||
        !IsSame(now.st_mtim, seen_.st_mtim)) {
        return false;
    }
    if (kind_ == Kind::kExpected) {
        seen_ = now;
        kind_ = Kind::kTaken;
    }
    return now.st_dev == seen_.st_dev && now.st_ino == seen_.st_ino &&
           IsSame(now.st_ctim, seen_.st_ctim);
}

}  // namespace softkey

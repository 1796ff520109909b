#include "system_calls.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <utility>

extern "C" {
ssize_t __real_pread(int descriptor, void* bytes, size_t size, off_t offset);
ssize_t __real_pwrite(int descriptor, const void* bytes, size_t size, off_t offset);
int __real_fdatasync(int descriptor);
int __real_rename(const char* from, const char* to);
int __real_nanosleep(const struct timespec* time, struct timespec* left);

ssize_t __wrap_pread(int descriptor, void* bytes, size_t size, off_t offset);
ssize_t __wrap_pwrite(int descriptor, const void* bytes, size_t size, off_t offset);
int __wrap_fdatasync(int descriptor);
int __wrap_rename(const char* from, const char* to);
int __wrap_nanosleep(const struct timespec* time, struct timespec* left);
}

SystemCalls& SystemCalls::Instance() {
    static SystemCalls calls;
    return calls;
}

namespace {

std::string NameOf(int descriptor) {
    std::error_code ignored;
    return std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(descriptor), ignored)
        .filename()
        .string();
}

// Whether the call fails instead of being made.
bool Fails(const std::string& call) {
    SystemCalls& calls = SystemCalls::Instance();
    static bool interrupted = false;
    interrupted = calls.interrupts && !interrupted;
    if (interrupted) {
        errno = EINTR;
        return true;
    }
    if (calls.fails == call) {
        calls.fails.clear();
        errno = calls.error;
        return true;
    }
    return false;
}

// The same for a call that changes what is stored.
bool FailsToChange(const std::string& call) {
    if (Fails(call)) return true;
    SystemCalls::Instance().changes.push_back(call);
    return false;
}

}  // namespace

ssize_t __wrap_pread(int descriptor, void* bytes, size_t size, off_t offset) {
    SystemCalls& calls = SystemCalls::Instance();
    ++calls.reads;
    if (Fails("pread " + NameOf(descriptor))) return -1;
    const ssize_t read = __real_pread(descriptor, bytes, std::min(size, calls.most), offset);
    if (const auto act = std::exchange(calls.afterRead, nullptr)) act();
    return read;
}

ssize_t __wrap_pwrite(int descriptor, const void* bytes, size_t size, off_t offset) {
    if (FailsToChange("pwrite " + NameOf(descriptor))) return -1;
    return __real_pwrite(descriptor, bytes, std::min(size, SystemCalls::Instance().most), offset);
}

int __wrap_fdatasync(int descriptor) {
    return FailsToChange("fdatasync " + NameOf(descriptor)) ? -1 : __real_fdatasync(descriptor);
}

int __wrap_rename(const char* from, const char* to) {
    const std::string name = std::filesystem::path(from).filename().string();
    return FailsToChange("rename " + name) ? -1 : __real_rename(from, to);
}

int __wrap_nanosleep(const struct timespec* time, struct timespec* left) {
    SystemCalls::Instance().rests.push_back(time->tv_nsec);
    return __real_nanosleep(time, left);
}

__attribute__((visibility("default"))) int clock_gettime(clockid_t clock,
                                                         struct timespec* time) noexcept {
    SystemCalls& calls = SystemCalls::Instance();
    if (!calls.now) return static_cast<int>(syscall(SYS_clock_gettime, clock, time));
    calls.now->tv_sec += calls.tick;
    *time = *calls.now;
    return 0;
}

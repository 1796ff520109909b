#include "runtime.h"

#include <dlfcn.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

extern "C" {
void* __real_malloc(std::size_t size);
ssize_t __real_write(int file, const void* bytes, std::size_t size);
int __real_fstat(int file, struct stat* status);
int __real_dladdr(const void* address, Dl_info* info);
void* __real_dlopen(const char* path, int flags);
int __real_gettimeofday(timeval* now, void* zone);
pid_t __real_getpid();
void __real_explicit_bzero(void* bytes, std::size_t size);

void* __wrap_malloc(std::size_t size);
ssize_t __wrap_write(int file, const void* bytes, std::size_t size);
int __wrap_fstat(int file, struct stat* status);
int __wrap_dladdr(const void* address, Dl_info* info);
void* __wrap_dlopen(const char* path, int flags);
int __wrap_gettimeofday(timeval* now, void* zone);
pid_t __wrap_getpid();
void __wrap_explicit_bzero(void* bytes, std::size_t size);
void __wrap___explicit_bzero_chk(void* bytes, std::size_t size, std::size_t room);
[[noreturn]] void __wrap_abort();
}

namespace runtime {

Plan& ThePlan() {
    static Plan plan;
    return plan;
}

}  // namespace runtime

using runtime::ThePlan;

void* __wrap_malloc(std::size_t size) {
    const std::size_t refused = ThePlan().refusedSize;
    const bool fails = refused != 0 && size >= refused && ThePlan().granted-- <= 0;
    return fails ? nullptr : __real_malloc(size);
}

ssize_t __wrap_write(int file, const void* bytes, std::size_t size) {
    std::vector<int>& writes = ThePlan().writes;
    if (writes.empty()) return __real_write(file, bytes, size);
    const int answer = writes.front();
    writes.erase(writes.begin());
    if (answer >= 0) return __real_write(file, bytes, static_cast<std::size_t>(answer));
    errno = -answer;
    return -1;
}

int __wrap_fstat(int file, struct stat* status) {
    return ThePlan().statusFails ? -1 : __real_fstat(file, status);
}

int __wrap_dladdr(const void* address, Dl_info* info) {
    return ThePlan().addressFails ? 0 : __real_dladdr(address, info);
}

void* __wrap_dlopen(const char* path, int flags) {
    if (!ThePlan().holdsLibraries) return __real_dlopen(path, flags);
    ThePlan().opened.push_back(flags);
    return nullptr;
}

int __wrap_gettimeofday(timeval* now, void* zone) {
    if (!ThePlan().now) return __real_gettimeofday(now, zone);
    *now = *ThePlan().now;
    return 0;
}

pid_t __wrap_getpid() {
    return ThePlan().process != 0 ? ThePlan().process : __real_getpid();
}

void __wrap_explicit_bzero(void* bytes, std::size_t size) {
    ThePlan().wiped.emplace_back(static_cast<const char*>(bytes), size);
    __real_explicit_bzero(bytes, size);
}

// The same where the compiler knows how much room there is.
void __wrap___explicit_bzero_chk(void* bytes, std::size_t size, std::size_t) {
    __wrap_explicit_bzero(bytes, size);
}

void __wrap_abort() {
    exit(runtime::kAborted);
}

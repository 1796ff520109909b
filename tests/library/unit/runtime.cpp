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

void* __wrap_malloc(std::size_t size);
ssize_t __wrap_write(int file, const void* bytes, std::size_t size);
int __wrap_fstat(int file, struct stat* status);
int __wrap_dladdr(const void* address, Dl_info* info);
void* __wrap_dlopen(const char* path, int flags);
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

void __wrap_abort() {
    exit(runtime::kAborted);
}

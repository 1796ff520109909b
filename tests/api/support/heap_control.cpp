#include "heap_control.h"

#include <dlfcn.h>
#include <malloc.h>

#include <atomic>
#include <cstdlib>
#include <new>

#include "recording.h"

// The program's own operator new[], new and delete[] take the place of the runtime's in the whole
// process, the library under test included.

extern "C" __attribute__((weak)) std::size_t __sanitizer_get_current_allocated_bytes();
extern "C" int Initialize(void);

namespace {

std::atomic<int> countdown{0};  // 0: nothing fails; n: the nth allocation from now fails
std::atomic<int> failed{0};

// Only what the library itself allocates may fail, not the stand-ins or the test.
bool called_by_library(const void* return_address) {
    Dl_info caller{};
    Dl_info library{};
    // A function's address taken in the program may be the program's own stub.
    static void* const inside = dlsym(RTLD_DEFAULT, "G_LastError");
    return dladdr(return_address, &caller) && dladdr(inside, &library) &&
           caller.dli_fbase == library.dli_fbase;
}

bool must_fail(const void* return_address) {
    if (countdown.load() == 0 || !called_by_library(return_address)) return false;
    if (--countdown != 0) return false;
    ++failed;
    return true;
}

// The runtime's operator, or the sanitizer's, which checks that new[] meets delete[].
template <class Function>
Function next(const char* symbol) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, symbol));
}

}  // namespace

#define HEAP_EXPORT __attribute__((visibility("default"), noinline))

HEAP_EXPORT void* operator new(std::size_t size) {
    static const auto original = next<void* (*)(std::size_t)>("_Znwm");
    if (must_fail(__builtin_return_address(0))) throw std::bad_alloc();
    return original(size);
}

HEAP_EXPORT void* operator new[](std::size_t size) {
    static const auto original = next<void* (*)(std::size_t)>("_Znam");
    if (must_fail(__builtin_return_address(0))) throw std::bad_alloc();
    return original(size);
}

HEAP_EXPORT void operator delete(void* block) noexcept {
    static const auto original = next<void (*)(void*)>("_ZdlPv");
    original(block);
}

HEAP_EXPORT void operator delete(void* block, std::size_t) noexcept {
    operator delete(block);
}

HEAP_EXPORT void operator delete[](void* block) noexcept {
    static const auto original = next<void (*)(void*)>("_ZdaPv");
    recording::released(block);
    original(block);
}

HEAP_EXPORT void operator delete[](void* block, std::size_t) noexcept {
    operator delete[](block);
}

FailingAllocation::FailingAllocation(int nth) {
    failed = 0;
    countdown = nth;
}

FailingAllocation::~FailingAllocation() {
    countdown = 0;
}

bool FailingAllocation::happened() const {
    return failed.load() != 0;
}

std::size_t heap_in_use() {
    if (__sanitizer_get_current_allocated_bytes) return __sanitizer_get_current_allocated_bytes();
    return mallinfo2().uordblks;
}

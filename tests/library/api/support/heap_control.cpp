#include "heap_control.h"

#include <dlfcn.h>
#include <malloc.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <new>

#include "recording.h"

// The program's own operator new[], new and delete[] take the place of the runtime's in the whole
// process, the library under test included.

extern "C" __attribute__((weak)) std::size_t __sanitizer_get_current_allocated_bytes();

namespace {

std::atomic<int> countdown{0};  // 0: nothing fails; n: the nth allocation from now fails
std::atomic<int> failed{0};

// Where the library under test stands in memory. Asked of the library itself: its variables may
// stand in the program, and a client may have functions of the same names.
const void* libraryBase = nullptr;

void FindLibrary() {
    void* const library = dlopen("libkesta_unified_zrkukey.so", RTLD_LAZY | RTLD_NOLOAD);
    Dl_info inside{};
    if (!library || !dladdr(dlsym(library, "Initialize"), &inside)) std::abort();
    libraryBase = inside.dli_fbase;
}

// Only what the library itself allocates may fail, not the stand-ins or the test.
bool CalledByLibrary(const void* returnAddress) {
    Dl_info caller{};
    return dladdr(returnAddress, &caller) && caller.dli_fbase == libraryBase;
}

bool MustFail(const void* returnAddress) {
    if (countdown.load() == 0 || !CalledByLibrary(returnAddress)) return false;
    if (--countdown != 0) return false;
    ++failed;
    return true;
}

// The runtime's operator, or the sanitizer's, which checks that new[] meets delete[].
template <class Function>
Function Next(const char* symbol) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, symbol));
}

}  // namespace

#define HEAP_EXPORT __attribute__((visibility("default"), noinline))

HEAP_EXPORT void* operator new(std::size_t size) {
    static const auto original = Next<void* (*)(std::size_t)>("_Znwm");
    if (MustFail(__builtin_return_address(0))) throw std::bad_alloc();
    return original(size);
}

HEAP_EXPORT void* operator new[](std::size_t size) {
    static const auto original = Next<void* (*)(std::size_t)>("_Znam");
    if (MustFail(__builtin_return_address(0))) throw std::bad_alloc();
    return std::memset(original(size), fresh_byte, size);
}

#ifndef KESTA_SANITIZED
// The library's strings take their memory from malloc. A sanitizer has its own in place of it.
extern "C" void* __libc_malloc(std::size_t size);
extern "C" void* __libc_realloc(void* block, std::size_t size);

extern "C" HEAP_EXPORT void* malloc(std::size_t size) {
    return MustFail(__builtin_return_address(0)) ? nullptr : __libc_malloc(size);
}

extern "C" HEAP_EXPORT void* realloc(void* block, std::size_t size) {
    return MustFail(__builtin_return_address(0)) ? nullptr : __libc_realloc(block, size);
}
#endif

HEAP_EXPORT void operator delete(void* block) noexcept {
    static const auto original = Next<void (*)(void*)>("_ZdlPv");
    original(block);
}

HEAP_EXPORT void operator delete(void* block, std::size_t) noexcept {
    operator delete(block);
}

HEAP_EXPORT void operator delete[](void* block) noexcept {
    static const auto original = Next<void (*)(void*)>("_ZdaPv");
    recording::Released(block);
    original(block);
}

HEAP_EXPORT void operator delete[](void* block, std::size_t) noexcept {
    operator delete[](block);
}

FailingAllocation::FailingAllocation(int nth) {
    if (!libraryBase) FindLibrary();
    failed = 0;
    countdown = nth;
}

FailingAllocation::~FailingAllocation() {
    countdown = 0;
}

bool FailingAllocation::Happened() const {
    return failed.load() != 0;
}

std::size_t HeapInUse() {
    if (__sanitizer_get_current_allocated_bytes) return __sanitizer_get_current_allocated_bytes();
    return mallinfo2().uordblks;
}

#include "kit/memory.h"

#include <openssl/crypto.h>
#include <openssl/err.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <new>

#include "kit/output.h"

namespace kit {
namespace {

std::atomic<bool> ranOut{false};
const char* programName = "";
int endStatus = 1;

[[noreturn]] void Notice() {
    ranOut = true;
    throw std::bad_alloc();
}

void* Noticed(void* block, std::size_t size) {
    if (block == nullptr && size != 0) ranOut = true;
    return block;
}

// What OpenSSL allocates by. It drops its own errors where it tries something else next.
void* Allocate(std::size_t size, const char*, int) {
    return Noticed(std::malloc(size), size);
}

void* Resize(void* block, std::size_t size, const char*, int) {
    return Noticed(std::realloc(block, size), size);
}

void Release(void* block, const char*, int) {
    std::free(block);
}

// Some code of others needs memory to release what it has, and promises to throw nothing.
[[noreturn]] void End() {
    if (!MemoryRanOut()) std::abort();
    TellThatMemoryRanOut();
    std::_Exit(endStatus);
}

}  // namespace

void WatchMemory(const char* program, int status) noexcept {
    programName = program;
    endStatus = status;
    ranOut = false;
    std::set_new_handler(Notice);
    std::set_terminate(End);
    CRYPTO_set_mem_functions(Allocate, Resize, Release);
}

bool MemoryRanOut() noexcept {
    while (const unsigned long error = ERR_get_error()) {
        if (ERR_GET_REASON(error) == ERR_R_MALLOC_FAILURE) ranOut = true;
    }
    return ranOut;
}

void RequireMemory() {
    if (MemoryRanOut()) throw std::bad_alloc();
}

void TellThatMemoryRanOut() noexcept {
    try {
        SayAside(std::string(programName) + ": " + _("out of memory") + "\n");
    } catch (...) {
        std::fprintf(stderr, "%s: out of memory\n", programName);
    }
}

}  // namespace kit

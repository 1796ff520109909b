#include "openssl_memory.h"

#include <openssl/crypto.h>

#include <cstdlib>

OpensslMemory g_memory;

namespace {

void* Allocate(std::size_t size, const char*, int) {
    if (g_memory.failing != 0 && --g_memory.failing == 0) {
        g_memory.failing = g_memory.all ? 1 : 0;
        return nullptr;
    }
    if (size == g_memory.missing && size != 0) return nullptr;
    ++g_memory.blocks;
    return std::malloc(size);
}

void* Reallocate(void* block, std::size_t size, const char*, int) {
    if (block == nullptr) ++g_memory.blocks;
    return std::realloc(block, size);
}

void Free(void* block, const char*, int) {
    if (block != nullptr) --g_memory.blocks;
    std::free(block);
}

// Before OpenSSL allocates anything.
[[maybe_unused]] const bool g_counted = g_memory.counted =
    CRYPTO_set_mem_functions(Allocate, Reallocate, Free) == 1;

}  // namespace

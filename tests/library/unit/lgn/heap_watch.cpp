#include "lgn/heap_watch.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <unordered_map>

extern "C" {
void* __real_malloc(std::size_t bytes);
void __real_free(void* block);
void* __wrap_malloc(std::size_t bytes);
void* __wrap_realloc(void* block, std::size_t bytes);
void __wrap_free(void* block);
}

namespace {

int requestsUntilFailure = 0;

// Blocks and their sizes. Never destroyed: blocks are given back until the very end.
std::unordered_map<const void*, std::size_t>& Blocks() {
    static auto& map = *new std::unordered_map<const void*, std::size_t>;
    return map;
}

bool FailsNow() {
    return requestsUntilFailure > 0 && --requestsUntilFailure == 0;
}

}  // namespace

namespace heap {

long LiveBlocks() {
    return static_cast<long>(Blocks().size());
}

bool IsLive(const void* block) {
    return Blocks().count(block) != 0;
}

void FailRequest(int n) {
    requestsUntilFailure = n;
}

}  // namespace heap

void* __wrap_malloc(std::size_t bytes) {
    if (FailsNow()) return nullptr;
    void* block = __real_malloc(bytes);
    if (block != nullptr) Blocks()[block] = bytes;
    return block;
}

void* __wrap_realloc(void* block, std::size_t bytes) {
    void* const moved = __wrap_malloc(bytes);
    if (moved == nullptr || block == nullptr) return moved;
    const std::size_t size = Blocks().at(block);
    std::memcpy(moved, block, std::min(size, bytes));
    std::memset(block, '#', size);
    __wrap_free(block);
    return moved;
}

void __wrap_free(void* block) {
    Blocks().erase(block);
    __real_free(block);
}

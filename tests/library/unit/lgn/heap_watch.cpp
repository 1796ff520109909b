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

int requests_until_failure = 0;

// Blocks and their sizes. Never destroyed: blocks are given back until the very end.
std::unordered_map<const void*, std::size_t>& blocks() {
    static auto& map = *new std::unordered_map<const void*, std::size_t>;
    return map;
}

bool fails_now() {
    return requests_until_failure > 0 && --requests_until_failure == 0;
}

}  // namespace

namespace heap {

long live_blocks() {
    return static_cast<long>(blocks().size());
}

bool is_live(const void* block) {
    return blocks().count(block) != 0;
}

void fail_request(int n) {
    requests_until_failure = n;
}

}  // namespace heap

void* __wrap_malloc(std::size_t bytes) {
    if (fails_now()) return nullptr;
    void* block = __real_malloc(bytes);
    if (block != nullptr) blocks()[block] = bytes;
    return block;
}

void* __wrap_realloc(void* block, std::size_t bytes) {
    void* const moved = __wrap_malloc(bytes);
    if (moved == nullptr || block == nullptr) return moved;
    const std::size_t size = blocks().at(block);
    std::memcpy(moved, block, std::min(size, bytes));
    std::memset(block, '#', size);
    __wrap_free(block);
    return moved;
}

void __wrap_free(void* block) {
    blocks().erase(block);
    __real_free(block);
}

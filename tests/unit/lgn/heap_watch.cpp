#include "lgn/heap_watch.h"

#include <cstddef>
#include <unordered_set>

extern "C" {
void* __real_malloc(std::size_t bytes);
void* __real_realloc(void* block, std::size_t bytes);
void __real_free(void* block);
void* __wrap_malloc(std::size_t bytes);
void* __wrap_realloc(void* block, std::size_t bytes);
void __wrap_free(void* block);
}

namespace {

int requests_until_failure = 0;

// Never destroyed: blocks are given back until the very end.
std::unordered_set<const void*>& blocks() {
    static auto& set = *new std::unordered_set<const void*>;
    return set;
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
    if (block != nullptr) blocks().insert(block);
    return block;
}

void* __wrap_realloc(void* block, std::size_t bytes) {
    if (fails_now()) return nullptr;
    const void* const old = block;
    blocks().erase(old);
    void* moved = __real_realloc(block, bytes);
    if (moved != nullptr) blocks().insert(moved);
    return moved;
}

void __wrap_free(void* block) {
    blocks().erase(block);
    __real_free(block);
}

#include "lgn/peer.h"

#include <cstdlib>

namespace peer {

char* characters(const void* string) {
    return load<char*>(string, 0);
}

KestaStringHeader header(const void* string) {
    return load<KestaStringHeader>(characters(string), -24);
}

void set_references(const void* string, std::int64_t references) {
    store(characters(string), -8, references);
}

void set_capacity(const void* string, std::int32_t capacity) {
    store(characters(string), -12, capacity);
}

void release(KestaStringHeader* header) {
    if (--header->references < 1) std::free(header);
}

void fill(void* string, const char* text) {
    char* const old = characters(string);
    const auto length = static_cast<int>(std::strlen(text));
    void* const manager = load<void*>(old, -24);
    auto* const block = call<Allocate>(kAllocate, manager, length, 1);
    char* const fresh = reinterpret_cast<char*>(block) + 24;
    std::memcpy(fresh, text, static_cast<std::size_t>(length) + 1);
    store<std::int32_t>(fresh, -16, length);
    store(string, 0, fresh);
    release(reinterpret_cast<KestaStringHeader*>(old - 24));
}

RawManager::RawManager(void* original) : m_original(original) {
    const auto* table = load<const char*>(original, 0);
    std::memcpy(m_table, table - 16, sizeof m_table);
    void** const slots = m_table + 2;
    slots[kAllocate] = reinterpret_cast<void*>(&RawManager::allocate);
    slots[kFree] = reinterpret_cast<void*>(&RawManager::free);
    slots[kReallocate] = reinterpret_cast<void*>(&RawManager::reallocate);
    slots[kClone] = reinterpret_cast<void*>(&RawManager::clone_of);

    store<void*>(m_object, 0, slots);
    store<void*>(m_object, 8, load<void*>(original, 8));
    store<KestaStringHeader>(m_object, 16, {m_object, 0, 0, 2});
    store<RawManager*>(m_object, 48, this);
}

namespace {

// The original's operation on another manager's bytes: there is no other state than these.
template <typename Operation, typename... Arguments>
PEER_CALL auto original_operation(void* original, int slot, void* self, Arguments... arguments) {
    auto* operation = load<Operation*>(load<const char*>(original, 0), slot * 8);
    return operation(self, arguments...);
}

}  // namespace

KestaStringHeader* RawManager::allocate(void* self, int chars, int charSize) {
    RawManager& manager = of(self);
    manager.allocated.push_back(chars);
    if (manager.allocation == Fault::kNoMemory) return nullptr;
    auto* block =
        original_operation<Allocate>(manager.m_original, kAllocate, self, chars, charSize);
    if (manager.allocation == Fault::kTooShort) block->allocLength = chars - 1;
    return block;
}

KestaStringHeader* RawManager::reallocate(void* self, KestaStringHeader* header, int chars,
                                          int size) {
    RawManager& manager = of(self);
    manager.reallocated.push_back(chars);
    if (manager.reallocation == Fault::kNoMemory) return nullptr;
    auto* block =
        original_operation<Reallocate>(manager.m_original, kReallocate, self, header, chars, size);
    if (manager.reallocation == Fault::kTooShort) block->allocLength = 1;
    return block;
}

void RawManager::free(void* self, KestaStringHeader* header) {
    RawManager& manager = of(self);
    ++manager.freed;
    original_operation<Free>(manager.m_original, kFree, self, header);
}

void* RawManager::clone_of(void* self) {
    void* const other = of(self).clone;
    return other == nullptr ? self : other;
}

}  // namespace peer

#include "lgn/peer.h"

#include <cstdlib>

namespace peer {

char* Characters(const void* string) {
    return Load<char*>(string, 0);
}

KestaStringHeader Header(const void* string) {
    return Load<KestaStringHeader>(Characters(string), -24);
}

void SetReferences(const void* string, std::int64_t references) {
    Store(Characters(string), -8, references);
}

void SetCapacity(const void* string, std::int32_t capacity) {
    Store(Characters(string), -12, capacity);
}

void Release(KestaStringHeader* header) {
    if (--header->references < 1) std::free(header);
}

void Fill(void* string, const char* text) {
    char* const old = Characters(string);
    const auto length = static_cast<int>(std::strlen(text));
    void* const manager = Load<void*>(old, -24);
    auto* const block = Call<Allocate>(kAllocate, manager, length, 1);
    char* const fresh = reinterpret_cast<char*>(block) + 24;
    std::memcpy(fresh, text, static_cast<std::size_t>(length) + 1);
    Store<std::int32_t>(fresh, -16, length);
    Store(string, 0, fresh);
    Release(reinterpret_cast<KestaStringHeader*>(old - 24));
}

RawManager::RawManager(void* original) : original_(original) {
    const auto* table = Load<const char*>(original, 0);
    std::memcpy(table_, table - 16, sizeof table_);
    void** const slots = table_ + 2;
    slots[kAllocate] = reinterpret_cast<void*>(&RawManager::Allocate);
    slots[kFree] = reinterpret_cast<void*>(&RawManager::Free);
    slots[kReallocate] = reinterpret_cast<void*>(&RawManager::Reallocate);
    slots[kClone] = reinterpret_cast<void*>(&RawManager::CloneOf);

    Store<void*>(object_, 0, slots);
    Store<void*>(object_, 8, Load<void*>(original, 8));
    Store<KestaStringHeader>(object_, 16, {object_, 0, 0, 2});
    Store<RawManager*>(object_, 48, this);
}

namespace {

// The original's operation on another manager's bytes: there is no other state than these.
template <typename Operation, typename... Arguments>
PEER_CALL auto OriginalOperation(void* original, int slot, void* self, Arguments... arguments) {
    auto* operation = Load<Operation*>(Load<const char*>(original, 0), slot * 8);
    return operation(self, arguments...);
}

}  // namespace

KestaStringHeader* RawManager::Allocate(void* self, int chars, int charSize) {
    RawManager& manager = Of(self);
    manager.allocated.push_back(chars);
    if (manager.allocation == Fault::kNoMemory) return nullptr;
    auto* block =
        OriginalOperation<peer::Allocate>(manager.original_, kAllocate, self, chars, charSize);
    std::memset(block + 1, kUnwritten, static_cast<std::size_t>(block->allocLength) + 1);
    if (manager.allocation == Fault::kTooShort) block->allocLength = chars - 1;
    return block;
}

KestaStringHeader* RawManager::Reallocate(void* self, KestaStringHeader* header, int chars,
                                          int size) {
    RawManager& manager = Of(self);
    manager.reallocated.push_back(chars);
    if (manager.reallocation == Fault::kNoMemory) return nullptr;
    auto* block = OriginalOperation<peer::Reallocate>(manager.original_, kReallocate, self, header,
                                                      chars, size);
    if (manager.reallocation == Fault::kTooShort) block->allocLength = 1;
    return block;
}

void RawManager::Free(void* self, KestaStringHeader* header) {
    RawManager& manager = Of(self);
    ++manager.freed;
    OriginalOperation<peer::Free>(manager.original_, kFree, self, header);
}

void* RawManager::CloneOf(void* self) {
    void* const other = Of(self).clone;
    return other == nullptr ? self : other;
}

}  // namespace peer

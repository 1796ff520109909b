// A string and its managers as a component compiled elsewhere sees them: bytes at offsets, words of
// a table. Nothing here uses the classes of the string library.
#ifndef KESTA_UNIT_LGN_PEER_H
#define KESTA_UNIT_LGN_PEER_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "kesta/token_library.h"

// clang's check of calls through pointers knows the callee's C++ type; a peer does not.
#if defined(__clang__)
#define PEER_CALL __attribute__((no_sanitize("function")))
#else
#define PEER_CALL
#endif

namespace peer {

template <typename T>
T Load(const void* base, std::ptrdiff_t offset) {
    T value;
    std::memcpy(&value, static_cast<const char*>(base) + offset, sizeof value);
    return value;
}

template <typename T>
void Store(void* base, std::ptrdiff_t offset, T value) {
    std::memcpy(static_cast<char*>(base) + offset, &value, sizeof value);
}

// Words of the managers' tables.
enum BufferSlot {
    kDestroy,
    kDestroyAndDelete,
    kAllocate,
    kFree,
    kReallocate,
    kGetNilBuffer,
    kClone
};
enum MemorySlot { kMemoryAllocate = 2, kMemoryFree, kMemoryReallocate, kMemoryGetSize };

using Destroy = void(void* self);
using Allocate = KestaStringHeader*(void* self, int chars, int charSize);
using Free = void(void* self, KestaStringHeader* header);
using Reallocate = KestaStringHeader*(void* self, KestaStringHeader* header, int chars, int size);
using GetNilBuffer = KestaStringHeader*(void* self);
using Clone = void*(void* self);
using MemoryAllocate = void*(void* self, std::size_t bytes);
using MemoryFree = void(void* self, void* block);
using MemoryReallocate = void*(void* self, void* block, std::size_t bytes);
using MemoryGetSize = std::size_t(void* self, void* block);

// Calls the operation in a slot of the table that an object's first word names.
template <typename Operation, typename... Arguments>
PEER_CALL auto Call(int slot, void* object, Arguments... arguments) {
    const auto* table = Load<const char*>(object, 0);
    auto* operation = Load<Operation*>(table, slot * 8);
    return operation(object, arguments...);
}

// What the characters of a new buffer of a RawManager are.
constexpr char kUnwritten = '#';

// The parts of a string, given the address of its object.
char* Characters(const void* string);
KestaStringHeader Header(const void* string);
void SetReferences(const void* string, std::int64_t references);
void SetCapacity(const void* string, std::int32_t capacity);

// One string fewer uses the header's buffer.
void Release(KestaStringHeader* header);
// Replaces a string's text as a token library does.
void Fill(void* string, const char* text);

// A buffer manager that is a block of bytes laid out by hand: the address of a table, the memory
// manager, the header and the four zero bytes of the empty text. Its table holds the operations of
// the library's own manager, each behind a counter and a fault that can be set.
class RawManager {
public:
    enum class Fault { kNone, kNoMemory, kTooShort };

    // Takes the operations from an existing manager.
    explicit RawManager(void* original);
    RawManager(const RawManager&) = delete;
    RawManager& operator=(const RawManager&) = delete;

    void* address() { return object_; }
    template <typename Manager>
    Manager* As() {
        return reinterpret_cast<Manager*>(object_);
    }
    std::int64_t NilReferences() const { return Load<std::int64_t>(object_, 32); }
    char* NilCharacters() { return reinterpret_cast<char*>(object_) + 40; }

    Fault allocation = Fault::kNone;
    Fault reallocation = Fault::kNone;
    void* clone = nullptr;  // what Clone returns; null: this manager

    std::vector<int> allocated;    // characters asked for by each allocation
    std::vector<int> reallocated;  // the same by each reallocation
    int freed = 0;

private:
    static RawManager& Of(void* self) { return *Load<RawManager*>(self, 48); }
    static KestaStringHeader* Allocate(void* self, int chars, int charSize);
    static KestaStringHeader* Reallocate(void* self, KestaStringHeader* header, int chars,
                                         int size);
    static void Free(void* self, KestaStringHeader* header);
    static void* CloneOf(void* self);

    void* original_;
    alignas(8) unsigned char object_[56] = {};
    // In front of a table stand two words that belong to the compiler.
    void* table_[2 + 7] = {};
};

}  // namespace peer

#endif

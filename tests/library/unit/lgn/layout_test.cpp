// Strings and managers seen through raw memory, as a component compiled elsewhere meets them.
#include <type_traits>

#include "lgn/lgn_test.h"

namespace {

using Layout = LgnTest;
using MemorySlots = LgnTest;
using BufferSlots = LgnTest;
using PeerFill = LgnTest;

void* LibraryMemory() {
    return _lgnMemoryManager;
}
void* LibraryManager() {
    return _lgnBufferManager;
}
char* CharactersOf(KestaStringHeader* block) {
    return reinterpret_cast<char*>(block) + 24;
}

TEST_F(Layout, a_string_object_is_one_pointer_to_its_first_character) {
    const LgnString string("abc");
    EXPECT_EQ(sizeof(LgnString), 8u);
    EXPECT_EQ(sizeof(Buffer), 8u);
    EXPECT_STREQ(peer::Load<const char*>(&string, 0), "abc");
}

TEST_F(Layout, the_header_stands_in_the_24_bytes_before_the_characters) {
    const LgnString string("abc");
    const LgnString sharer(string);
    const char* const text = peer::Load<const char*>(&string, 0);
    EXPECT_EQ(peer::Load<void*>(text, -24), LibraryManager());
    EXPECT_EQ(peer::Load<std::int32_t>(text, -16), 3);
    EXPECT_EQ(peer::Load<std::int32_t>(text, -12), 7);
    EXPECT_EQ(peer::Load<std::int64_t>(text, -8), 2);
    EXPECT_TRUE(heap::IsLive(text - 24)) << "the header is the beginning of the block";
}

TEST_F(Layout, the_empty_string_points_behind_the_managers_own_header) {
    const std::int64_t before = NilReferences();
    const LgnString string;
    EXPECT_EQ(AddressOf(string), static_cast<char*>(LibraryManager()) + 40);
    EXPECT_EQ(NilReferences(), before + 1);
    EXPECT_EQ(LengthOf(string), 0);
    EXPECT_EQ(CapacityOf(string), 0);
    EXPECT_EQ(ManagerOf(string), LibraryManager());
    EXPECT_EQ(peer::Load<std::uint32_t>(AddressOf(string), 0), 0u) << "four zero bytes";
}

TEST_F(Layout, a_new_buffer_manager_holds_memory_manager_and_empty_text_with_two_users) {
    LGN::CCRTHeap memory;
    LGN::CLgnBufferMgr manager(&memory);
    EXPECT_EQ(peer::Load<void*>(&manager, 8), static_cast<void*>(&memory));
    EXPECT_EQ(peer::Load<void*>(&manager, 16), static_cast<void*>(&manager));
    EXPECT_EQ(peer::Load<std::int32_t>(&manager, 24), 0);
    EXPECT_EQ(peer::Load<std::int32_t>(&manager, 28), 0);
    EXPECT_EQ(peer::Load<std::int64_t>(&manager, 32), 2);
    EXPECT_EQ(peer::Load<std::uint32_t>(&manager, 40), 0u);
    EXPECT_EQ(sizeof manager, 48u);
}

TEST_F(Layout, the_librarys_buffer_manager_uses_the_librarys_heap) {
    EXPECT_EQ(peer::Load<void*>(LibraryManager(), 8), LibraryMemory());
}

TEST_F(Layout, the_heap_holds_the_last_size_behind_its_table) {
    LGN::CCRTHeap memory;
    EXPECT_EQ(sizeof memory, 16u);
    EXPECT_EQ(peer::Load<std::size_t>(&memory, 8), 0u);
    void* block = memory.Allocate(77);
    EXPECT_EQ(peer::Load<std::size_t>(&memory, 8), 77u);
    memory.Free(block);
}

TEST_F(Layout, an_exception_is_its_code_alone) {
    EXPECT_EQ(sizeof(LGN::CLgnException), 4u);
    EXPECT_FALSE(std::is_polymorphic<LGN::CLgnException>::value);
    const LGN::CLgnException exception(kInvalidCode);
    EXPECT_EQ(peer::Load<std::uint32_t>(&exception, 0), 0x80070057u);
}

TEST_F(Layout, the_trace_category_is_the_one_that_peers_look_for) {
    EXPECT_STREQ(lgnTraceGeneral.name, "TraceGeneral");
    EXPECT_EQ(lgnTraceGeneral.category, 17);
    EXPECT_EQ(lgnTraceGeneral.level, 4);
}

TEST_F(Layout, the_hooks_around_the_librarys_life_leave_everything_as_it_is) {
    const std::string before(static_cast<const char*>(LibraryManager()), 48);
    const std::string heapBefore(static_cast<const char*>(LibraryMemory()), 16);
    LGN::DoInitialization();
    LGN::DoCleanup();
    EXPECT_EQ(std::string(static_cast<const char*>(LibraryManager()), 48), before);
    EXPECT_EQ(std::string(static_cast<const char*>(LibraryMemory()), 16), heapBefore);
}

TEST_F(MemorySlots, the_first_slot_destroys_in_place) {
    alignas(8) unsigned char place[sizeof(LGN::CCRTHeap)];
    void* memory = new (place) LGN::CCRTHeap;
    peer::Call<peer::Destroy>(peer::kDestroy, memory);
}

TEST_F(MemorySlots, the_second_slot_destroys_and_deletes) {
    void* memory = new LGN::CCRTHeap;
    peer::Call<peer::Destroy>(peer::kDestroyAndDelete, memory);
}

TEST_F(MemorySlots, the_third_and_fourth_take_and_give_back_a_block_of_the_system_heap) {
    void* block =
        peer::Call<peer::MemoryAllocate>(peer::kMemoryAllocate, LibraryMemory(), std::size_t{100});
    EXPECT_TRUE(heap::IsLive(block));
    peer::Call<peer::MemoryFree>(peer::kMemoryFree, LibraryMemory(), block);
    EXPECT_FALSE(heap::IsLive(block));
}

TEST_F(MemorySlots, the_fifth_resizes_a_block_and_keeps_its_bytes) {
    void* block =
        peer::Call<peer::MemoryAllocate>(peer::kMemoryAllocate, LibraryMemory(), std::size_t{8});
    std::memcpy(block, "1234567", 8);
    block = peer::Call<peer::MemoryReallocate>(peer::kMemoryReallocate, LibraryMemory(), block,
                                               std::size_t{100000});
    EXPECT_TRUE(heap::IsLive(block));
    EXPECT_STREQ(static_cast<char*>(block), "1234567");
    peer::Call<peer::MemoryFree>(peer::kMemoryFree, LibraryMemory(), block);
}

TEST_F(MemorySlots, the_sixth_answers_the_size_last_asked_for_whatever_block_is_named) {
    const auto size = [](void* block) {
        return peer::Call<peer::MemoryGetSize>(peer::kMemoryGetSize, LibraryMemory(), block);
    };
    auto& memory = *_lgnMemoryManager;
    void* first = memory.Allocate(10);
    void* second = memory.Allocate(20);
    EXPECT_EQ(size(first), 20u);
    EXPECT_EQ(size(nullptr), 20u);
    first = memory.Reallocate(first, 30);
    EXPECT_EQ(size(second), 30u);
    memory.Free(first);
    EXPECT_EQ(size(second), 0u);
    memory.Free(second);
}

TEST_F(BufferSlots, the_first_and_second_destroy) {
    alignas(8) unsigned char place[sizeof(LGN::CLgnBufferMgr)];
    void* inPlace = new (place) LGN::CLgnBufferMgr(_lgnMemoryManager);
    peer::Call<peer::Destroy>(peer::kDestroy, inPlace);
    void* manager = new LGN::CLgnBufferMgr(_lgnMemoryManager);
    peer::Call<peer::Destroy>(peer::kDestroyAndDelete, manager);
}

TEST_F(BufferSlots, the_third_counts_the_header_alone_for_characters_of_no_size) {
    auto* block = peer::Call<peer::Allocate>(peer::kAllocate, LibraryManager(), 10, 0);
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(block->allocLength, 15);
    EXPECT_EQ(block->references, 1);
    EXPECT_EQ(_lgnMemoryManager->GetSize(nullptr), 24u);
    peer::Release(block);
}

TEST_F(BufferSlots, the_third_makes_a_buffer_with_a_filled_header) {
    auto* block = peer::Call<peer::Allocate>(peer::kAllocate, LibraryManager(), 5, 1);
    EXPECT_EQ(block->manager, LibraryManager());
    EXPECT_EQ(block->dataLength, 0);
    EXPECT_EQ(block->allocLength, 7);
    EXPECT_EQ(block->references, 1);
    EXPECT_EQ(_lgnMemoryManager->GetSize(nullptr), 8u + 24u);
    peer::Release(block);
}

TEST_F(BufferSlots, the_third_multiplies_by_the_character_size) {
    auto* block = peer::Call<peer::Allocate>(peer::kAllocate, LibraryManager(), 9, 4);
    EXPECT_EQ(block->allocLength, 15);
    EXPECT_EQ(_lgnMemoryManager->GetSize(nullptr), 4u * 16u + 24u);
    peer::Release(block);
}

TEST_F(BufferSlots, the_third_hands_on_that_there_is_no_memory) {
    heap::FailRequest(1);
    EXPECT_EQ(peer::Call<peer::Allocate>(peer::kAllocate, LibraryManager(), 5, 1), nullptr);
}

TEST_F(BufferSlots, the_fourth_hands_the_block_to_the_memory_manager) {
    auto* block = peer::Call<peer::Allocate>(peer::kAllocate, LibraryManager(), 5, 1);
    peer::Call<peer::Free>(peer::kFree, LibraryManager(), block);
    EXPECT_FALSE(heap::IsLive(block));
    EXPECT_EQ(_lgnMemoryManager->GetSize(nullptr), 0u);
}

TEST_F(BufferSlots, the_fifth_changes_the_capacity_alone) {
    auto* block = peer::Call<peer::Allocate>(peer::kAllocate, LibraryManager(), 5, 1);
    std::memcpy(CharactersOf(block), "abcd", 5);
    block->dataLength = 4;
    block->references = 3;
    block = peer::Call<peer::Reallocate>(peer::kReallocate, LibraryManager(), block, 1000, 1);
    EXPECT_EQ(block->manager, LibraryManager());
    EXPECT_EQ(block->dataLength, 4);
    EXPECT_EQ(block->allocLength, 1007);
    EXPECT_EQ(block->references, 3);
    EXPECT_STREQ(CharactersOf(block), "abcd");
    EXPECT_EQ(_lgnMemoryManager->GetSize(nullptr), 1008u + 24u);
    block->references = 1;
    peer::Release(block);
}

TEST_F(BufferSlots, the_fifth_leaves_the_block_when_there_is_no_memory) {
    auto* block = peer::Call<peer::Allocate>(peer::kAllocate, LibraryManager(), 5, 1);
    heap::FailRequest(1);
    auto* moved = peer::Call<peer::Reallocate>(peer::kReallocate, LibraryManager(), block, 99, 1);
    EXPECT_EQ(moved, nullptr);
    EXPECT_EQ(block->allocLength, 7);
    peer::Release(block);
}

TEST_F(BufferSlots, the_sixth_hands_out_the_empty_text_and_counts_its_user) {
    const std::int64_t before = NilReferences();
    auto* nil = peer::Call<peer::GetNilBuffer>(peer::kGetNilBuffer, LibraryManager());
    EXPECT_EQ(static_cast<void*>(nil), static_cast<char*>(LibraryManager()) + 16);
    EXPECT_EQ(nil->references, before + 1);
    peer::Release(nil);
}

TEST_F(BufferSlots, the_seventh_answers_the_same_manager) {
    EXPECT_EQ(peer::Call<peer::Clone>(peer::kClone, LibraryManager()), LibraryManager());
}

TEST_F(PeerFill, the_empty_string_takes_the_peers_buffer) {
    LgnString string;
    peer::Fill(&string, "a certificate");
    EXPECT_EQ(string.GetLength(), 13);
    EXPECT_STREQ(string.GetString(), "a certificate");
}

TEST_F(PeerFill, the_buffer_that_the_peer_put_away_is_gone) {
    LgnString string("the text before");
    const char* const old = AddressOf(string);
    peer::Fill(&string, "after");
    EXPECT_FALSE(heap::IsLive(old - 24));
    EXPECT_STREQ(string.GetString(), "after");
}

TEST_F(PeerFill, a_string_that_shared_the_old_text_keeps_it) {
    LgnString string("shared");
    const LgnString sharer(string);
    peer::Fill(&string, "after");
    EXPECT_STREQ(sharer.GetString(), "shared");
    EXPECT_EQ(ReferencesOf(sharer), 1);
}

TEST_F(PeerFill, the_library_goes_on_with_the_peers_buffer) {
    LgnString string;
    peer::Fill(&string, "a,b,c");
    EXPECT_EQ(string.Replace(",", "--"), 2);
    EXPECT_EQ(TextOf(string), "a--b--c");
}

TEST_F(PeerFill, a_buffer_with_a_users_mark_of_the_peer_outlives_the_string) {
    KestaStringHeader* kept = nullptr;
    {
        const LgnString string("kept by the peer");
        kept = reinterpret_cast<KestaStringHeader*>(peer::Characters(&string) - 24);
        ++kept->references;
    }
    EXPECT_TRUE(heap::IsLive(kept));
    EXPECT_EQ(kept->references, 1);
    EXPECT_STREQ(CharactersOf(kept), "kept by the peer");
    peer::Release(kept);
    EXPECT_FALSE(heap::IsLive(kept));
}

}  // namespace

// Strings and managers seen through raw memory, as a component compiled elsewhere meets them.
#include <type_traits>

#include "lgn/lgn_test.h"

namespace {

using Layout = LgnTest;
using MemorySlots = LgnTest;
using BufferSlots = LgnTest;
using PeerFill = LgnTest;

void* library_memory() {
    return _lgnMemoryManager;
}
void* library_manager() {
    return _lgnBufferManager;
}
char* characters_of(KestaStringHeader* block) {
    return reinterpret_cast<char*>(block) + 24;
}

TEST_F(Layout, a_string_object_is_one_pointer_to_its_first_character) {
    const LgnString string("abc");
    EXPECT_EQ(sizeof(LgnString), 8u);
    EXPECT_EQ(sizeof(Buffer), 8u);
    EXPECT_STREQ(peer::load<const char*>(&string, 0), "abc");
}

TEST_F(Layout, the_header_stands_in_the_24_bytes_before_the_characters) {
    const LgnString string("abc");
    const LgnString sharer(string);
    const char* const text = peer::load<const char*>(&string, 0);
    EXPECT_EQ(peer::load<void*>(text, -24), library_manager());
    EXPECT_EQ(peer::load<std::int32_t>(text, -16), 3);
    EXPECT_EQ(peer::load<std::int32_t>(text, -12), 7);
    EXPECT_EQ(peer::load<std::int64_t>(text, -8), 2);
    EXPECT_TRUE(heap::is_live(text - 24)) << "the header is the beginning of the block";
}

TEST_F(Layout, the_empty_string_points_behind_the_managers_own_header) {
    const std::int64_t before = nil_references();
    const LgnString string;
    EXPECT_EQ(address_of(string), static_cast<char*>(library_manager()) + 40);
    EXPECT_EQ(nil_references(), before + 1);
    EXPECT_EQ(length_of(string), 0);
    EXPECT_EQ(capacity_of(string), 0);
    EXPECT_EQ(manager_of(string), library_manager());
    EXPECT_EQ(peer::load<std::uint32_t>(address_of(string), 0), 0u) << "four zero bytes";
}

TEST_F(Layout, a_new_buffer_manager_holds_memory_manager_and_empty_text_with_two_users) {
    LGN::CCRTHeap memory;
    LGN::CLgnBufferMgr manager(&memory);
    EXPECT_EQ(peer::load<void*>(&manager, 8), static_cast<void*>(&memory));
    EXPECT_EQ(peer::load<void*>(&manager, 16), static_cast<void*>(&manager));
    EXPECT_EQ(peer::load<std::int32_t>(&manager, 24), 0);
    EXPECT_EQ(peer::load<std::int32_t>(&manager, 28), 0);
    EXPECT_EQ(peer::load<std::int64_t>(&manager, 32), 2);
    EXPECT_EQ(peer::load<std::uint32_t>(&manager, 40), 0u);
    EXPECT_EQ(sizeof manager, 48u);
}

TEST_F(Layout, the_librarys_buffer_manager_uses_the_librarys_heap) {
    EXPECT_EQ(peer::load<void*>(library_manager(), 8), library_memory());
}

TEST_F(Layout, the_heap_holds_the_last_size_behind_its_table) {
    LGN::CCRTHeap memory;
    EXPECT_EQ(sizeof memory, 16u);
    EXPECT_EQ(peer::load<std::size_t>(&memory, 8), 0u);
    void* block = memory.Allocate(77);
    EXPECT_EQ(peer::load<std::size_t>(&memory, 8), 77u);
    memory.Free(block);
}

TEST_F(Layout, an_exception_is_its_code_alone) {
    EXPECT_EQ(sizeof(LGN::CLgnException), 4u);
    EXPECT_FALSE(std::is_polymorphic<LGN::CLgnException>::value);
    const LGN::CLgnException exception(kInvalidCode);
    EXPECT_EQ(peer::load<std::uint32_t>(&exception, 0), 0x80070057u);
}

TEST_F(Layout, the_trace_category_is_the_one_that_peers_look_for) {
    EXPECT_STREQ(lgnTraceGeneral.name, "TraceGeneral");
    EXPECT_EQ(lgnTraceGeneral.category, 17);
    EXPECT_EQ(lgnTraceGeneral.level, 4);
}

TEST_F(Layout, the_hooks_around_the_librarys_life_leave_everything_as_it_is) {
    const std::string before(static_cast<const char*>(library_manager()), 48);
    const std::string heap_before(static_cast<const char*>(library_memory()), 16);
    LGN::DoInitialization();
    LGN::DoCleanup();
    EXPECT_EQ(std::string(static_cast<const char*>(library_manager()), 48), before);
    EXPECT_EQ(std::string(static_cast<const char*>(library_memory()), 16), heap_before);
}

TEST_F(MemorySlots, the_first_slot_destroys_in_place) {
    alignas(8) unsigned char place[sizeof(LGN::CCRTHeap)];
    void* memory = new (place) LGN::CCRTHeap;
    peer::call<peer::Destroy>(peer::kDestroy, memory);
}

TEST_F(MemorySlots, the_second_slot_destroys_and_deletes) {
    void* memory = new LGN::CCRTHeap;
    peer::call<peer::Destroy>(peer::kDestroyAndDelete, memory);
}

TEST_F(MemorySlots, the_third_and_fourth_take_and_give_back_a_block_of_the_system_heap) {
    void* block =
        peer::call<peer::MemoryAllocate>(peer::kMemoryAllocate, library_memory(), std::size_t{100});
    EXPECT_TRUE(heap::is_live(block));
    peer::call<peer::MemoryFree>(peer::kMemoryFree, library_memory(), block);
    EXPECT_FALSE(heap::is_live(block));
}

TEST_F(MemorySlots, the_fifth_resizes_a_block_and_keeps_its_bytes) {
    void* block =
        peer::call<peer::MemoryAllocate>(peer::kMemoryAllocate, library_memory(), std::size_t{8});
    std::memcpy(block, "1234567", 8);
    block = peer::call<peer::MemoryReallocate>(peer::kMemoryReallocate, library_memory(), block,
                                               std::size_t{100000});
    EXPECT_TRUE(heap::is_live(block));
    EXPECT_STREQ(static_cast<char*>(block), "1234567");
    peer::call<peer::MemoryFree>(peer::kMemoryFree, library_memory(), block);
}

TEST_F(MemorySlots, the_sixth_answers_the_size_last_asked_for_whatever_block_is_named) {
    const auto size = [](void* block) {
        return peer::call<peer::MemoryGetSize>(peer::kMemoryGetSize, library_memory(), block);
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
    void* in_place = new (place) LGN::CLgnBufferMgr(_lgnMemoryManager);
    peer::call<peer::Destroy>(peer::kDestroy, in_place);
    void* manager = new LGN::CLgnBufferMgr(_lgnMemoryManager);
    peer::call<peer::Destroy>(peer::kDestroyAndDelete, manager);
}

TEST_F(BufferSlots, the_third_counts_the_header_alone_for_characters_of_no_size) {
    auto* block = peer::call<peer::Allocate>(peer::kAllocate, library_manager(), 10, 0);
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(block->allocLength, 15);
    EXPECT_EQ(block->references, 1);
    EXPECT_EQ(_lgnMemoryManager->GetSize(nullptr), 24u);
    peer::release(block);
}

TEST_F(BufferSlots, the_third_makes_a_buffer_with_a_filled_header) {
    auto* block = peer::call<peer::Allocate>(peer::kAllocate, library_manager(), 5, 1);
    EXPECT_EQ(block->manager, library_manager());
    EXPECT_EQ(block->dataLength, 0);
    EXPECT_EQ(block->allocLength, 7);
    EXPECT_EQ(block->references, 1);
    EXPECT_EQ(_lgnMemoryManager->GetSize(nullptr), 8u + 24u);
    peer::release(block);
}

TEST_F(BufferSlots, the_third_multiplies_by_the_character_size) {
    auto* block = peer::call<peer::Allocate>(peer::kAllocate, library_manager(), 9, 4);
    EXPECT_EQ(block->allocLength, 15);
    EXPECT_EQ(_lgnMemoryManager->GetSize(nullptr), 4u * 16u + 24u);
    peer::release(block);
}

TEST_F(BufferSlots, the_third_hands_on_that_there_is_no_memory) {
    heap::fail_request(1);
    EXPECT_EQ(peer::call<peer::Allocate>(peer::kAllocate, library_manager(), 5, 1), nullptr);
}

TEST_F(BufferSlots, the_fourth_hands_the_block_to_the_memory_manager) {
    auto* block = peer::call<peer::Allocate>(peer::kAllocate, library_manager(), 5, 1);
    peer::call<peer::Free>(peer::kFree, library_manager(), block);
    EXPECT_FALSE(heap::is_live(block));
    EXPECT_EQ(_lgnMemoryManager->GetSize(nullptr), 0u);
}

TEST_F(BufferSlots, the_fifth_changes_the_capacity_alone) {
    auto* block = peer::call<peer::Allocate>(peer::kAllocate, library_manager(), 5, 1);
    std::memcpy(characters_of(block), "abcd", 5);
    block->dataLength = 4;
    block->references = 3;
    block = peer::call<peer::Reallocate>(peer::kReallocate, library_manager(), block, 1000, 1);
    EXPECT_EQ(block->manager, library_manager());
    EXPECT_EQ(block->dataLength, 4);
    EXPECT_EQ(block->allocLength, 1007);
    EXPECT_EQ(block->references, 3);
    EXPECT_STREQ(characters_of(block), "abcd");
    EXPECT_EQ(_lgnMemoryManager->GetSize(nullptr), 1008u + 24u);
    block->references = 1;
    peer::release(block);
}

TEST_F(BufferSlots, the_fifth_leaves_the_block_when_there_is_no_memory) {
    auto* block = peer::call<peer::Allocate>(peer::kAllocate, library_manager(), 5, 1);
    heap::fail_request(1);
    auto* moved = peer::call<peer::Reallocate>(peer::kReallocate, library_manager(), block, 99, 1);
    EXPECT_EQ(moved, nullptr);
    EXPECT_EQ(block->allocLength, 7);
    peer::release(block);
}

TEST_F(BufferSlots, the_sixth_hands_out_the_empty_text_and_counts_its_user) {
    const std::int64_t before = nil_references();
    auto* nil = peer::call<peer::GetNilBuffer>(peer::kGetNilBuffer, library_manager());
    EXPECT_EQ(static_cast<void*>(nil), static_cast<char*>(library_manager()) + 16);
    EXPECT_EQ(nil->references, before + 1);
    peer::release(nil);
}

TEST_F(BufferSlots, the_seventh_answers_the_same_manager) {
    EXPECT_EQ(peer::call<peer::Clone>(peer::kClone, library_manager()), library_manager());
}

TEST_F(PeerFill, the_empty_string_takes_the_peers_buffer) {
    LgnString string;
    peer::fill(&string, "a certificate");
    EXPECT_EQ(string.GetLength(), 13);
    EXPECT_STREQ(string.GetString(), "a certificate");
}

TEST_F(PeerFill, the_buffer_that_the_peer_put_away_is_gone) {
    LgnString string("the text before");
    const char* const old = address_of(string);
    peer::fill(&string, "after");
    EXPECT_FALSE(heap::is_live(old - 24));
    EXPECT_STREQ(string.GetString(), "after");
}

TEST_F(PeerFill, a_string_that_shared_the_old_text_keeps_it) {
    LgnString string("shared");
    const LgnString sharer(string);
    peer::fill(&string, "after");
    EXPECT_STREQ(sharer.GetString(), "shared");
    EXPECT_EQ(references_of(sharer), 1);
}

TEST_F(PeerFill, the_library_goes_on_with_the_peers_buffer) {
    LgnString string;
    peer::fill(&string, "a,b,c");
    EXPECT_EQ(string.Replace(",", "--"), 2);
    EXPECT_EQ(text_of(string), "a--b--c");
}

TEST_F(PeerFill, a_buffer_with_a_users_mark_of_the_peer_outlives_the_string) {
    KestaStringHeader* kept = nullptr;
    {
        const LgnString string("kept by the peer");
        kept = reinterpret_cast<KestaStringHeader*>(peer::characters(&string) - 24);
        ++kept->references;
    }
    EXPECT_TRUE(heap::is_live(kept));
    EXPECT_EQ(kept->references, 1);
    EXPECT_STREQ(characters_of(kept), "kept by the peer");
    peer::release(kept);
    EXPECT_FALSE(heap::is_live(kept));
}

}  // namespace

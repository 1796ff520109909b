// The buffer class by itself: construction, room, length, index.
#include "lgn/lgn_test.h"

namespace {

using Construction = FaultyManagerTest;
using GetBuffer = FaultyManagerTest;
using SetLength = LgnTest;
using Fork = FaultyManagerTest;
using GetAt = LgnTest;

TEST_F(Construction, copies_the_characters_whatever_they_are) {
    const Buffer buffer("a\0b\xff", 4, Mgr());
    EXPECT_EQ(TextOf(buffer), std::string("a\0b\xff", 4));
    EXPECT_EQ(ManagerOf(buffer), raw.address());
    EXPECT_TRUE(IsTerminated(buffer));
}

TEST_F(Construction, of_no_characters_makes_a_buffer_of_its_own) {
    const Buffer buffer(nullptr, 0, Mgr());
    EXPECT_EQ(raw.allocated, std::vector<int>{0});
    EXPECT_EQ(LengthOf(buffer), 0);
    EXPECT_EQ(CapacityOf(buffer), 7);
    EXPECT_TRUE(IsTerminated(buffer));
}

TEST_F(Construction, refuses_null_with_a_length_before_it_asks_for_memory) {
    EXPECT_EQ(ThrownBy([&] { Buffer(nullptr, 5, Mgr()); }), kInvalidCode);
    EXPECT_EQ(raw.allocated, std::vector<int>{});
}

TEST_F(Construction, refuses_a_negative_length_before_it_asks_for_memory) {
    EXPECT_EQ(ThrownBy([&] { Buffer("abc", -1, Mgr()); }), kInvalidCode);
    EXPECT_EQ(ThrownBy([&] { Buffer(nullptr, -1, Mgr()); }), kInvalidCode);
    EXPECT_EQ(raw.allocated, std::vector<int>{});
}

TEST_F(GetBuffer, leaves_a_private_buffer_with_room_where_it_is) {
    Buffer buffer("abc", 3, Mgr());
    const char* const before = AddressOf(buffer);
    EXPECT_EQ(buffer.GetBuffer(7), before);
    EXPECT_EQ(AddressOf(buffer), before);
    EXPECT_EQ(CapacityOf(buffer), 7);
    EXPECT_EQ(LengthOf(buffer), 3);
    EXPECT_EQ(raw.allocated.size() + raw.reallocated.size(), 1u);
}

TEST_F(GetBuffer, unshares_even_when_the_room_is_there) {
    Buffer buffer("abcdef", 6, Mgr());
    const Buffer sharer(buffer);
    char* const text = buffer.GetBuffer(1);
    EXPECT_NE(text, AddressOf(sharer));
    EXPECT_EQ(raw.allocated, (std::vector<int>{6, 6})) << "never less room than the text needs";
    EXPECT_EQ(TextOf(buffer), "abcdef");
    EXPECT_EQ(ReferencesOf(buffer), 1);
    EXPECT_EQ(ReferencesOf(sharer), 1);
    text[0] = 'X';
    EXPECT_EQ(TextOf(sharer), "abcdef");
}

TEST_F(GetBuffer, unshares_into_the_room_asked_for_without_doubling) {
    Buffer buffer("abcdef", 6, Mgr());
    const Buffer sharer(buffer);
    buffer.GetBuffer(8);
    EXPECT_EQ(raw.allocated, (std::vector<int>{6, 8}));
    EXPECT_EQ(raw.reallocated, std::vector<int>{});
}

TEST_F(GetBuffer, gives_the_empty_string_a_buffer_of_its_own) {
    LgnString string;
    char* const text = string.GetBuffer(0);
    EXPECT_TRUE(heap::IsLive(text - 24));
    EXPECT_EQ(LengthOf(string), 0);
    EXPECT_EQ(*text, '\0');
}

TEST_F(GetBuffer, counts_a_negative_room_as_the_texts_own) {
    Buffer buffer("abc", 3, Mgr());
    const Buffer sharer(buffer);
    buffer.GetBuffer(-5);
    EXPECT_EQ(raw.allocated, (std::vector<int>{3, 3}));
    EXPECT_EQ(TextOf(buffer), "abc");
}

TEST_F(GetBuffer, with_flag_0x40_zeroes_what_lies_behind_the_text) {
    Buffer buffer("abcdefghij", 10, Mgr());
    std::memset(buffer.GetBuffer(0) + 4, 'x', 11);
    buffer.SetLength(4);
    std::memset(buffer.GetBuffer(0) + 4, 'x', 11);
    const char* const text = buffer.GetBuffer(0, 0x40);
    EXPECT_EQ(std::string(text, 15), std::string("abcd") + std::string(11, '\0'));
}

TEST_F(GetBuffer, without_flag_0x40_zeroes_nothing) {
    for (const unsigned flags : {0u, 0x3fu, 0xffffff80u}) {
        Buffer buffer("abcdefghij", 10, Mgr());
        buffer.SetLength(4);
        std::memset(buffer.GetBuffer(0) + 4, 'x', 11);
        const char* const text = buffer.GetBuffer(0, flags);
        EXPECT_EQ(std::string(text, 15), std::string("abcd") + std::string(11, 'x')) << flags;
        buffer.SetLength(4);
    }
}

TEST_F(GetBuffer, with_flag_0x40_zeroes_new_room_too) {
    Buffer buffer("abc", 3, Mgr());
    const char* const text = buffer.GetBuffer(50, 0x40);
    EXPECT_EQ(std::string(text + 3, 47), std::string(47, '\0'));
}

TEST_F(SetLength, ends_the_text_with_a_NUL) {
    LgnString string("abcdef");
    string.SetLength(2);
    EXPECT_EQ(TextOf(string), "ab");
    EXPECT_STREQ(string.GetString(), "ab");
}

TEST_F(SetLength, takes_the_whole_capacity) {
    LgnString string("abcdef");
    string.SetLength(7);
    EXPECT_EQ(LengthOf(string), 7);
    EXPECT_TRUE(IsTerminated(string));
}

TEST_F(SetLength, refuses_what_lies_outside_the_capacity) {
    LgnString string("abcdef");
    EXPECT_EQ(ThrownBy([&] { string.SetLength(8); }), kInvalidCode);
    EXPECT_EQ(ThrownBy([&] { string.SetLength(-1); }), kInvalidCode);
    EXPECT_EQ(TextOf(string), "abcdef");
}

TEST_F(Fork, asks_the_clone_of_the_old_buffers_manager) {
    raw.clone = other.address();
    Buffer buffer("abc", 3, Mgr());
    buffer.Fork(20);
    EXPECT_EQ(other.allocated, std::vector<int>{20});
    EXPECT_EQ(ManagerOf(buffer), other.address());
    EXPECT_EQ(TextOf(buffer), "abc");
    EXPECT_TRUE(IsTerminated(buffer));
    EXPECT_EQ(CapacityOf(buffer), 23);
    EXPECT_EQ(ReferencesOf(buffer), 1);
}

TEST_F(Fork, gives_back_the_old_buffer_or_its_share) {
    Buffer buffer("abc", 3, Mgr());
    const char* const old = AddressOf(buffer);
    buffer.Fork(3);
    EXPECT_FALSE(heap::IsLive(old - 24));

    const Buffer sharer(buffer);
    buffer.Fork(3);
    EXPECT_EQ(ReferencesOf(sharer), 1);
}

TEST_F(Fork, into_less_room_copies_one_character_more_and_keeps_the_length) {
    Buffer buffer("abcdefghij", 10, Mgr());
    buffer.Fork(3);
    EXPECT_EQ(LengthOf(buffer), 10);
    EXPECT_EQ(CapacityOf(buffer), 7);
    EXPECT_EQ(std::string(AddressOf(buffer), 4), "abcd");
    buffer.SetLength(4);
}

TEST_F(GetAt, reads_from_the_first_character_to_the_NUL) {
    const LgnString string("abc");
    EXPECT_EQ(string.GetAt(0), 'a');
    EXPECT_EQ(string[2], 'c');
    EXPECT_EQ(string.GetAt(3), '\0');
}

TEST_F(GetAt, refuses_an_index_outside) {
    const LgnString string("abc");
    EXPECT_EQ(ThrownBy([&] { string.GetAt(-1); }), kInvalidCode);
    EXPECT_EQ(ThrownBy([&] { string.GetAt(4); }), kInvalidCode);
    EXPECT_EQ(ThrownBy([&] { string[4]; }), kInvalidCode);
    EXPECT_EQ(ThrownBy([&] { LgnString().GetAt(1); }), kInvalidCode);
    EXPECT_EQ(LgnString().GetAt(0), '\0');
}

}  // namespace

// The string: construction from a text, SetString, Append, Mid.
#include "lgn/lgn_test.h"

namespace {

using String = LgnTest;
using SetString = FaultyManagerTest;
using Append = LgnTest;
using Mid = FaultyManagerTest;

TEST_F(String, of_null_or_an_empty_text_is_the_empty_text_of_the_default_manager) {
    const std::int64_t before = NilReferences();
    const LgnString none(nullptr);
    const LgnString empty("");
    for (const LgnString* string : {&none, &empty}) {
        EXPECT_EQ(AddressOf(*string), reinterpret_cast<const char*>(_lgnBufferManager) + 40);
        EXPECT_EQ(LengthOf(*string), 0);
        EXPECT_EQ(CapacityOf(*string), 0);
    }
    EXPECT_EQ(NilReferences(), before + 2);
}

TEST_F(String, of_a_text_uses_the_default_manager) {
    const LgnString string("abc");
    EXPECT_EQ(ManagerOf(string), static_cast<void*>(_lgnBufferManager));
    EXPECT_EQ(string.GetLength(), 3);
    EXPECT_EQ(string.GetAllocLength(), 7);
    EXPECT_FALSE(string.IsEmpty());
    EXPECT_EQ(string.View(), "abc");
}

TEST_F(SetString, of_null_or_an_empty_text_takes_the_managers_empty_text) {
    for (const char* text : {static_cast<const char*>(nullptr), ""}) {
        LgnString string("abc", 3, Mgr());
        const char* const old = AddressOf(string);
        string.SetString(text);
        EXPECT_EQ(AddressOf(string), raw.NilCharacters());
        EXPECT_EQ(raw.NilReferences(), 3);
        EXPECT_FALSE(heap::IsLive(old - 24));
    }
}

TEST_F(SetString, of_an_empty_text_leaves_an_empty_buffer_where_it_is) {
    LgnString string("", 0, Mgr());
    const char* const before = AddressOf(string);
    string.SetString("");
    EXPECT_EQ(AddressOf(string), before);
}

TEST_F(SetString, of_a_shorter_text_keeps_the_buffer) {
    LgnString string("a longer text", 13, Mgr());
    const char* const before = AddressOf(string);
    string.SetString("short");
    EXPECT_EQ(AddressOf(string), before);
    EXPECT_EQ(CapacityOf(string), 15);
    EXPECT_STREQ(string.GetString(), "short");
}

TEST_F(SetString, on_a_shared_text_makes_room_for_the_longer_of_both) {
    LgnString string("a longer text", 13, Mgr());
    const LgnString sharer(string);
    string.SetString("short");
    EXPECT_EQ(raw.allocated, (std::vector<int>{13, 13}));
    string = sharer;
    string.SetString("the longest text of all");
    EXPECT_EQ(raw.allocated, (std::vector<int>{13, 13, 23}));
}

TEST_F(SetString, of_the_texts_own_second_half) {
    LgnString string("abcdefgh");
    string.SetString(string.GetString() + 4);
    EXPECT_EQ(TextOf(string), "efgh");
    EXPECT_TRUE(IsTerminated(string));
}

TEST_F(SetString, of_the_texts_own_beginning_or_end) {
    LgnString string("abcdefgh");
    string.SetString(string.GetString());
    EXPECT_EQ(TextOf(string), "abcdefgh");
    string.SetString(string.GetString() + 7);
    EXPECT_EQ(TextOf(string), "h");
    string.SetString(string.GetString() + 1);
    EXPECT_EQ(TextOf(string), "");
}

TEST_F(SetString, of_the_texts_own_part_while_it_is_shared) {
    LgnString string("abcdefgh");
    const LgnString sharer(string);
    string.SetString(string.GetString() + 4);
    EXPECT_EQ(TextOf(string), "efgh");
    EXPECT_EQ(TextOf(sharer), "abcdefgh");
}

TEST_F(SetString, of_a_text_at_a_lower_address_copies_it) {
    // Heap blocks lie above the program's own data, so the offset is negative; the string's text
    // moves, so an offset taken for one within it would read elsewhere.
    static char text[] = "source";
    LgnString string("xyz");
    const LgnString sharer(string);
    ASSERT_LT(static_cast<const void*>(text), static_cast<const void*>(AddressOf(string)));
    string.SetString(text);
    EXPECT_EQ(TextOf(string), "source");
}

TEST_F(SetString, of_a_length_takes_embedded_NULs_and_refuses_nonsense) {
    LgnString string("abc", 3, Mgr());
    string.SetString("x\0y", 3);
    EXPECT_EQ(TextOf(string), std::string("x\0y", 3));
    EXPECT_EQ(ThrownBy([&] { string.SetString("abc", -1); }), kInvalidCode);
    EXPECT_EQ(ThrownBy([&] { string.SetString(nullptr, 2); }), kInvalidCode);
    EXPECT_EQ(TextOf(string), std::string("x\0y", 3));
}

TEST_F(Append, adds_behind_the_text) {
    LgnString string("abc");
    string.Append("||", 2);
    string.Append("d\0e", 3);
    EXPECT_EQ(TextOf(string), std::string("abc||d\0e", 8));
    EXPECT_TRUE(IsTerminated(string));
}

TEST_F(Append, of_nothing_unshares_nothing) {
    LgnString string("abc");
    const LgnString sharer(string);
    string.Append("", 0);
    string.Append(nullptr, 0);
    EXPECT_EQ(ReferencesOf(sharer), 2);
}

TEST_F(Append, of_the_own_text_doubles_it) {
    LgnString string("abcdef");
    string.Append(string.GetString(), 6);
    EXPECT_EQ(TextOf(string), "abcdefabcdef");
}

TEST_F(Append, of_the_own_NUL_takes_it_from_where_the_text_has_moved) {
    LgnString string("abcdefg");
    ASSERT_EQ(CapacityOf(string), 7);
    string.Append(string.GetString() + 7, 1);
    EXPECT_EQ(TextOf(string), std::string("abcdefg\0", 8));
}

TEST_F(Append, unshares_first) {
    LgnString string("abc");
    const LgnString sharer(string);
    string.Append("d", 1);
    EXPECT_EQ(TextOf(sharer), "abc");
    EXPECT_EQ(TextOf(string), "abcd");
}

TEST_F(Append, refuses_null_with_a_length_and_negative_lengths) {
    LgnString string("abc");
    EXPECT_EQ(ThrownBy([&] { string.Append(nullptr, 1); }), kInvalidCode);
    EXPECT_EQ(ThrownBy([&] { string.Append("x", -1); }), kInvalidCode);
    EXPECT_EQ(ThrownBy([&] { string.Append("x", 0x7fffffff); }), kInvalidCode);
    EXPECT_EQ(TextOf(string), "abc");
}

struct Part {
    int first;
    int count;
    const char* text;
};

class MidOfSix : public LgnTest, public testing::WithParamInterface<Part> {};

TEST_P(MidOfSix, is_a_buffer_of_its_own) {
    const LgnString string("abcdef");
    const LgnString part = string.Mid(GetParam().first, GetParam().count);
    EXPECT_EQ(TextOf(part), GetParam().text);
    EXPECT_TRUE(IsTerminated(part));
    EXPECT_NE(AddressOf(part), AddressOf(string));
    EXPECT_TRUE(heap::IsLive(AddressOf(part) - 24));
    EXPECT_EQ(ReferencesOf(string), 1);
}

INSTANTIATE_TEST_SUITE_P(Cuts, MidOfSix,
                         testing::Values(Part{-3, 2, "ab"}, Part{4, 10, "ef"}, Part{7, 1, ""},
                                         Part{6, 1, ""}, Part{0, 5, "abcde"}, Part{1, 5, "bcdef"},
                                         Part{1, 6, "bcdef"}, Part{2, -1, ""}, Part{-1, -1, ""},
                                         Part{2, 0x7fffffff, "cdef"},
                                         Part{0x7fffffff, 0x7fffffff, ""}, Part{1000, 0, ""}));

TEST_F(Mid, of_the_whole_text_shares_the_buffer) {
    const LgnString string("abcdef");
    EXPECT_EQ(AddressOf(string.Mid(0, 6)), AddressOf(string));
    EXPECT_EQ(AddressOf(string.Mid(0, 7)), AddressOf(string)) << "the end cuts the count";
    EXPECT_EQ(AddressOf(string.Mid(-1, 0x7fffffff)), AddressOf(string));
    EXPECT_EQ(ReferencesOf(string), 1);
}

TEST_F(Mid, of_an_empty_text_shares_it_from_the_beginning_alone) {
    const LgnString string;
    EXPECT_EQ(AddressOf(string.Mid(0, 5)), AddressOf(string));
    EXPECT_NE(AddressOf(string.Mid(1, 5)), AddressOf(string));
}

TEST_F(Mid, asks_the_clone_of_the_manager) {
    raw.clone = other.address();
    const LgnString string("abcdef", 6, Mgr());
    const LgnString part = string.Mid(2, 3);
    EXPECT_EQ(ManagerOf(part), other.address());
    EXPECT_EQ(other.allocated, std::vector<int>{3});
    EXPECT_EQ(TextOf(part), "cde");
}

TEST_F(Mid, copies_embedded_NULs) {
    const LgnString string("a\0b\0c", 5, Mgr());
    EXPECT_EQ(TextOf(string.Mid(1, 3)), std::string("\0b\0", 3));
}

}  // namespace

// Copies share a buffer until one of them is written; locked buffers are never shared.
#include "lgn/lgn_test.h"

namespace {

using Copy = FaultyManagerTest;
using Assignment = FaultyManagerTest;
using Locked = FaultyManagerTest;
using Release = FaultyManagerTest;

TEST_F(Copy, shares_the_buffer_and_counts) {
    const LgnString string("abc");
    const LgnString copy(string);
    EXPECT_EQ(AddressOf(copy), AddressOf(string));
    EXPECT_EQ(ReferencesOf(string), 2);
    {
        const LgnString third(copy);
        EXPECT_EQ(ReferencesOf(string), 3);
    }
    EXPECT_EQ(ReferencesOf(string), 2);
}

TEST_F(Copy, of_the_empty_string_counts_one_more_user_of_the_empty_text) {
    const LgnString string;
    const std::int64_t before = NilReferences();
    const LgnString copy(string);
    EXPECT_EQ(AddressOf(copy), AddressOf(string));
    EXPECT_EQ(NilReferences(), before + 1);
}

TEST_F(Copy, is_private_where_the_manager_clones_to_another) {
    raw.clone = other.address();
    const Buffer buffer("a\0c", 3, Mgr());
    peer::Characters(&buffer)[4] = 'd';
    const Buffer copy(buffer);
    EXPECT_NE(AddressOf(copy), AddressOf(buffer));
    EXPECT_EQ(ManagerOf(copy), other.address());
    EXPECT_EQ(other.allocated, std::vector<int>{3});
    EXPECT_EQ(TextOf(copy), std::string("a\0c", 3));
    EXPECT_TRUE(IsTerminated(copy));
    EXPECT_EQ(AddressOf(copy)[4], peer::kUnwritten) << "more than the text was copied";
    EXPECT_EQ(ReferencesOf(buffer), 1);
    EXPECT_EQ(ReferencesOf(copy), 1);
}

TEST_F(Copy, of_a_buffer_that_nobody_counted_shares_it) {
    const LgnString string("abc");
    peer::SetReferences(&string, 0);
    {
        const LgnString copy(string);
        EXPECT_EQ(AddressOf(copy), AddressOf(string));
        EXPECT_EQ(ReferencesOf(string), 1);
        peer::SetReferences(&string, 2);
    }
}

TEST_F(Copy, is_unharmed_when_the_other_is_written) {
    LgnString string("abc");
    const LgnString copy(string);
    string.SetString("xyz");
    EXPECT_EQ(TextOf(copy), "abc");
    EXPECT_EQ(ReferencesOf(copy), 1);
    EXPECT_EQ(TextOf(string), "xyz");
    EXPECT_EQ(ReferencesOf(string), 1);
}

TEST_F(Assignment, shares_the_buffer_and_gives_back_the_old_one) {
    const LgnString source("abc");
    LgnString target("the old text");
    const char* const old = AddressOf(target);
    target = source;
    EXPECT_EQ(AddressOf(target), AddressOf(source));
    EXPECT_EQ(ReferencesOf(source), 2);
    EXPECT_FALSE(heap::IsLive(old - 24));
}

TEST_F(Assignment, of_the_same_buffer_changes_nothing) {
    LgnString string("abc");
    LgnString sharer(string);
    const LgnString& itself = string;
    string = itself;
    sharer = string;
    EXPECT_EQ(ReferencesOf(string), 2);
    EXPECT_EQ(TextOf(string), "abc");
}

TEST_F(Assignment, of_the_same_buffer_makes_no_copy_where_the_manager_now_clones_to_another) {
    const Buffer string("abc", 3, Mgr());
    Buffer sharer(string);
    raw.clone = other.address();
    sharer = string;
    EXPECT_EQ(AddressOf(sharer), AddressOf(string));
    EXPECT_EQ(other.allocated, std::vector<int>{});
}

TEST_F(Assignment, of_the_same_locked_buffer_changes_nothing) {
    LgnString string("abc");
    const char* const before = AddressOf(string);
    peer::SetReferences(&string, -1);
    const LgnString& itself = string;
    string = itself;
    EXPECT_EQ(AddressOf(string), before);
    EXPECT_EQ(ReferencesOf(string), -1);
    EXPECT_EQ(TextOf(string), "abc");
}

TEST_F(Assignment, between_managers_copies_into_the_targets_own_buffer) {
    const LgnString source("abc");
    Buffer target("the old text", 12, Mgr());
    const char* const before = AddressOf(target);
    target = source;
    EXPECT_EQ(AddressOf(target), before);
    EXPECT_EQ(ManagerOf(target), raw.address());
    EXPECT_EQ(TextOf(target), "abc");
    EXPECT_TRUE(IsTerminated(target));
    EXPECT_EQ(ReferencesOf(source), 1);
}

TEST_F(Assignment, between_managers_copies_embedded_NULs) {
    const Buffer source("a\0c", 3, OtherMgr());
    Buffer target("the old text", 12, Mgr());
    target = source;
    EXPECT_EQ(TextOf(target), std::string("a\0c", 3));
}

TEST_F(Assignment, between_managers_unshares_the_target) {
    const LgnString source("abc");
    Buffer target("the old text", 12, Mgr());
    const Buffer sharer(target);
    target = source;
    EXPECT_EQ(TextOf(sharer), "the old text");
    EXPECT_EQ(ReferencesOf(sharer), 1);
    EXPECT_EQ(raw.allocated, (std::vector<int>{12, 12})) << "the longer of both texts";
}

TEST_F(Assignment, between_managers_of_an_empty_text_takes_the_targets_empty_text) {
    const LgnString source;
    Buffer target("the old text", 12, Mgr());
    target = source;
    EXPECT_EQ(AddressOf(target), raw.NilCharacters());
    EXPECT_EQ(raw.NilReferences(), 3);
}

TEST_F(Assignment, within_a_manager_that_clones_to_another_is_a_private_copy) {
    raw.clone = other.address();
    const Buffer source("abc", 3, Mgr());
    Buffer target("the old text", 12, Mgr());
    target = source;
    EXPECT_EQ(ManagerOf(target), other.address());
    EXPECT_NE(AddressOf(target), AddressOf(source));
    EXPECT_EQ(TextOf(target), "abc");
}

TEST_F(Locked, is_not_shared_by_a_copy) {
    const Buffer buffer("a\0c", 3, Mgr());
    peer::SetReferences(&buffer, -1);
    const Buffer copy(buffer);
    EXPECT_NE(AddressOf(copy), AddressOf(buffer));
    EXPECT_EQ(TextOf(copy), std::string("a\0c", 3));
    EXPECT_TRUE(IsTerminated(copy));
    EXPECT_EQ(ReferencesOf(copy), 1);
    EXPECT_EQ(ReferencesOf(buffer), -1);
    EXPECT_EQ(ManagerOf(copy), raw.address());
}

TEST_F(Locked, is_copied_by_an_assignment_from_it) {
    const Buffer source("abc", 3, Mgr());
    peer::SetReferences(&source, -1);
    Buffer target("x", 1, Mgr());
    target = source;
    EXPECT_NE(AddressOf(target), AddressOf(source));
    EXPECT_EQ(TextOf(target), "abc");
    EXPECT_EQ(ReferencesOf(source), -1);
}

TEST_F(Locked, takes_an_assigned_text_in_place) {
    const LgnString source("abc");
    LgnString target("defgh");
    const char* const before = AddressOf(target);
    peer::SetReferences(&target, -1);
    target = source;
    EXPECT_EQ(AddressOf(target), before);
    EXPECT_EQ(ReferencesOf(target), -1);
    EXPECT_EQ(TextOf(target), "abc");
    EXPECT_TRUE(IsTerminated(target));
    EXPECT_EQ(ReferencesOf(source), 1);
}

TEST_F(Locked, grows_in_place) {
    Buffer buffer("abc", 3, Mgr());
    peer::SetReferences(&buffer, -1);
    buffer.SetString("a longer text", 13);
    EXPECT_EQ(raw.reallocated, std::vector<int>{14});
    EXPECT_EQ(TextOf(buffer), "a longer text");
    EXPECT_EQ(ReferencesOf(buffer), -1);
}

TEST_F(Locked, is_emptied_in_place) {
    LgnString string("abc");
    const char* const before = AddressOf(string);
    peer::SetReferences(&string, -1);
    string.SetString("");
    EXPECT_EQ(AddressOf(string), before);
    EXPECT_EQ(LengthOf(string), 0);
    EXPECT_TRUE(IsTerminated(string));
    EXPECT_EQ(ReferencesOf(string), -1);
}

TEST_F(Locked, with_a_negative_capacity_refuses_to_be_emptied) {
    LgnString string("abc");
    peer::SetReferences(&string, -1);
    peer::SetCapacity(&string, -1);
    EXPECT_EQ(ThrownBy([&] { string.SetString(nullptr); }), kInvalidCode);
    peer::SetCapacity(&string, 7);
    EXPECT_EQ(TextOf(string), "abc");
}

TEST_F(Release, frees_the_block_directly_and_asks_no_manager) {
    const char* text = nullptr;
    {
        const Buffer buffer("abc", 3, Mgr());
        text = AddressOf(buffer);
        EXPECT_TRUE(heap::IsLive(text - 24));
    }
    EXPECT_FALSE(heap::IsLive(text - 24));
    EXPECT_EQ(raw.freed, 0);
}

TEST_F(Release, frees_a_locked_block_too) {
    const char* text = nullptr;
    {
        const Buffer buffer("abc", 3, Mgr());
        text = AddressOf(buffer);
        peer::SetReferences(&buffer, -1);
    }
    EXPECT_FALSE(heap::IsLive(text - 24));
}

TEST_F(Release, waits_for_the_last_user) {
    const LgnString* const first = new LgnString("abc");
    const LgnString second(*first);
    delete first;
    EXPECT_TRUE(heap::IsLive(AddressOf(second) - 24));
    EXPECT_EQ(TextOf(second), "abc");
}

}  // namespace

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
    EXPECT_EQ(address_of(copy), address_of(string));
    EXPECT_EQ(references_of(string), 2);
    {
        const LgnString third(copy);
        EXPECT_EQ(references_of(string), 3);
    }
    EXPECT_EQ(references_of(string), 2);
}

TEST_F(Copy, of_the_empty_string_counts_one_more_user_of_the_empty_text) {
    const LgnString string;
    const std::int64_t before = nil_references();
    const LgnString copy(string);
    EXPECT_EQ(address_of(copy), address_of(string));
    EXPECT_EQ(nil_references(), before + 1);
}

TEST_F(Copy, is_private_where_the_manager_clones_to_another) {
    raw.clone = other.address();
    const Buffer buffer("a\0c", 3, mgr());
    const Buffer copy(buffer);
    EXPECT_NE(address_of(copy), address_of(buffer));
    EXPECT_EQ(manager_of(copy), other.address());
    EXPECT_EQ(other.allocated, std::vector<int>{3});
    EXPECT_EQ(text_of(copy), std::string("a\0c", 3));
    EXPECT_TRUE(is_terminated(copy));
    EXPECT_EQ(references_of(buffer), 1);
    EXPECT_EQ(references_of(copy), 1);
}

TEST_F(Copy, is_unharmed_when_the_other_is_written) {
    LgnString string("abc");
    const LgnString copy(string);
    string.SetString("xyz");
    EXPECT_EQ(text_of(copy), "abc");
    EXPECT_EQ(references_of(copy), 1);
    EXPECT_EQ(text_of(string), "xyz");
    EXPECT_EQ(references_of(string), 1);
}

TEST_F(Assignment, shares_the_buffer_and_gives_back_the_old_one) {
    const LgnString source("abc");
    LgnString target("the old text");
    const char* const old = address_of(target);
    target = source;
    EXPECT_EQ(address_of(target), address_of(source));
    EXPECT_EQ(references_of(source), 2);
    EXPECT_FALSE(heap::is_live(old - 24));
}

TEST_F(Assignment, of_the_same_buffer_changes_nothing) {
    LgnString string("abc");
    LgnString sharer(string);
    const LgnString& itself = string;
    string = itself;
    sharer = string;
    EXPECT_EQ(references_of(string), 2);
    EXPECT_EQ(text_of(string), "abc");
}

TEST_F(Assignment, of_the_same_buffer_makes_no_copy_where_the_manager_now_clones_to_another) {
    const Buffer string("abc", 3, mgr());
    Buffer sharer(string);
    raw.clone = other.address();
    sharer = string;
    EXPECT_EQ(address_of(sharer), address_of(string));
    EXPECT_EQ(other.allocated, std::vector<int>{});
}

TEST_F(Assignment, of_the_same_locked_buffer_changes_nothing) {
    LgnString string("abc");
    const char* const before = address_of(string);
    peer::set_references(&string, -1);
    const LgnString& itself = string;
    string = itself;
    EXPECT_EQ(address_of(string), before);
    EXPECT_EQ(references_of(string), -1);
    EXPECT_EQ(text_of(string), "abc");
}

TEST_F(Assignment, between_managers_copies_into_the_targets_own_buffer) {
    const LgnString source("abc");
    Buffer target("the old text", 12, mgr());
    const char* const before = address_of(target);
    target = source;
    EXPECT_EQ(address_of(target), before);
    EXPECT_EQ(manager_of(target), raw.address());
    EXPECT_EQ(text_of(target), "abc");
    EXPECT_TRUE(is_terminated(target));
    EXPECT_EQ(references_of(source), 1);
}

TEST_F(Assignment, between_managers_copies_embedded_NULs) {
    const Buffer source("a\0c", 3, other_mgr());
    Buffer target("the old text", 12, mgr());
    target = source;
    EXPECT_EQ(text_of(target), std::string("a\0c", 3));
}

TEST_F(Assignment, between_managers_unshares_the_target) {
    const LgnString source("abc");
    Buffer target("the old text", 12, mgr());
    const Buffer sharer(target);
    target = source;
    EXPECT_EQ(text_of(sharer), "the old text");
    EXPECT_EQ(references_of(sharer), 1);
    EXPECT_EQ(raw.allocated, (std::vector<int>{12, 12})) << "the longer of both texts";
}

TEST_F(Assignment, between_managers_of_an_empty_text_takes_the_targets_empty_text) {
    const LgnString source;
    Buffer target("the old text", 12, mgr());
    target = source;
    EXPECT_EQ(address_of(target), raw.nil_characters());
    EXPECT_EQ(raw.nil_references(), 3);
}

TEST_F(Assignment, within_a_manager_that_clones_to_another_is_a_private_copy) {
    raw.clone = other.address();
    const Buffer source("abc", 3, mgr());
    Buffer target("the old text", 12, mgr());
    target = source;
    EXPECT_EQ(manager_of(target), other.address());
    EXPECT_NE(address_of(target), address_of(source));
    EXPECT_EQ(text_of(target), "abc");
}

TEST_F(Locked, is_not_shared_by_a_copy) {
    const Buffer buffer("a\0c", 3, mgr());
    peer::set_references(&buffer, -1);
    const Buffer copy(buffer);
    EXPECT_NE(address_of(copy), address_of(buffer));
    EXPECT_EQ(text_of(copy), std::string("a\0c", 3));
    EXPECT_TRUE(is_terminated(copy));
    EXPECT_EQ(references_of(copy), 1);
    EXPECT_EQ(references_of(buffer), -1);
    EXPECT_EQ(manager_of(copy), raw.address());
}

TEST_F(Locked, is_copied_by_an_assignment_from_it) {
    const Buffer source("abc", 3, mgr());
    peer::set_references(&source, -1);
    Buffer target("x", 1, mgr());
    target = source;
    EXPECT_NE(address_of(target), address_of(source));
    EXPECT_EQ(text_of(target), "abc");
    EXPECT_EQ(references_of(source), -1);
}

TEST_F(Locked, takes_an_assigned_text_in_place) {
    const LgnString source("abc");
    LgnString target("defgh");
    const char* const before = address_of(target);
    peer::set_references(&target, -1);
    target = source;
    EXPECT_EQ(address_of(target), before);
    EXPECT_EQ(references_of(target), -1);
    EXPECT_EQ(text_of(target), "abc");
    EXPECT_TRUE(is_terminated(target));
    EXPECT_EQ(references_of(source), 1);
}

TEST_F(Locked, grows_in_place) {
    Buffer buffer("abc", 3, mgr());
    peer::set_references(&buffer, -1);
    buffer.SetString("a longer text", 13);
    EXPECT_EQ(raw.reallocated, std::vector<int>{14});
    EXPECT_EQ(text_of(buffer), "a longer text");
    EXPECT_EQ(references_of(buffer), -1);
}

TEST_F(Locked, is_emptied_in_place) {
    LgnString string("abc");
    const char* const before = address_of(string);
    peer::set_references(&string, -1);
    string.SetString("");
    EXPECT_EQ(address_of(string), before);
    EXPECT_EQ(length_of(string), 0);
    EXPECT_TRUE(is_terminated(string));
    EXPECT_EQ(references_of(string), -1);
}

TEST_F(Locked, with_a_negative_capacity_refuses_to_be_emptied) {
    LgnString string("abc");
    peer::set_references(&string, -1);
    peer::set_capacity(&string, -1);
    EXPECT_EQ(thrown_by([&] { string.SetString(nullptr); }), kInvalidCode);
    peer::set_capacity(&string, 7);
    EXPECT_EQ(text_of(string), "abc");
}

TEST_F(Release, frees_the_block_directly_and_asks_no_manager) {
    const char* text = nullptr;
    {
        const Buffer buffer("abc", 3, mgr());
        text = address_of(buffer);
        EXPECT_TRUE(heap::is_live(text - 24));
    }
    EXPECT_FALSE(heap::is_live(text - 24));
    EXPECT_EQ(raw.freed, 0);
}

TEST_F(Release, frees_a_locked_block_too) {
    const char* text = nullptr;
    {
        const Buffer buffer("abc", 3, mgr());
        text = address_of(buffer);
        peer::set_references(&buffer, -1);
    }
    EXPECT_FALSE(heap::is_live(text - 24));
}

TEST_F(Release, waits_for_the_last_user) {
    const LgnString* const first = new LgnString("abc");
    const LgnString second(*first);
    delete first;
    EXPECT_TRUE(heap::is_live(address_of(second) - 24));
    EXPECT_EQ(text_of(second), "abc");
}

}  // namespace

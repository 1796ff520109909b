// What a manager that fails leaves behind: the exception's code, and everything else as it was. The
// fixture checks after each test that no block is lost and that the empty texts' counts are back.
#include "lgn/lgn_test.h"

namespace {

using Fault = peer::RawManager::Fault;
using Failure = FaultyManagerTest;
using HeapFailure = LgnTest;

TEST_F(Failure, the_buffers_constructor_without_memory) {
    raw.allocation = Fault::kNoMemory;
    EXPECT_EQ(thrown_by([&] { Buffer("abc", 3, mgr()); }), kNoMemoryCode);
}

TEST_F(Failure, the_buffers_constructor_with_too_short_a_buffer) {
    raw.allocation = Fault::kTooShort;
    EXPECT_EQ(thrown_by([&] { Buffer("abc", 3, mgr()); }), kInvalidCode);
    EXPECT_EQ(thrown_by([&] { Buffer("", 0, mgr()); }), kInvalidCode);
}

TEST_F(Failure, the_strings_constructor_without_memory) {
    raw.allocation = Fault::kNoMemory;
    const DefaultManager scope(mgr());
    EXPECT_EQ(thrown_by([] { LgnString("abc"); }), kNoMemoryCode);
    EXPECT_EQ(raw.allocated, std::vector<int>{3});
}

TEST_F(Failure, the_strings_constructor_with_too_short_a_buffer) {
    raw.allocation = Fault::kTooShort;
    const DefaultManager scope(mgr());
    EXPECT_EQ(thrown_by([] { LgnString("abc"); }), kInvalidCode);
}

TEST_F(Failure, the_strings_constructor_from_a_length_without_memory) {
    raw.allocation = Fault::kNoMemory;
    EXPECT_EQ(thrown_by([&] { LgnString("abc", 3, mgr()); }), kNoMemoryCode);
}

TEST_F(Failure, a_copy_into_a_clone_without_memory) {
    raw.clone = other.address();
    other.allocation = Fault::kNoMemory;
    const Buffer buffer("abc", 3, mgr());
    EXPECT_EQ(thrown_by([&] { const Buffer copy(buffer); }), kNoMemoryCode);
    EXPECT_EQ(references_of(buffer), 1);
}

TEST_F(Failure, a_copy_of_a_locked_buffer_without_memory) {
    const Buffer buffer("abc", 3, mgr());
    peer::set_references(&buffer, -1);
    raw.allocation = Fault::kNoMemory;
    EXPECT_EQ(thrown_by([&] { const Buffer copy(buffer); }), kNoMemoryCode);
    EXPECT_EQ(references_of(buffer), -1);
}

TEST_F(Failure, an_assignment_that_must_copy_keeps_the_targets_text) {
    const Buffer source("abc", 3, mgr());
    peer::set_references(&source, -1);
    Buffer target("the old text", 12, mgr());
    const char* const before = address_of(target);
    raw.allocation = Fault::kNoMemory;
    EXPECT_EQ(thrown_by([&] { target = source; }), kNoMemoryCode);
    EXPECT_EQ(address_of(target), before);
    EXPECT_EQ(text_of(target), "the old text");
    EXPECT_EQ(references_of(target), 1);
}

TEST_F(Failure, an_assignment_between_managers_that_cannot_grow_keeps_the_targets_text) {
    const LgnString source("a text that needs more room");
    Buffer target("old", 3, mgr());
    raw.reallocation = Fault::kNoMemory;
    EXPECT_EQ(thrown_by([&] { target = source; }), kNoMemoryCode);
    EXPECT_EQ(text_of(target), "old");
    EXPECT_EQ(references_of(source), 1);
}

TEST_F(Failure, an_assignment_between_managers_that_cannot_unshare_keeps_the_share) {
    const LgnString source("abc");
    Buffer target("old", 3, mgr());
    const Buffer sharer(target);
    raw.allocation = Fault::kNoMemory;
    EXPECT_EQ(thrown_by([&] { target = source; }), kNoMemoryCode);
    EXPECT_EQ(address_of(target), address_of(sharer));
    EXPECT_EQ(references_of(sharer), 2);
}

TEST_F(Failure, Fork_without_memory_keeps_the_share) {
    Buffer buffer("abc", 3, mgr());
    const Buffer sharer(buffer);
    raw.allocation = Fault::kNoMemory;
    EXPECT_EQ(thrown_by([&] { buffer.Fork(100); }), kNoMemoryCode);
    EXPECT_EQ(address_of(buffer), address_of(sharer));
    EXPECT_EQ(references_of(sharer), 2);
}

TEST_F(Failure, Fork_into_too_short_a_buffer_keeps_the_share) {
    Buffer buffer("abc", 3, mgr());
    const Buffer sharer(buffer);
    raw.allocation = Fault::kTooShort;
    EXPECT_EQ(thrown_by([&] { buffer.Fork(100); }), kInvalidCode);
    EXPECT_EQ(address_of(buffer), address_of(sharer));
    EXPECT_EQ(references_of(sharer), 2);
}

TEST_F(Failure, a_copy_into_a_clone_with_too_short_a_buffer) {
    raw.clone = other.address();
    other.allocation = Fault::kTooShort;
    const Buffer buffer("abc", 3, mgr());
    EXPECT_EQ(thrown_by([&] { const Buffer copy(buffer); }), kInvalidCode);
    EXPECT_EQ(references_of(buffer), 1);
}

TEST_F(Failure, a_piece_of_a_text_with_too_short_a_buffer) {
    const LgnString string("abcdef", 6, mgr());
    raw.allocation = Fault::kTooShort;
    EXPECT_EQ(thrown_by([&] { string.Mid(1, 2); }), kInvalidCode);
    EXPECT_EQ(references_of(string), 1);
}

TEST_F(Failure, GetBuffer_with_too_short_a_buffer_keeps_the_text) {
    Buffer buffer("abc", 3, mgr());
    raw.reallocation = Fault::kTooShort;
    EXPECT_EQ(thrown_by([&] { buffer.GetBuffer(100); }), kInvalidCode);
    EXPECT_EQ(text_of(buffer), "abc");
}

TEST_F(Failure, Append_with_too_short_a_buffer_keeps_the_text) {
    LgnString string("abc", 3, mgr());
    raw.reallocation = Fault::kTooShort;
    EXPECT_EQ(thrown_by([&] { string.Append(" and more", 9); }), kInvalidCode);
    EXPECT_EQ(text_of(string), "abc");
    EXPECT_TRUE(is_terminated(string));
}

TEST_F(Failure, GetBuffer_without_memory_keeps_the_text) {
    Buffer buffer("abc", 3, mgr());
    raw.reallocation = Fault::kNoMemory;
    EXPECT_EQ(thrown_by([&] { buffer.GetBuffer(100); }), kNoMemoryCode);
    EXPECT_EQ(text_of(buffer), "abc");
    EXPECT_EQ(capacity_of(buffer), 7);
}

TEST_F(Failure, SetString_without_memory_keeps_the_text) {
    LgnString string("abc", 3, mgr());
    raw.reallocation = Fault::kNoMemory;
    EXPECT_EQ(thrown_by([&] { string.SetString("a longer text"); }), kNoMemoryCode);
    EXPECT_EQ(text_of(string), "abc");
}

TEST_F(Failure, SetString_with_too_short_a_buffer_is_an_invalid_length) {
    LgnString string("abc", 3, mgr());
    raw.reallocation = Fault::kTooShort;
    EXPECT_EQ(thrown_by([&] { string.SetString("a longer text"); }), kInvalidCode);
}

TEST_F(Failure, Append_without_memory_keeps_the_text) {
    LgnString string("abc", 3, mgr());
    raw.reallocation = Fault::kNoMemory;
    EXPECT_EQ(thrown_by([&] { string.Append(" and more", 9); }), kNoMemoryCode);
    EXPECT_EQ(text_of(string), "abc");
}

TEST_F(Failure, Replace_without_memory_keeps_the_text) {
    LgnString string("a|b", 3, mgr());
    raw.reallocation = Fault::kNoMemory;
    EXPECT_EQ(thrown_by([&] { string.Replace("|", "a longer text"); }), kNoMemoryCode);
    EXPECT_EQ(text_of(string), "a|b");
}

TEST_F(Failure, Replace_that_cannot_unshare_keeps_the_share) {
    LgnString string("a|b", 3, mgr());
    const LgnString sharer(string);
    raw.allocation = Fault::kNoMemory;
    EXPECT_EQ(thrown_by([&] { string.Replace("|", ""); }), kNoMemoryCode);
    EXPECT_EQ(address_of(string), address_of(sharer));
    EXPECT_EQ(text_of(string), "a|b");
}

TEST_F(Failure, Replace_with_too_short_a_buffer_is_an_invalid_length) {
    LgnString string("a|b", 3, mgr());
    raw.reallocation = Fault::kTooShort;
    EXPECT_EQ(thrown_by([&] { string.Replace("|", "a longer text"); }), kInvalidCode);
}

TEST_F(Failure, Replace_to_a_length_that_no_string_has_keeps_the_text) {
    const std::string bars(65536, '|');
    const std::string longer(40000, 'x');
    LgnString string(bars.data(), 65536, mgr());
    EXPECT_EQ(thrown_by([&] { string.Replace("|", longer.c_str()); }), kInvalidCode);
    EXPECT_EQ(text_of(string), bars);
    EXPECT_EQ(raw.reallocated, std::vector<int>{});
}

TEST_F(Failure, Mid_without_memory_keeps_the_text) {
    const LgnString string("abcdef", 6, mgr());
    raw.allocation = Fault::kNoMemory;
    EXPECT_EQ(thrown_by([&] { string.Mid(1, 2); }), kNoMemoryCode);
    EXPECT_EQ(text_of(string), "abcdef");
    EXPECT_EQ(references_of(string), 1);
}

TEST_F(HeapFailure, the_strings_constructor_with_an_exhausted_heap) {
    heap::fail_request(1);
    EXPECT_EQ(thrown_by([] { LgnString("abc"); }), kNoMemoryCode);
}

TEST_F(HeapFailure, growth_with_an_exhausted_heap_keeps_the_text) {
    LgnString string("abc");
    heap::fail_request(1);
    EXPECT_EQ(thrown_by([&] { string.SetString("a longer text"); }), kNoMemoryCode);
    EXPECT_EQ(text_of(string), "abc");
}

TEST_F(HeapFailure, an_assignment_of_a_locked_text_with_an_exhausted_heap_keeps_the_target) {
    const LgnString source("abc");
    peer::set_references(&source, -1);
    LgnString target;
    heap::fail_request(1);
    EXPECT_EQ(thrown_by([&] { target = source; }), kNoMemoryCode);
    EXPECT_EQ(length_of(target), 0);
    EXPECT_EQ(manager_of(target), static_cast<void*>(_lgnBufferManager));
}

}  // namespace

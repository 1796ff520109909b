// What a manager that fails leaves behind: the exception's code, and everything else as it was. The
// fixture checks after each test that no block is lost and that the empty texts' counts are back.
#include "lgn/lgn_test.h"

namespace {

using Fault = peer::RawManager::Fault;
using Failure = FaultyManagerTest;
using HeapFailure = LgnTest;

TEST_F(Failure, the_buffers_constructor_without_memory) {
    raw.allocation = Fault::kNoMemory;
    EXPECT_EQ(ThrownBy([&] { Buffer("abc", 3, Mgr()); }), kNoMemoryCode);
}

TEST_F(Failure, the_buffers_constructor_with_too_short_a_buffer) {
    raw.allocation = Fault::kTooShort;
    EXPECT_EQ(ThrownBy([&] { Buffer("abc", 3, Mgr()); }), kInvalidCode);
    EXPECT_EQ(ThrownBy([&] { Buffer("", 0, Mgr()); }), kInvalidCode);
}

TEST_F(Failure, the_strings_constructor_without_memory) {
    raw.allocation = Fault::kNoMemory;
    const DefaultManager scope(Mgr());
    EXPECT_EQ(ThrownBy([] { LgnString("abc"); }), kNoMemoryCode);
    EXPECT_EQ(raw.allocated, std::vector<int>{3});
}

TEST_F(Failure, the_strings_constructor_with_too_short_a_buffer) {
    raw.allocation = Fault::kTooShort;
    const DefaultManager scope(Mgr());
    EXPECT_EQ(ThrownBy([] { LgnString("abc"); }), kInvalidCode);
}

TEST_F(Failure, the_strings_constructor_from_a_length_without_memory) {
    raw.allocation = Fault::kNoMemory;
    EXPECT_EQ(ThrownBy([&] { LgnString("abc", 3, Mgr()); }), kNoMemoryCode);
}

TEST_F(Failure, a_copy_into_a_clone_without_memory) {
    raw.clone = other.address();
    other.allocation = Fault::kNoMemory;
    const Buffer buffer("abc", 3, Mgr());
    EXPECT_EQ(ThrownBy([&] { const Buffer copy(buffer); }), kNoMemoryCode);
    EXPECT_EQ(ReferencesOf(buffer), 1);
}

TEST_F(Failure, a_copy_of_a_locked_buffer_without_memory) {
    const Buffer buffer("abc", 3, Mgr());
    peer::SetReferences(&buffer, -1);
    raw.allocation = Fault::kNoMemory;
    EXPECT_EQ(ThrownBy([&] { const Buffer copy(buffer); }), kNoMemoryCode);
    EXPECT_EQ(ReferencesOf(buffer), -1);
}

TEST_F(Failure, an_assignment_that_must_copy_keeps_the_targets_text) {
    const Buffer source("abc", 3, Mgr());
    peer::SetReferences(&source, -1);
    Buffer target("the old text", 12, Mgr());
    const char* const before = AddressOf(target);
    raw.allocation = Fault::kNoMemory;
    EXPECT_EQ(ThrownBy([&] { target = source; }), kNoMemoryCode);
    EXPECT_EQ(AddressOf(target), before);
    EXPECT_EQ(TextOf(target), "the old text");
    EXPECT_EQ(ReferencesOf(target), 1);
}

TEST_F(Failure, an_assignment_between_managers_that_cannot_grow_keeps_the_targets_text) {
    const LgnString source("a text that needs more room");
    Buffer target("old", 3, Mgr());
    raw.reallocation = Fault::kNoMemory;
    EXPECT_EQ(ThrownBy([&] { target = source; }), kNoMemoryCode);
    EXPECT_EQ(TextOf(target), "old");
    EXPECT_EQ(ReferencesOf(source), 1);
}

TEST_F(Failure, an_assignment_between_managers_that_cannot_unshare_keeps_the_share) {
    const LgnString source("abc");
    Buffer target("old", 3, Mgr());
    const Buffer sharer(target);
    raw.allocation = Fault::kNoMemory;
    EXPECT_EQ(ThrownBy([&] { target = source; }), kNoMemoryCode);
    EXPECT_EQ(AddressOf(target), AddressOf(sharer));
    EXPECT_EQ(ReferencesOf(sharer), 2);
}

TEST_F(Failure, Fork_without_memory_keeps_the_share) {
    Buffer buffer("abc", 3, Mgr());
    const Buffer sharer(buffer);
    raw.allocation = Fault::kNoMemory;
    EXPECT_EQ(ThrownBy([&] { buffer.Fork(100); }), kNoMemoryCode);
    EXPECT_EQ(AddressOf(buffer), AddressOf(sharer));
    EXPECT_EQ(ReferencesOf(sharer), 2);
}

TEST_F(Failure, Fork_into_too_short_a_buffer_keeps_the_share) {
    Buffer buffer("abc", 3, Mgr());
    const Buffer sharer(buffer);
    raw.allocation = Fault::kTooShort;
    EXPECT_EQ(ThrownBy([&] { buffer.Fork(100); }), kInvalidCode);
    EXPECT_EQ(AddressOf(buffer), AddressOf(sharer));
    EXPECT_EQ(ReferencesOf(sharer), 2);
}

TEST_F(Failure, a_copy_into_a_clone_with_too_short_a_buffer) {
    raw.clone = other.address();
    other.allocation = Fault::kTooShort;
    const Buffer buffer("abc", 3, Mgr());
    EXPECT_EQ(ThrownBy([&] { const Buffer copy(buffer); }), kInvalidCode);
    EXPECT_EQ(ReferencesOf(buffer), 1);
}

TEST_F(Failure, a_piece_of_a_text_with_too_short_a_buffer) {
    const LgnString string("abcdef", 6, Mgr());
    raw.allocation = Fault::kTooShort;
    EXPECT_EQ(ThrownBy([&] { string.Mid(1, 2); }), kInvalidCode);
    EXPECT_EQ(ReferencesOf(string), 1);
}

TEST_F(Failure, GetBuffer_with_too_short_a_buffer_keeps_the_text) {
    Buffer buffer("abc", 3, Mgr());
    raw.reallocation = Fault::kTooShort;
    EXPECT_EQ(ThrownBy([&] { buffer.GetBuffer(100); }), kInvalidCode);
    EXPECT_EQ(TextOf(buffer), "abc");
}

TEST_F(Failure, Append_with_too_short_a_buffer_keeps_the_text) {
    LgnString string("abc", 3, Mgr());
    raw.reallocation = Fault::kTooShort;
    EXPECT_EQ(ThrownBy([&] { string.Append(" and more", 9); }), kInvalidCode);
    EXPECT_EQ(TextOf(string), "abc");
    EXPECT_TRUE(IsTerminated(string));
}

TEST_F(Failure, GetBuffer_without_memory_keeps_the_text) {
    Buffer buffer("abc", 3, Mgr());
    raw.reallocation = Fault::kNoMemory;
    EXPECT_EQ(ThrownBy([&] { buffer.GetBuffer(100); }), kNoMemoryCode);
    EXPECT_EQ(TextOf(buffer), "abc");
    EXPECT_EQ(CapacityOf(buffer), 7);
}

TEST_F(Failure, SetString_without_memory_keeps_the_text) {
    LgnString string("abc", 3, Mgr());
    raw.reallocation = Fault::kNoMemory;
    EXPECT_EQ(ThrownBy([&] { string.SetString("a longer text"); }), kNoMemoryCode);
    EXPECT_EQ(TextOf(string), "abc");
}

TEST_F(Failure, SetString_with_too_short_a_buffer_is_an_invalid_length) {
    LgnString string("abc", 3, Mgr());
    raw.reallocation = Fault::kTooShort;
    EXPECT_EQ(ThrownBy([&] { string.SetString("a longer text"); }), kInvalidCode);
}

TEST_F(Failure, Append_without_memory_keeps_the_text) {
    LgnString string("abc", 3, Mgr());
    raw.reallocation = Fault::kNoMemory;
    EXPECT_EQ(ThrownBy([&] { string.Append(" and more", 9); }), kNoMemoryCode);
    EXPECT_EQ(TextOf(string), "abc");
}

TEST_F(Failure, Replace_without_memory_keeps_the_text) {
    LgnString string("a|b", 3, Mgr());
    raw.reallocation = Fault::kNoMemory;
    EXPECT_EQ(ThrownBy([&] { string.Replace("|", "a longer text"); }), kNoMemoryCode);
    EXPECT_EQ(TextOf(string), "a|b");
}

TEST_F(Failure, Replace_that_cannot_unshare_keeps_the_share) {
    LgnString string("a|b", 3, Mgr());
    const LgnString sharer(string);
    raw.allocation = Fault::kNoMemory;
    EXPECT_EQ(ThrownBy([&] { string.Replace("|", ""); }), kNoMemoryCode);
    EXPECT_EQ(AddressOf(string), AddressOf(sharer));
    EXPECT_EQ(TextOf(string), "a|b");
}

TEST_F(Failure, Replace_with_too_short_a_buffer_is_an_invalid_length) {
    LgnString string("a|b", 3, Mgr());
    raw.reallocation = Fault::kTooShort;
    EXPECT_EQ(ThrownBy([&] { string.Replace("|", "a longer text"); }), kInvalidCode);
}

TEST_F(Failure, Replace_to_a_length_that_no_string_has_keeps_the_text) {
    const std::string bars(65536, '|');
    const std::string longer(40000, 'x');
    LgnString string(bars.data(), 65536, Mgr());
    EXPECT_EQ(ThrownBy([&] { string.Replace("|", longer.c_str()); }), kInvalidCode);
    EXPECT_EQ(TextOf(string), bars);
    EXPECT_EQ(raw.reallocated, std::vector<int>{});
}

TEST_F(Failure, Mid_without_memory_keeps_the_text) {
    const LgnString string("abcdef", 6, Mgr());
    raw.allocation = Fault::kNoMemory;
    EXPECT_EQ(ThrownBy([&] { string.Mid(1, 2); }), kNoMemoryCode);
    EXPECT_EQ(TextOf(string), "abcdef");
    EXPECT_EQ(ReferencesOf(string), 1);
}

TEST_F(HeapFailure, the_strings_constructor_with_an_exhausted_heap) {
    heap::FailRequest(1);
    EXPECT_EQ(ThrownBy([] { LgnString("abc"); }), kNoMemoryCode);
}

TEST_F(HeapFailure, growth_with_an_exhausted_heap_keeps_the_text) {
    LgnString string("abc");
    heap::FailRequest(1);
    EXPECT_EQ(ThrownBy([&] { string.SetString("a longer text"); }), kNoMemoryCode);
    EXPECT_EQ(TextOf(string), "abc");
}

TEST_F(HeapFailure, an_assignment_of_a_locked_text_with_an_exhausted_heap_keeps_the_target) {
    const LgnString source("abc");
    peer::SetReferences(&source, -1);
    LgnString target;
    heap::FailRequest(1);
    EXPECT_EQ(ThrownBy([&] { target = source; }), kNoMemoryCode);
    EXPECT_EQ(LengthOf(target), 0);
    EXPECT_EQ(ManagerOf(target), static_cast<void*>(_lgnBufferManager));
}

}  // namespace

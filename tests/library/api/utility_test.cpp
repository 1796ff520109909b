// CommonFunction: memcpy_s, GetSubStringCount, MB2MB.
#include <new>

#include "api_test.h"
#include "exports_cpp.h"
#include "lgn_exception.h"

// ---- memcpy_s -----------------------------------------------------------------------------------

TEST(memcpy_s, copies_exactly_the_bytes_asked_for) {
    CommonFunction common;
    CanaryBuffer destination(8);
    EXPECT_EQ(common.memcpy_s(destination.data(), 8, "ab\0cd", 5), 0);
    EXPECT_TRUE(destination.HoldsOnly(std::string("ab\0cd", 5)));
}

TEST(memcpy_s, fills_the_whole_destination) {
    CommonFunction common;
    CanaryBuffer destination(4);
    EXPECT_EQ(common.memcpy_s(destination.data(), 4, "abcd", 4), 0);
    EXPECT_TRUE(destination.HoldsOnly("abcd"));
}

TEST(memcpy_s, is_1_for_more_than_fits_and_copies_nothing) {
    CommonFunction common;
    CanaryBuffer destination(4);
    EXPECT_EQ(common.memcpy_s(destination.data(), 4, "abcde", 5), 1);
    EXPECT_TRUE(destination.Untouched());
}

TEST(memcpy_s, looks_at_the_size_then_the_source_then_the_destination) {
    CommonFunction common;
    EXPECT_EQ(common.memcpy_s(nullptr, 4, nullptr, 5), 1);
    EXPECT_EQ(common.memcpy_s(nullptr, 4, nullptr, 4), 2);
    EXPECT_EQ(common.memcpy_s(nullptr, 4, "abcd", 4), 3);
}

TEST(memcpy_s, refuses_null_pointers_for_0_bytes_too) {
    CommonFunction common;
    char byte = 'x';
    EXPECT_EQ(common.memcpy_s(&byte, 0, nullptr, 0), 2);
    EXPECT_EQ(common.memcpy_s(nullptr, 0, "", 0), 3);
    EXPECT_EQ(common.memcpy_s(&byte, 0, "y", 0), 0);
    EXPECT_EQ(byte, 'x');
}

TEST(memcpy_s, takes_sizes_of_64_bits) {
    CommonFunction common;
    CanaryBuffer destination(4);
    EXPECT_EQ(common.memcpy_s(destination.data(), 1UL << 32, "ab", 2), 0);
    EXPECT_EQ(common.memcpy_s(destination.data(), 4, "ab", (1UL << 32) + 2), 1);
    EXPECT_EQ(common.memcpy_s(destination.data(), 4, "ab", ~0UL), 1);
    EXPECT_TRUE(destination.HoldsOnly("ab"));
}

// ---- GetSubStringCount --------------------------------------------------------------------------

TEST(GetSubStringCount, counts_separators) {
    CommonFunction common;
    EXPECT_EQ(common.GetSubStringCount("a||b||c", "||"), 2U);
    EXPECT_EQ(common.GetSubStringCount("||||", "||"), 2U);
    EXPECT_EQ(common.GetSubStringCount("|||", "||"), 1U);
    EXPECT_EQ(common.GetSubStringCount("a|b|c", "||"), 0U);
    EXPECT_EQ(common.GetSubStringCount("||", "||"), 1U);
}

TEST(GetSubStringCount, counts_none_in_an_empty_or_shorter_text) {
    CommonFunction common;
    EXPECT_EQ(common.GetSubStringCount("", "||"), 0U);
    EXPECT_EQ(common.GetSubStringCount("|", "||"), 0U);
}

TEST(GetSubStringCount, goes_on_behind_each_occurrence) {
    CommonFunction common;
    EXPECT_EQ(common.GetSubStringCount("aaaaa", "aa"), 2U);
    EXPECT_EQ(common.GetSubStringCount("abababa", "aba"), 2U);
    EXPECT_EQ(common.GetSubStringCount("abc", "abc"), 1U);
}

TEST(GetSubStringCount, finds_an_empty_text_at_every_position) {
    CommonFunction common;
    EXPECT_EQ(common.GetSubStringCount("", ""), 1U);
    EXPECT_EQ(common.GetSubStringCount("abc", ""), 4U);
}

TEST(GetSubStringCount, takes_a_NUL_for_a_character) {
    CommonFunction common;
    EXPECT_EQ(common.GetSubStringCount(std::string("a\0b\0", 4), std::string("\0", 1)), 2U);
}

// ---- MB2MB --------------------------------------------------------------------------------------

namespace {

struct Converted {
    Converted(unsigned direction, const std::string& input) {
        CommonFunction common;
        code = common.MB2MB(direction, reinterpret_cast<const unsigned char*>(input.data()),
                            static_cast<unsigned>(input.size()), &out, &length);
    }
    ~Converted() { delete[] out; }
    Converted(const Converted&) = delete;
    Converted& operator=(const Converted&) = delete;

    std::string Bytes() const { return {reinterpret_cast<const char*>(out), length}; }

    unsigned char* out = nullptr;
    unsigned length = 77;
    int code;
};

}  // namespace

TEST(MB2MB, converts_one_character) {
    const Converted converted(0, "\xE4\xB8\xAD");
    EXPECT_EQ(converted.code, 0);
    EXPECT_EQ(converted.Bytes(), "\xD6\xD0");
}

TEST(MB2MB, converts_characters_of_one_to_four_bytes) {
    const Converted converted(0, "A\xC2\xA9\xE2\x82\xAC\xF0\x9F\x98\x80");
    EXPECT_EQ(converted.code, 0);
    EXPECT_EQ(converted.Bytes(), "A\x81\x30\x84\x38\xA2\xE3\x94\x39\xFC\x36");
}

TEST(MB2MB, takes_a_NUL_for_a_character) {
    const Converted converted(0, std::string("a\0b", 3));
    EXPECT_EQ(converted.Bytes(), std::string("a\0b", 3));
}

TEST(MB2MB, keeps_what_stands_before_an_invalid_sequence) {
    const Converted converted(0,
                              "ab\xFF"
                              "cd");
    EXPECT_EQ(converted.code, 0);
    EXPECT_EQ(converted.Bytes(), "ab");
}

TEST(MB2MB, keeps_what_stands_before_a_sequence_that_is_cut) {
    const Converted converted(0, "ab\xE4\xB8");
    EXPECT_EQ(converted.code, 0);
    EXPECT_EQ(converted.Bytes(), "ab");
}

TEST(MB2MB, of_an_invalid_first_character_is_minus_1_and_hands_an_empty_buffer_out) {
    const Converted converted(0,
                              "\xFF"
                              "ab");
    EXPECT_EQ(converted.code, -1);
    EXPECT_EQ(converted.length, 0U);
    EXPECT_NE(converted.out, nullptr);
}

TEST(MB2MB, of_nothing_is_minus_1_and_hands_an_empty_buffer_out) {
    const Converted converted(0, "");
    EXPECT_EQ(converted.code, -1);
    EXPECT_EQ(converted.length, 0U);
    EXPECT_NE(converted.out, nullptr);
}

TEST(MB2MB, of_a_null_input_without_length_is_nothing) {
    CommonFunction common;
    unsigned char* out = nullptr;
    unsigned length = 77;
    EXPECT_EQ(common.MB2MB(0, nullptr, 0, &out, &length), -1);
    EXPECT_EQ(length, 0U);
    EXPECT_NE(out, nullptr);
    delete[] out;
}

TEST(MB2MB, of_a_null_input_with_a_length_throws_an_invalid_argument) {
    CommonFunction common;
    unsigned char* out = nullptr;
    unsigned length = 77;
    EXPECT_EQ(CodeThrownBy([&] { common.MB2MB(0, nullptr, 3, &out, &length); }), invalid_argument);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(length, 77U);
}

TEST(MB2MB, of_a_length_beyond_31_bits_throws_an_invalid_argument) {
    CommonFunction common;
    unsigned char input = 'a';
    unsigned char* out = nullptr;
    unsigned length = 77;
    EXPECT_EQ(CodeThrownBy([&] { common.MB2MB(0, &input, 0x80000000, &out, &length); }),
              invalid_argument);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(length, 77U);
}

TEST(MB2MB, in_direction_1_copies_the_bytes_as_they_are) {
    const std::string bytes("\xFF\0\xE4", 3);
    const Converted converted(1, bytes);
    EXPECT_EQ(converted.code, 0);
    EXPECT_EQ(converted.Bytes(), bytes);
}

TEST(MB2MB, in_direction_1_of_nothing_is_minus_1_and_hands_ten_bytes_out) {
    const Converted converted(1, "");
    EXPECT_EQ(converted.code, -1);
    EXPECT_EQ(converted.length, 0U);
    ASSERT_NE(converted.out, nullptr);
    for (int index = 0; index < 10; ++index) converted.out[index] = 'x';
}

TEST(MB2MB, has_ten_bytes_to_spare_behind_its_output) {
    for (const unsigned direction : {0U, 1U}) {
        const Converted converted(direction, "abc");
        for (unsigned index = 0; index < 10; ++index) converted.out[3 + index] = 'x';
        EXPECT_EQ(converted.Bytes(), "abc");
    }
}

TEST(MB2MB, leaves_the_spare_bytes_unwritten) {
    for (const unsigned direction : {0U, 1U}) {
        const Converted converted(direction, "abc");
        for (unsigned index = 0; index < 10; ++index) {
            EXPECT_EQ(converted.out[3 + index], fresh_byte) << direction << " " << index;
        }
    }
}

TEST(MB2MB, in_another_direction_is_minus_1_and_touches_nothing) {
    for (const unsigned direction : {2U, 3U, 0xFFFFFFFFU}) {
        const Converted converted(direction, "abc");
        EXPECT_EQ(converted.code, -1);
        EXPECT_EQ(converted.out, nullptr);
        EXPECT_EQ(converted.length, 77U);
    }
}

TEST(MB2MB, leaks_nothing) {
    ExpectNoLeak([] {
        const Converted all(0, "\xE4\xB8\xAD");
        const Converted some(0, "ab\xFF");
        const Converted none(0, "\xFF");
        const Converted copy(1, "abc");
    });
}

TEST(MB2MB, hands_nothing_out_when_memory_runs_out) {
    int failures = 0;
    for (int nth = 1; nth < 100; ++nth) {
        CommonFunction common;
        unsigned char* out = nullptr;
        unsigned length = 77;
        bool failed = false;
        const unsigned char text[] = "abc";
        {
            const FailingAllocation failing(nth);
            try {
                EXPECT_EQ(common.MB2MB(0, text, 3, &out, &length), 0);
            } catch (const LGN::CLgnException& exception) {
                EXPECT_EQ(exception.code, kOutOfMemory);
                failed = true;
            } catch (const std::bad_alloc&) {
                failed = true;
            }
            EXPECT_EQ(failing.Happened(), failed);
        }
        EXPECT_EQ(out == nullptr, failed);
        delete[] out;
        if (!failed) break;
        ++failures;
    }
    EXPECT_GE(failures, 1) << "the buffer that is handed out is allocated";
}

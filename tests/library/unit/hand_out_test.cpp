// How texts and sizes reach the caller, and which arguments are taken.
#include "hand_out.h"

#include <gtest/gtest.h>

#include <string>

#include "arguments.h"

namespace {

// What handOut made of a buffer of 8 bytes filled with '#'.
struct Handed {
    Handed(const char* text, std::uint32_t length, int capacity, std::uint32_t nul = 0)
        : told(capacity), bytes(8, '#') {
        const kesta::ReadText read = {text, std::strlen(text), length};
        code = kesta::HandOut(read, bytes.data(), &told, nul);
    }
    int told;
    std::string bytes;
    int code;
};

}  // namespace

TEST(HandOut, accepts_a_capacity_without_room_for_the_NUL) {
    const Handed handed("abc", 3, 3);
    EXPECT_EQ(handed.code, KESTA_OK);
    EXPECT_EQ(handed.told, 3);
    EXPECT_EQ(handed.bytes, std::string("abc\0####", 8));
}

TEST(HandOut, tells_the_length_with_or_without_the_NUL_when_the_buffer_is_too_small) {
    EXPECT_EQ(Handed("abc", 3, 2).told, 3);
    EXPECT_EQ(Handed("abc", 3, 2, 1).told, 4);
    EXPECT_EQ(Handed("abc", 3, 2).code, KESTA_BUFFER_TOO_SMALL);
    EXPECT_EQ(Handed("abc", 3, -1).bytes, "########");
}

TEST(HandOut, never_writes_beyond_the_capacity_when_the_length_lies) {
    const Handed handed("abcdef", 2, 4);
    EXPECT_EQ(handed.code, KESTA_OK);
    EXPECT_EQ(handed.told, 2);
    EXPECT_EQ(handed.bytes, std::string("abcd\0###", 8));
}

TEST(HandOut, answers_a_probe_with_room_for_the_NUL) {
    unsigned length = 0;
    EXPECT_EQ(kesta::HandOut({"abc", 3, 3}, nullptr, &length), KESTA_OK);
    EXPECT_EQ(length, 4u);
}

TEST(ReadAndHandOut, passes_a_failure_through_and_writes_nothing) {
    char buffer[8] = "before";
    int length = 7;
    const int result = kesta::ReadAndHandOut<4>(buffer, &length, [](char* text) {
        std::memcpy(text, "abcd", 4);
        return 9;
    });
    EXPECT_EQ(result, 9);
    EXPECT_STREQ(buffer, "before");
    EXPECT_EQ(length, 7);
}

TEST(ReadAndHandOut, never_reads_beyond_its_own_buffer) {
    char buffer[8] = {};
    int length = 7;
    kesta::ReadAndHandOut<4>(buffer, &length, [](char* text) {
        std::memcpy(text, "abcd", 4);
        return KESTA_OK;
    });
    EXPECT_STREQ(buffer, "abcd");
    EXPECT_EQ(length, 4);
}

TEST(Arguments, of_data_objects_have_their_lengths) {
    EXPECT_FALSE(kesta::IsDataName("123456789"));
    EXPECT_TRUE(kesta::IsDataName("1234567890"));
    EXPECT_TRUE(kesta::IsDataName("1234567890123456"));
    EXPECT_FALSE(kesta::IsDataName("12345678901234567"));
    EXPECT_TRUE(kesta::IsDataValue(std::string(300, 'x').c_str()));
    EXPECT_FALSE(kesta::IsDataValue(std::string(301, 'x').c_str()));
}

TEST(Arguments, take_room_by_the_formulas) {
    EXPECT_EQ(kesta::WorkSize(""), 8192u);
    EXPECT_EQ(kesta::WorkSize("abc"), 8198u);
    EXPECT_EQ(kesta::BatchSize("abc", "x||y||z", 2), 12322u);
    EXPECT_EQ(kesta::BatchSize(nullptr, nullptr, 0), 0u);
    EXPECT_EQ(kesta::BatchSize("abc", "x", 0), 4102u);
}

// The utilities: bounded copy, counting, conversion.
#include "commonfunction.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

namespace {

constexpr int kInvalidCode = static_cast<int>(0x80070057u);

TEST(Memcpy_s, copies_up_to_the_whole_destination) {
    CommonFunction functions;
    char destination[5] = "....";
    EXPECT_EQ(functions.memcpy_s(destination, 4, "abcd", 4), 0);
    EXPECT_STREQ(destination, "abcd");
    EXPECT_EQ(functions.memcpy_s(destination, 4, "xy", 2), 0);
    EXPECT_STREQ(destination, "xycd");
    EXPECT_EQ(functions.memcpy_s(destination, 4, "z", 0), 0);
    EXPECT_STREQ(destination, "xycd");
}

TEST(Memcpy_s, refuses_in_its_order) {
    CommonFunction functions;
    char destination[4] = {'k', 'e', 'e', 'p'};
    EXPECT_EQ(functions.memcpy_s(destination, 4, "abcde", 5), 1);
    EXPECT_EQ(functions.memcpy_s(nullptr, 4, nullptr, 5), 1);
    EXPECT_EQ(functions.memcpy_s(nullptr, 4, nullptr, 4), 2);
    EXPECT_EQ(functions.memcpy_s(destination, 4, nullptr, 0), 2);
    EXPECT_EQ(functions.memcpy_s(nullptr, 4, "abcd", 4), 3);
    EXPECT_EQ(functions.memcpy_s(nullptr, 0, "", 0), 3);
    EXPECT_EQ(std::string(destination, 4), "keep");
}

TEST(GetSubStringCount, counts_what_does_not_overlap) {
    CommonFunction functions;
    EXPECT_EQ(functions.GetSubStringCount("a||b||c", "||"), 2u);
    EXPECT_EQ(functions.GetSubStringCount("||||", "||"), 2u);
    EXPECT_EQ(functions.GetSubStringCount("|||", "||"), 1u);
    EXPECT_EQ(functions.GetSubStringCount("abc", "||"), 0u);
    EXPECT_EQ(functions.GetSubStringCount("", "||"), 0u);
    EXPECT_EQ(functions.GetSubStringCount("a|b|c", "||"), 0u);
}

TEST(GetSubStringCount, finds_an_empty_text_at_every_place) {
    CommonFunction functions;
    EXPECT_EQ(functions.GetSubStringCount("abc", ""), 4u);
    EXPECT_EQ(functions.GetSubStringCount("", ""), 1u);
}

struct Converted {
    int result = 99;
    std::string bytes;
    bool handedOut = false;
};

Converted Convert(unsigned direction, const std::string& input) {
    CommonFunction functions;
    unsigned char* out = nullptr;
    unsigned length = 0xdead;
    Converted converted;
    converted.result =
        functions.MB2MB(direction, reinterpret_cast<const unsigned char*>(input.data()),
                        static_cast<unsigned>(input.size()), &out, &length);
    const std::unique_ptr<unsigned char[]> owner(out);
    converted.handedOut = out != nullptr;
    if (converted.handedOut) converted.bytes.assign(reinterpret_cast<char*>(out), length);
    return converted;
}

TEST(MB2MB, converts_from_UTF_8_to_GB18030) {
    const Converted converted = Convert(0, "\xe4\xb8\xad");
    EXPECT_EQ(converted.result, 0);
    EXPECT_EQ(converted.bytes, "\xd6\xd0");
    EXPECT_EQ(Convert(0, "plain text").bytes, "plain text");
}

TEST(MB2MB, has_room_for_characters_that_double) {
    std::string input;
    for (int n = 0; n < 1000; ++n) input += "\xc2\x80";
    EXPECT_EQ(Convert(0, input).bytes.size(), 4000u);
}

TEST(MB2MB, keeps_what_stands_before_an_invalid_sequence) {
    const Converted converted = Convert(0,
                                        "ab\xff"
                                        "cd");
    EXPECT_EQ(converted.result, 0);
    EXPECT_EQ(converted.bytes, "ab");
    EXPECT_EQ(Convert(0, "ab\xe4\xb8").bytes, "ab") << "an incomplete character at the end";
}

TEST(MB2MB, hands_out_an_empty_buffer_for_an_empty_result) {
    for (const char* input : {"", "\xff", "\xe4"}) {
        const Converted converted = Convert(0, input);
        EXPECT_EQ(converted.result, -1);
        EXPECT_TRUE(converted.handedOut);
        EXPECT_EQ(converted.bytes, "");
    }
}

TEST(MB2MB, keeps_embedded_NULs) {
    const std::string input("a\0b", 3);
    EXPECT_EQ(Convert(0, input).bytes, input);
    EXPECT_EQ(Convert(1, input).bytes, input);
}

TEST(MB2MB, copies_in_direction_1_whatever_the_bytes_are) {
    const Converted converted = Convert(1, "\xff\xe4x");
    EXPECT_EQ(converted.result, 0);
    EXPECT_EQ(converted.bytes, "\xff\xe4x");
    const std::string longer(100, '\xe4');
    EXPECT_EQ(Convert(1, longer).bytes, longer);
    const Converted empty = Convert(1, "");
    EXPECT_EQ(empty.result, -1);
    EXPECT_TRUE(empty.handedOut);
    EXPECT_EQ(empty.bytes, "");
}

TEST(MB2MB, knows_no_other_direction_and_leaves_both_outputs) {
    for (const unsigned direction : {2u, 3u, 0xffffffffu}) {
        CommonFunction functions;
        unsigned char mark = 0;
        unsigned char* out = &mark;
        unsigned length = 0xdead;
        EXPECT_EQ(functions.MB2MB(direction, &mark, 1, &out, &length), -1);
        EXPECT_EQ(out, &mark);
        EXPECT_EQ(length, 0xdeadu);
    }
}

int CodeOfConversion(const unsigned char* input, unsigned size) {
    unsigned char* out = nullptr;
    unsigned length = 0xdead;
    try {
        CommonFunction().MB2MB(0, input, size, &out, &length);
    } catch (const LGN::CLgnException& exception) {
        EXPECT_EQ(out, nullptr);
        EXPECT_EQ(length, 0xdeadu);
        return exception.GetCode();
    }
    delete[] out;
    return 0;
}

TEST(MB2MB, throws_at_null_with_a_length_and_at_a_negative_length) {
    const unsigned char byte = 'x';
    EXPECT_EQ(CodeOfConversion(nullptr, 1), kInvalidCode);
    EXPECT_EQ(CodeOfConversion(&byte, 0x80000000u), kInvalidCode);
    EXPECT_EQ(CodeOfConversion(&byte, 0xffffffffu), kInvalidCode);
    EXPECT_EQ(CodeOfConversion(nullptr, 0), 0);
}

std::string Utf8(unsigned code) {
    const auto byte = [](unsigned value) { return static_cast<char>(value); };
    const auto tail = [&](int shift) { return byte(0x80 | ((code >> shift) & 0x3f)); };
    if (code < 0x80) return {byte(code)};
    if (code < 0x800) return {byte(0xc0 | (code >> 6)), tail(0)};
    if (code < 0x10000) return {byte(0xe0 | (code >> 12)), tail(6), tail(0)};
    return {byte(0xf0 | (code >> 18)), tail(12), tail(6), tail(0)};
}

// Every character but the line feed, which parts them; surrogates are none.
std::vector<std::string> EveryCharacter() {
    std::vector<std::string> characters;
    for (unsigned code = 0; code <= 0x10ffff; ++code) {
        if (code != '\n' && (code < 0xd800 || code > 0xdfff)) characters.push_back(Utf8(code));
    }
    return characters;
}

// The same characters by the iconv command, which leaves out those that GB18030 does not map.
std::vector<std::string> ConvertedByTheCommand(const std::vector<std::string>& characters) {
    const std::string file =
        testing::TempDir() + "kesta_every_character." + std::to_string(getpid());
    std::ofstream out(file, std::ios::binary);
    for (const std::string& character : characters) out << character << '\n';
    out.close();
    const std::string command = "iconv -c -f UTF-8 -t GB18030 '" + file + "'";
    const std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
    std::vector<std::string> converted(1);
    for (int c; (c = std::fgetc(pipe.get())) != EOF;) {
        if (c == '\n') {
            converted.emplace_back();
        } else {
            converted.back() += static_cast<char>(c);
        }
    }
    converted.pop_back();
    std::remove(file.c_str());
    return converted;
}

TEST(MB2MB, converts_every_character_as_the_iconv_command_does) {
    const auto characters = EveryCharacter();
    const auto expected = ConvertedByTheCommand(characters);
    ASSERT_EQ(expected.size(), characters.size());
    std::size_t mapped = 0;
    for (std::size_t i = 0; i < characters.size(); ++i) {
        const Converted converted = Convert(0, characters[i]);
        ASSERT_EQ(converted.bytes, expected[i]) << testing::PrintToString(characters[i]);
        ASSERT_EQ(converted.result, expected[i].empty() ? -1 : 0);
        mapped += !expected[i].empty();
    }
    EXPECT_GT(mapped, 1000000u);
}

}  // namespace

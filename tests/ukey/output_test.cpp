// What stands between the key's texts and the terminal, and how inputs are brought to one line.
#include "output.h"

#include <gtest/gtest.h>

#include "certificate_text.h"
#include "exit_codes.h"

namespace ukey {
namespace {

TEST(Printable, replaces_control_characters_alone) {
    EXPECT_EQ(Printable("a\033[2Jb\nc\x7f"), "a?[2Jb?c?");
    EXPECT_EQ(Printable("岚岫诚 é"), "岚岫诚 é");
    EXPECT_EQ(Printable("\xc2\x9b"), "?");  // the 8-bit escape
}

TEST(Printable, survives_what_is_not_UTF_8) {
    EXPECT_EQ(Printable("\xe5\xb2").size(), 2U);
}

TEST(Columns, counts_wide_characters_twice) {
    EXPECT_EQ(Columns("abc"), 3U);
    EXPECT_EQ(Columns("岚岫"), 4U);
    EXPECT_EQ(Columns("é"), 1U);
}

TEST(OneLine, encodes_DER) {
    EXPECT_EQ(OneLine(std::string("\x30\x03\x02\x01\x05", 5)), "MAMCAQU=");
}

TEST(OneLine, does_not_take_a_text_for_DER) {
    // A key text's header begins with the byte that DER begins with.
    EXPECT_EQ(OneLine(std::string(52, '0')), std::string(52, '0'));
}

TEST(OneLine, takes_the_armour_of_PEM_off) {
    EXPECT_EQ(OneLine("text\n-----BEGIN X-----\r\nAAAA\r\nBBBB\r\n-----END X-----\r\n"),
              "AAAABBBB");
}

TEST(OneLine, joins_lines_and_keeps_the_rest) {
    EXPECT_EQ(OneLine(" A,B\r\nC \n\n"), " A,BC");
}

TEST(ExitKinds, tell_the_codes_of_library_and_software_key) {
    EXPECT_EQ(KindOfCode(0), Exit::kOk);
    EXPECT_EQ(KindOfCode(-101), Exit::kNotLoaded);
    EXPECT_EQ(KindOfCode(-300), Exit::kUnsupported);
    EXPECT_EQ(KindOfCode(-401), Exit::kUsage);
    EXPECT_EQ(KindOfCode(-404), Exit::kBuffer);
    EXPECT_EQ(KindOfCode(0x5B11), Exit::kKeyAbsent);
    EXPECT_EQ(KindOfCode(0x5B22), Exit::kPin);
    EXPECT_EQ(KindOfCode(0x5B31), Exit::kRefused);
    EXPECT_EQ(KindOfCode(0x5B42), Exit::kNotFound);
    EXPECT_EQ(KindOfCode(0x1234), Exit::kFailed);
}

TEST(ExitKinds, have_numbers_and_names_of_their_own) {
    for (const ExitKind& one : kExitKinds) {
        for (const ExitKind& other : kExitKinds) {
            if (&one == &other) continue;
            EXPECT_NE(one.code, other.code);
            EXPECT_STRNE(one.name, other.name);
        }
    }
}

}  // namespace
}  // namespace ukey

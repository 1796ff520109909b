// What stands between the key's texts and the terminal, and how inputs are brought to one line.
#include <gtest/gtest.h>

#include <algorithm>

#include "exit_codes.h"
#include "kit/certificate.h"
#include "names.h"

namespace ukey {
namespace {

TEST(Printable, replaces_control_characters_alone) {
    EXPECT_EQ(Printable("a\033[2Jb\nc\x7f"), "a?[2Jb?c?");
    EXPECT_EQ(Printable("岚岫诚 é"), "岚岫诚 é");
    EXPECT_EQ(Printable("\xc2\x9b"), "?");  // the 8-bit escape
}

TEST(Printable, survives_what_is_not_UTF_8) {
    EXPECT_EQ(Printable("\xe5\xb2"), "??");
    EXPECT_EQ(Printable("\x9b"
                        "2J"),
              "?2J");                        // the escape of an 8-bit terminal
    EXPECT_EQ(Printable("\xc0\x9b"), "??");  // an overlong ESC
    EXPECT_EQ(Printable("\xf8\x80\x80\x80"), "????");
}

TEST(Printable, keeps_text_from_changing_its_direction) {
    EXPECT_EQ(Printable("cod\xe2\x80\xae"
                        "exe"),
              "cod?exe");
    EXPECT_EQ(Printable("\xe2\x81\xa6"), "?");
}

TEST(Printable, keeps_what_it_is_told_to_keep) {
    EXPECT_EQ(Printable("a\tb\n\r", "\n\t"), "a\tb\n?");
}

TEST(Json, escapes_what_a_terminal_would_obey) {
    EXPECT_EQ(Json("\033[2J\x7f\xc2\x9b"
                   "2J")
                  .Text(),
              R"("\u001b[2J\u007f\u009b2J")");
    EXPECT_EQ(Json("岚é").Text(), "\"岚é\"");
}

TEST(Json, keeps_members_in_order_and_reads_what_it_writes) {
    const std::string text = R"({"z":[1,-2,true,null,"x"],"a":{"b":18446744073709551615}})";
    ASSERT_TRUE(Json::Parse(text));
    EXPECT_EQ(Json::Parse(text)->Text(), text);
    EXPECT_FALSE(Json::Parse("{"));
    EXPECT_TRUE(Json::Parse(std::string(100, '[') + std::string(100, ']')));
    EXPECT_FALSE(Json::Parse(std::string(100000, '[') + std::string(100000, ']')));
}

TEST(Json, has_a_size_where_something_is_in_it) {
    EXPECT_EQ(Json::Parse("[1,2]")->size(), 2U);
    EXPECT_EQ(Json::Parse(R"({"a":1})")->size(), 1U);
    EXPECT_TRUE(Json::Parse("[]")->empty());
    EXPECT_EQ(Json::Parse(R"("text")")->size(), 0U);
}

TEST(Fill, puts_the_parts_where_the_sentence_wants_them) {
    EXPECT_EQ(Fill("{2} of {1}", {"a", "b"}), "b of a");
    EXPECT_EQ(Fill("{1}", {"{1}"}), "{1}");
    EXPECT_EQ(Fill("{9} {x} {", {"a"}), "{9} {x} {");
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

TEST(ExitKinds, there_is_one_for_each_kind_of_failure) {
    for (const kesta::KindFacts& kind : kesta::kAllKinds) {
        EXPECT_EQ(
            std::count_if(kExitKinds.begin(), kExitKinds.end(),
                          [&](const Status& status) { return status.number == kind.exitStatus; }),
            1)
            << kind.name;
        const Exit exit = static_cast<Exit>(kind.exitStatus);
        EXPECT_EQ(StatusOf(exit).number, kind.exitStatus);
        EXPECT_STREQ(Name(exit), StatusOf(exit).name);
    }
}

TEST(ExitKinds, have_numbers_and_names_of_their_own) {
    for (const Status& one : kExitKinds) {
        for (const Status& other : kExitKinds) {
            if (&one == &other) continue;
            EXPECT_NE(one.number, other.number);
            EXPECT_STRNE(one.name, other.name);
        }
    }
}

}  // namespace
}  // namespace ukey

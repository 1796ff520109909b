// Inputs that are refused before the library sees them, and their neighbours that are not.
#include "kesta/ukey/checks.hpp"

#include <gtest/gtest.h>

#include "kesta/ukey/texts.hpp"

namespace kesta {
namespace {

const std::string kHeader(places::kKeyHeader);

TEST(KeyText, of_1024_characters_is_accepted) {
    EXPECT_FALSE(checks::KeyText(std::string(1024, 'A')));
}

TEST(KeyText, of_1025_characters_is_refused_with_its_length) {
    const auto reason = checks::KeyText(std::string(1025, 'A'));
    ASSERT_TRUE(reason);
    EXPECT_NE(reason->find("1025"), std::string::npos) << *reason;
}

TEST(KeyText, header_does_not_count) {
    EXPECT_FALSE(checks::KeyText(kHeader + std::string(1024, 'A')));
    EXPECT_TRUE(checks::KeyText(kHeader + std::string(1025, 'A')));
}

TEST(KeyText, header_in_the_middle_takes_80_characters_off_as_well) {
    EXPECT_FALSE(checks::KeyText(std::string(1000, 'A') + kHeader + std::string(24, 'A')));
    EXPECT_TRUE(checks::KeyText(std::string(1000, 'A') + kHeader + std::string(25, 'A')));
}

TEST(KeyText, commas_do_not_count_and_do_not_hide_the_header) {
    std::string text = kHeader;
    text.insert(40, ",");
    EXPECT_FALSE(checks::KeyText(text + std::string(1024, 'A') + ",,,"));
}

TEST(KeyText, line_breaks_count) {
    EXPECT_TRUE(checks::KeyText(std::string(1024, 'A') + "\n"));
}

TEST(Bundle, with_a_key_of_1024_characters_is_accepted) {
    EXPECT_FALSE(checks::Bundle("SignCert(A)|EncPriKey(" + std::string(1024, 'A') + ")"));
}

TEST(Bundle, with_a_key_of_1025_characters_is_refused) {
    EXPECT_TRUE(checks::Bundle("SignCert(A)|EncPriKey(" + std::string(1025, 'A') + ")"));
}

TEST(Bundle, second_key_is_looked_at_too) {
    EXPECT_TRUE(checks::Bundle("EncPriKey(A)|EncPriKey(" + std::string(1025, 'A') + ")"));
}

TEST(Bundle, line_breaks_and_commas_do_not_count) {
    EXPECT_FALSE(checks::Bundle("EncPriKey(" + std::string(1024, 'A') + "\r\n,)"));
}

TEST(Bundle, opener_is_found_when_a_line_break_divides_it) {
    EXPECT_TRUE(checks::Bundle("EncPri\nKey(" + std::string(1025, 'A') + ")"));
}

TEST(Bundle, one_certificate_is_no_bundle) {
    EXPECT_FALSE(checks::Bundle(std::string(5000, 'A')));
    EXPECT_FALSE(checks::Bundle("(EncPriKey(" + std::string(1025, 'A') + ")"));
}

TEST(Bundle, unclosed_key_has_no_content) {
    EXPECT_FALSE(checks::Bundle("EncPriKey(" + std::string(1025, 'A')));
}

TEST(Bundle, sections_are_written_in_their_order) {
    const Bundle bundle{{"S"}, {"K"}, {"E"}};
    EXPECT_EQ(bundle.Text(), "SignCert(S)|EncCert(E)|EncPriKey(K)");
}

TEST(Bundle, content_that_would_end_its_section_is_refused) {
    EXPECT_THROW((Bundle{{"a)b"}, {}, {}}.Text()), Error);
    EXPECT_THROW((Bundle{{"a|b"}, {}, {}}.Text()), Error);
}

class GroupText : public testing::TestWithParam<std::pair<const char*, bool>> {};

TEST_P(GroupText, ending_right_after_a_name_is_refused) {
    EXPECT_EQ(checks::RequestInfo(GetParam().first).has_value(), GetParam().second)
        << GetParam().first;
}

INSTANTIATE_TEST_SUITE_P(
    RequestInfo, GroupText,
    testing::Values(std::pair{"", false}, std::pair{"|||", false}, std::pair{"CertType", true},
                    std::pair{"certtype", true}, std::pair{" CertType ", true},
                    std::pair{"((CertType", true}, std::pair{"CertType(", false},
                    std::pair{"CertType()", false}, std::pair{"CertType()KeyType", false},
                    std::pair{"CertType(1)", false}, std::pair{"CertType(1)KeyType", true},
                    std::pair{"CertType(1)KeyType(2)HashType", true},
                    std::pair{"CertType(1)|KeyType", true}, std::pair{"KeyType|CertType(1)", true},
                    std::pair{"CertType(1)Other", false}, std::pair{"Other", false},
                    std::pair{"Other(1)CertType", false},
                    // The value is skipped up to the next ")", which swallows the next item.
                    std::pair{"CertType()KeyType(2)HashType", true},
                    std::pair{"CertType(1)(HashType", true}, std::pair{"CertType(1) ", false},
                    std::pair{"CertType(1))", false}, std::pair{"CertType(1", false}));

TEST(Text, with_a_NUL_is_refused) {
    EXPECT_TRUE(checks::Text(std::string("a\0b", 3)));
    EXPECT_FALSE(checks::Text("ab"));
}

// (1073737727 + 4096) * 2 is the largest even number that a signed length holds.
static_assert(!checks::IsTooLong(1073737727) && checks::IsTooLong(1073737728));

TEST(ListItem, that_would_be_divided_is_refused) {
    for (const char* const item : {"", "a||b", "|a", "a|"}) {
        EXPECT_TRUE(checks::ListItem(item)) << item;
    }
    EXPECT_FALSE(checks::ListItem("a|b"));
}

TEST(SplitList, leaves_empty_parts_out) {
    EXPECT_EQ(SplitList("||a||b"), (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(SplitList("a"), std::vector<std::string>{"a"});
    EXPECT_TRUE(SplitList("").empty());
}

TEST(RequestInfo, writes_groups) {
    EXPECT_EQ(RequestInfo({{1, 2, 3}, {3, 2, 3}}),
              "CertType(1)KeyType(2)HashType(3)|CertType(3)KeyType(2)HashType(3)");
}

TEST(RequestInfo, takes_one_digit) {
    EXPECT_THROW(RequestInfo({{10, 2, 3}}), Error);
}

}  // namespace
}  // namespace kesta

// The request-information text as the token sees it: which groups and which numbers.
#include <cstring>

#include "api_test.h"
#include "lgn_exception.h"

namespace {

// Numbers of one request: CertType, KeyType, HashType as the token receives them.
using Numbers = std::vector<std::int64_t>;

std::int64_t AsU32(int value) {
    return static_cast<std::uint32_t>(value);
}

struct Row {
    const char* name;
    std::string text;
    std::vector<Numbers> requests;
    int result = 0;
    bool throws = false;

    friend void PrintTo(const Row& row, std::ostream* out) { *out << row.name; }
};

std::vector<Numbers> RequestsSeen() {
    std::vector<Numbers> seen;
    for (const auto& call : TheRecorder().Calls("GMCreatePKCS10")) {
        seen.push_back({call.At(1).value, call.At(2).value, call.At(3).value});
    }
    return seen;
}

std::string Repeated(const std::string& text, int times) {
    std::string joined;
    for (int time = 0; time < times; ++time) joined += text;
    return joined;
}

const std::vector<Row> wellFormed = {
    {"all_three_names", "CertType(1)KeyType(2)HashType(3)", {{1, 2, 3}}},
    {"any_order_of_names", "HashType(3)CertType(1)KeyType(2)", {{1, 2, 3}}},
    {"lower_case", "certtype(1)keytype(2)hashtype(3)", {{1, 2, 3}}},
    {"upper_case", "CERTTYPE(1)KEYTYPE(2)HASHTYPE(3)", {{1, 2, 3}}},
    {"mixed_case", "cERTtYPE(1)", {{1, 0, 0}}},
    {"names_left_out_are_zero", "HashType(3)", {{0, 0, 3}}},
    {"the_last_of_equal_names_counts", "CertType(1)CertType(3)", {{3, 0, 0}}},
    {"blanks_before_and_behind_a_name", " CertType (1) \tKeyType\r\n(2)", {{1, 2, 0}}},
    {"every_kind_of_blank", "\v\fCertType\f\v(1)", {{1, 0, 0}}},
    {"two_groups_carry_values_over",
     "CertType(1)KeyType(2)HashType(3)|KeyType(3)",
     {{1, 2, 3}, {1, 3, 3}}},
    {"doubled_bars_are_one", "CertType(1)||CertType(2)", {{1, 0, 0}, {2, 0, 0}}},
    {"bars_at_both_ends_make_no_group", "||CertType(1)|", {{1, 0, 0}}},
    {"an_empty_text_asks_nothing", "", {}},
    {"bars_alone_ask_nothing", "|||", {}},
    {"one_bar_asks_nothing", "|", {}},
    {"a_group_without_an_item_asks_with_zeros", "((", {{0, 0, 0}}},
    {"a_group_without_an_item_keeps_values", "CertType(4)|(", {{4, 0, 0}, {4, 0, 0}}},
    {"brackets_in_front_of_a_name_are_skipped", "((CertType(1)(KeyType(2)", {{1, 2, 0}}},
};

const std::vector<Row> oddValues = {
    {"the_first_of_two_digits_counts", "CertType(12)KeyType(34)", {{1, 3, 0}}},
    {"no_digit_is_the_closing_bracket", "CertType()", {{AsU32(-7), 0, 0}}},
    {"no_digit_swallows_the_next_item", "CertType()KeyType(2)HashType(3)", {{AsU32(-7), 0, 3}}},
    {"a_group_that_ends_behind_the_bracket_reads_its_NUL", "CertType(", {{AsU32(-48), 0, 0}}},
    {"an_opening_bracket_as_value", "CertType((1)", {{AsU32(-8), 0, 0}}},
    {"a_blank_as_value", "CertType( 1)", {{AsU32(-16), 0, 0}}},
    {"a_letter_as_value", "CertType(a)", {{49, 0, 0}}},
    {"no_closing_bracket", "CertType(1", {{1, 0, 0}}},
    {"no_closing_bracket_before_a_bar", "CertType(1|KeyType(2)", {{1, 0, 0}, {1, 2, 0}}},
    {"no_closing_bracket_swallows_the_next_item", "CertType(1KeyType(2)", {{1, 0, 0}}},
    {"a_byte_of_FF_is_unsigned", "CertType(\xFF)", {{207, 0, 0}}},
    {"a_byte_of_80_is_unsigned", "CertType(\x80)KeyType(\x7F)", {{80, 79, 0}}},
    {"a_control_character_as_value", "CertType(\x01)", {{AsU32(-47), 0, 0}}},
    {"zero", "CertType(0)KeyType(9)", {{0, 9, 0}}},
};

const std::vector<Row> unknownNames = {
    {"another_name", "Colour(1)", {}, -401},
    {"a_blank_inside_a_name", "Cert Type(1)", {}, -401},
    {"a_name_with_more_letters", "CertTypes(1)", {}, -401},
    {"a_name_with_fewer_letters", "CertTyp(1)", {}, -401},
    {"blanks_alone", "   ", {}, -401},
    {"a_blank_name_with_a_value", " (1)", {}, -401},
    {"a_blank_behind_the_last_item", "CertType(1) ", {}, -401},
    {"another_name_without_brackets", "Colour", {}, -401},
    {"a_doubled_closing_bracket", "CertType(1))KeyType(2)", {}, -401},
    {"a_closing_bracket_first", ")(", {}, -401},
    {"a_comma_between_items", "CertType(1),KeyType(2)", {}, -401},
    {"a_known_item_before_it", "CertType(1)Colour(2)", {}, -401},
    {"a_no_break_space_is_no_blank",
     "\xA0"
     "CertType(1)",
     {},
     -401},
    {"a_bar_inside_brackets", "CertType(|)", {{AsU32(-48), 0, 0}}, -401},
    {"the_second_group", "CertType(1)|Colour(2)", {{1, 0, 0}}, -401},
    {"the_third_group", "CertType(1)|CertType(2)|x|KeyType(1)", {{1, 0, 0}, {2, 0, 0}}, -401},
};

const std::vector<Row> valuesPastTheEnd = {
    {"a_name_without_brackets", "CertType", {}, 0, true},
    {"a_blank_behind_the_name", "CertType ", {}, 0, true},
    {"the_second_item", "CertType(1)KeyType", {}, 0, true},
    {"the_second_group", "CertType(1)|HashType", {{1, 0, 0}}, 0, true},
};

const std::vector<Row> hugeTexts = {
    {"blanks", std::string(2000000, ' ') + "CertType(1)", {{1, 0, 0}}},
    {"bars", std::string(2000000, '|'), {}},
    {"brackets", std::string(2000000, '('), {{0, 0, 0}}},
    {"a_value", "CertType(" + std::string(2000000, '5') + ")", {{5, 0, 0}}},
    {"items", Repeated("CertType(1)", 100000), {{1, 0, 0}}},
    {"an_unknown_name", std::string(2000000, 'x'), {}, -401},
    {"groups", Repeated("KeyType(2)|", 2000), std::vector<Numbers>(2000, Numbers{0, 2, 0})},
};

struct RowName {
    template <class Info>
    std::string operator()(const Info& which) const {
        return which.param.name;
    }
};

}  // namespace

class RequestInformation : public testing::TestWithParam<Row> {};
INSTANTIATE_TEST_SUITE_P(WellFormed, RequestInformation, testing::ValuesIn(wellFormed), RowName());
INSTANTIATE_TEST_SUITE_P(OddValue, RequestInformation, testing::ValuesIn(oddValues), RowName());
INSTANTIATE_TEST_SUITE_P(UnknownName, RequestInformation, testing::ValuesIn(unknownNames),
                         RowName());
INSTANTIATE_TEST_SUITE_P(PastTheEnd, RequestInformation, testing::ValuesIn(valuesPastTheEnd),
                         RowName());
INSTANTIATE_TEST_SUITE_P(Huge, RequestInformation, testing::ValuesIn(hugeTexts), RowName());

TEST_P(RequestInformation, reaches_the_token_as_the_grammar_says) {
    const Row& row = GetParam();
    TheRecorder().On("GMCreatePKCS10").Request("P");
    int length = 77;
    if (row.throws) {
        EXPECT_EQ(
            CodeThrownBy([&] { GenerateCertRequest("A1", row.text.c_str(), nullptr, &length); }),
            0x80070057U);
    } else {
        EXPECT_EQ(GenerateCertRequest("A1", row.text.c_str(), nullptr, &length), row.result);
        EXPECT_EQ(G_LastError, row.result);
    }
    EXPECT_EQ(RequestsSeen(), row.requests);
    EXPECT_EQ(TheRecorder().Calls("VerifyPIN").size(), row.requests.size());
    const bool success = !row.throws && row.result == 0;
    const int joined = static_cast<int>(row.requests.size()) * 3 - 2;  // P||P||P
    EXPECT_EQ(length, success ? std::max(joined, 0) + 1 : 77);
    EXPECT_EQ(TheRecorder().LiveRequests(), 0);
    EXPECT_FALSE(LogExists());
}

TEST(RequestInformation, is_only_read) {
    char text[] = " certtype (1) | KeyType(2) ";
    const std::string before = text;
    int length = 0;
    GenerateCertRequest("A1", text, nullptr, &length);
    EXPECT_EQ(text, before);
}

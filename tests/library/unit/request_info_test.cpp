// The request-information text.
#include "request_info.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "lgn/lgn.h"
#include "oracles/request_steps.h"
#include "rounds.h"

namespace {

using Groups = std::vector<std::string>;
using Values = std::array<int, 3>;

Groups GroupsOf(const std::string& text) {
    Groups groups;
    kesta::GroupReader reader(text);
    std::string_view group;
    while (reader.Next(group)) groups.emplace_back(group);
    return groups;
}

TEST(GroupReader, takes_groups_between_bars) {
    EXPECT_EQ(GroupsOf("a|bc|d"), (Groups{"a", "bc", "d"}));
    EXPECT_EQ(GroupsOf("abc"), Groups{"abc"});
}

TEST(GroupReader, counts_a_run_of_bars_as_one) {
    EXPECT_EQ(GroupsOf("a||b|||c"), (Groups{"a", "b", "c"}));
}

TEST(GroupReader, finds_no_group_before_leading_and_after_trailing_bars) {
    EXPECT_EQ(GroupsOf("||a|"), Groups{"a"});
    EXPECT_EQ(GroupsOf("a||"), Groups{"a"});
}

TEST(GroupReader, finds_no_group_in_nothing_or_in_bars_alone) {
    EXPECT_EQ(GroupsOf(""), Groups{});
    EXPECT_EQ(GroupsOf("|"), Groups{});
    EXPECT_EQ(GroupsOf("||||"), Groups{});
}

TEST(GroupReader, knows_no_parentheses_and_no_blanks) {
    EXPECT_EQ(GroupsOf("a(|)| |b"), (Groups{"a(", ")", " ", "b"}));
}

TEST(GroupReader, stays_at_the_end) {
    kesta::GroupReader reader("a");
    std::string_view group;
    EXPECT_TRUE(reader.Next(group));
    EXPECT_FALSE(reader.Next(group));
    EXPECT_FALSE(reader.Next(group));
}

// What parseGroup makes of one group, the parameters being -1 before.
struct GroupCase {
    const char* group;
    steps::Outcome outcome;
    Values values;
};

steps::Outcome Parse(const std::string& group, kesta::RequestParameters& parameters) {
    try {
        return kesta::ParseGroup(group, parameters) ? steps::Outcome::kRead
                                                    : steps::Outcome::kUnknownName;
    } catch (const LGN::CLgnException& exception) {
        EXPECT_EQ(exception.GetCode(), static_cast<int>(0x80070057u));
        return steps::Outcome::kThrown;
    }
}

class ParseGroup : public testing::TestWithParam<GroupCase> {};

TEST_P(ParseGroup, reads_as_agreed) {
    kesta::RequestParameters parameters{-1, -1, -1};
    ASSERT_EQ(Parse(GetParam().group, parameters), GetParam().outcome) << GetParam().group;
    if (GetParam().outcome != steps::Outcome::kRead) return;
    EXPECT_EQ((Values{parameters.certType, parameters.keyType, parameters.hashType}),
              GetParam().values)
        << GetParam().group;
}

constexpr auto kRead = steps::Outcome::kRead;
constexpr auto kUnknown = steps::Outcome::kUnknownName;
constexpr auto kThrown = steps::Outcome::kThrown;

INSTANTIATE_TEST_SUITE_P(
    Items, ParseGroup,
    testing::Values(GroupCase{"CertType(1)KeyType(2)HashType(3)", kRead, {1, 2, 3}},
                    GroupCase{"HashType(3)CertType(1)", kRead, {1, -1, 3}},
                    GroupCase{"CertType(1)CertType(2)", kRead, {2, -1, -1}},
                    GroupCase{"certtype(1)KEYTYPE(2)hAsHtYpE(3)", kRead, {1, 2, 3}},
                    GroupCase{"CertTypes(1)", kUnknown, {}}, GroupCase{"CertTyp(1)", kUnknown, {}},
                    GroupCase{"SignType(1)", kUnknown, {}}));

INSTANTIATE_TEST_SUITE_P(
    Blanks, ParseGroup,
    testing::Values(GroupCase{" CertType(1)", kRead, {1, -1, -1}},
                    GroupCase{"CertType (1)", kRead, {1, -1, -1}},
                    GroupCase{"\t\n\v\f\r CertType \r\f\v\n\t(1)", kRead, {1, -1, -1}},
                    GroupCase{"CertType(1) KeyType(2)", kRead, {1, 2, -1}},
                    GroupCase{"Cert Type(1)", kUnknown, {}},
                    GroupCase{"CertType( 1)", kRead, {' ' - '0', -1, -1}},
                    GroupCase{"CertType(1)KeyType(2) ", kUnknown, {}}, GroupCase{" ", kUnknown, {}},
                    GroupCase{" (1)", kUnknown, {}},
                    GroupCase{"\xa0"
                              "CertType(1)",
                              kUnknown,
                              {}}));

INSTANTIATE_TEST_SUITE_P(
    Values, ParseGroup,
    testing::Values(GroupCase{"CertType(12)", kRead, {1, -1, -1}},
                    GroupCase{"CertType(9)", kRead, {9, -1, -1}},
                    GroupCase{"CertType(-1)", kRead, {'-' - '0', -1, -1}},
                    GroupCase{"CertType(a)", kRead, {'a' - '0', -1, -1}},
                    GroupCase{"CertType(\xff)", kRead, {255 - '0', -1, -1}},
                    GroupCase{"CertType(\x80)", kRead, {128 - '0', -1, -1}},
                    GroupCase{"CertType()", kRead, {-7, -1, -1}},
                    GroupCase{"CertType()KeyType(2)HashType(3)", kRead, {-7, -1, 3}},
                    GroupCase{"CertType()KeyType(2)", kRead, {-7, -1, -1}},
                    GroupCase{"CertType())KeyType(2)HashType(3)", kRead, {-7, -1, 3}},
                    GroupCase{"CertType()))", kRead, {-7, -1, -1}}));

INSTANTIATE_TEST_SUITE_P(Parentheses, ParseGroup,
                         testing::Values(GroupCase{"CertType(", kRead, {0 - '0', -1, -1}},
                                         GroupCase{"CertType(1", kRead, {1, -1, -1}},
                                         GroupCase{"CertType(1KeyType(2)", kRead, {1, -1, -1}},
                                         GroupCase{"CertType((1)", kRead, {'(' - '0', -1, -1}},
                                         GroupCase{"((CertType(1)", kRead, {1, -1, -1}},
                                         GroupCase{"CertType(1)((KeyType(2)", kRead, {1, 2, -1}},
                                         GroupCase{"CertType(1)((", kRead, {1, -1, -1}},
                                         GroupCase{"(((", kRead, {-1, -1, -1}},
                                         GroupCase{"CertType(1))KeyType(2)", kUnknown, {}},
                                         GroupCase{"(1)", kUnknown, {}},
                                         GroupCase{"()", kUnknown, {}},
                                         GroupCase{"CertType", kThrown, {}},
                                         GroupCase{"CertType(1)KeyType", kThrown, {}},
                                         GroupCase{" keytype ", kThrown, {}},
                                         GroupCase{"Nonsense", kUnknown, {}},
                                         GroupCase{"CertType(1)Nonsense", kUnknown, {}}));

steps::Reading Read(const std::string& text) {
    steps::Reading reading;
    kesta::RequestParameters parameters;
    kesta::GroupReader reader(text);
    std::string_view group;
    while (reader.Next(group)) {
        reading.outcome = Parse(std::string(group), parameters);
        if (reading.outcome != kRead) break;
        reading.groups.push_back({parameters.certType, parameters.keyType, parameters.hashType});
    }
    return reading;
}

TEST(RequestParameters, are_zero_until_a_group_names_them) {
    EXPECT_EQ(Read("KeyType(2)").groups, (std::vector<Values>{{0, 2, 0}}));
}

TEST(RequestParameters, carry_over_from_group_to_group) {
    EXPECT_EQ(Read("CertType(1)KeyType(2)HashType(3)|KeyType(3)").groups,
              (std::vector<Values>{{1, 2, 3}, {1, 3, 3}}));
}

// Words, fragments and single characters of the grammar, in any order.
std::string RandomText(std::mt19937& random) {
    static const char* const pieces[] = {"CertType",    "KeyType",    "HashType",    "certtype",
                                         "CertType(1)", "KeyType(2)", "HashType(3)", "CertType(3)",
                                         "(",           ")",          "|",           " ",
                                         "\t",          "1",          "2",           "9",
                                         "\xff",        "x",          "Type",        "()"};
    std::string text;
    for (int n = std::uniform_int_distribution<int>(0, 12)(random); n > 0; --n) {
        text += pieces[std::uniform_int_distribution<std::size_t>(0, 19)(random)];
    }
    return text;
}

TEST(RequestInformation, is_read_as_by_the_plain_steps_on_random_texts) {
    std::mt19937 random(51);
    int outcomes[3] = {};
    for (int round = 0; round < Rounds(300000); ++round) {
        const std::string text = RandomText(random);
        const steps::Reading expected = steps::Read(text);
        const steps::Reading actual = Read(text);
        ASSERT_EQ(actual.outcome, expected.outcome) << text;
        ASSERT_EQ(actual.groups, expected.groups) << text;
        ++outcomes[static_cast<int>(expected.outcome)];
    }
    for (const int n : outcomes) EXPECT_GT(n, Rounds(1000)) << "the texts reach every outcome";
}

}  // namespace

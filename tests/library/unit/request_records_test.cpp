// The records that groups make: every certType and keyType from 0 to 4, for one to three groups.
#include <gtest/gtest.h>

#include <cstring>
#include <sstream>

#include "oracles/request_steps.h"
#include "request_info.h"

namespace {

using Group = std::array<int, 3>;
using GroupList = std::vector<Group>;
using Bytes = std::array<unsigned char, 96>;

// The library's records for some groups, as the token library would see them; nothing on refusal.
std::optional<steps::Records> RecordsOf(const GroupList& groups) {
    kesta::RequestRecords records;
    for (const Group& group : groups) {
        if (!records.Add({group[0], group[1], group[2]})) return std::nullopt;
    }
    steps::Records result;
    result.count = records.count();
    std::memcpy(result.bytes.data(), &records[0], result.bytes.size());
    return result;
}

std::string Shown(const GroupList& groups) {
    std::ostringstream text;
    for (const Group& group : groups) {
        text << '{' << group[0] << ' ' << group[1] << ' ' << group[2] << '}';
    }
    return text.str();
}

void ExpectByTheRule(const GroupList& groups) {
    const auto expected = steps::RecordsFor(groups);
    const auto actual = RecordsOf(groups);
    ASSERT_EQ(actual.has_value(), expected.has_value()) << Shown(groups);
    if (!expected) return;
    EXPECT_EQ(actual->count, expected->count) << Shown(groups);
    EXPECT_EQ(actual->bytes, expected->bytes) << Shown(groups);
}

// One record's bytes.
void Put(Bytes& bytes, std::size_t at, std::int64_t cert, std::int64_t key, std::int64_t hash,
         unsigned char paired) {
    std::memcpy(&bytes[at], &cert, 8);
    std::memcpy(&bytes[at + 8], &key, 8);
    std::memcpy(&bytes[at + 16], &hash, 8);
    bytes[at + 24] = paired;
}

// The hash types differ from group to group, so that a record tells whose it kept.
TEST(RequestRecords, follow_the_rule_for_every_one_to_three_groups) {
    constexpr int kKinds = 25;
    const auto group = [](int kind, int hash) { return Group{kind / 5, kind % 5, hash}; };
    for (int i = 0; i < kKinds; ++i) {
        ExpectByTheRule({group(i, 7)});
        for (int j = 0; j < kKinds; ++j) {
            ExpectByTheRule({group(i, 7), group(j, 8)});
            for (int k = 0; k < kKinds; ++k) {
                ExpectByTheRule({group(i, 7), group(j, 8), group(k, 9)});
            }
        }
    }
}

TEST(RequestRecords, are_all_zero_before_the_first_group) {
    const auto records = RecordsOf({});
    EXPECT_EQ(records->count, 0);
    EXPECT_EQ(records->bytes, Bytes{});
}

TEST(RequestRecords, fold_an_encryption_group_into_its_signing_group) {
    Bytes expected{};
    Put(expected, 0, 1, 2, 7, 1);
    const auto records = RecordsOf({{1, 2, 7}, {3, 2, 8}});
    EXPECT_EQ(records->count, 1);
    EXPECT_EQ(records->bytes, expected) << "the hash type stays the first group's";
}

TEST(RequestRecords, take_the_certType_of_a_signing_group_that_follows) {
    Bytes expected{};
    Put(expected, 0, 1, 2, 7, 1);
    EXPECT_EQ(RecordsOf({{3, 2, 7}, {1, 2, 8}})->bytes, expected);
}

TEST(RequestRecords, stay_apart_for_two_signing_groups) {
    Bytes expected{};
    Put(expected, 0, 1, 2, 7, 0);
    Put(expected, 32, 1, 2, 8, 0);
    EXPECT_EQ(RecordsOf({{1, 2, 7}, {1, 2, 8}})->bytes, expected);
}

TEST(RequestRecords, stay_apart_for_two_encryption_groups) {
    Bytes expected{};
    Put(expected, 0, 3, 2, 7, 0);
    Put(expected, 32, 3, 2, 8, 0);
    EXPECT_EQ(RecordsOf({{3, 2, 7}, {3, 2, 8}})->bytes, expected);
}

TEST(RequestRecords, fold_twice_into_the_same_record) {
    Bytes expected{};
    Put(expected, 0, 4, 2, 7, 1);
    EXPECT_EQ(RecordsOf({{3, 2, 7}, {1, 2, 8}, {4, 2, 9}})->bytes, expected)
        << "a fold does not change what the next group is compared with";
}

TEST(RequestRecords, fold_into_the_latest_of_two_records) {
    Bytes expected{};
    Put(expected, 0, 1, 2, 7, 0);
    Put(expected, 32, 1, 2, 8, 1);
    EXPECT_EQ(RecordsOf({{1, 2, 7}, {1, 2, 8}, {3, 2, 9}})->bytes, expected);
}

TEST(RequestRecords, fold_across_a_group_of_another_key_type) {
    Bytes expected{};
    Put(expected, 0, 1, 2, 7, 1);
    Put(expected, 32, 1, 1, 8, 0);
    EXPECT_EQ(RecordsOf({{1, 2, 7}, {1, 1, 8}, {3, 2, 9}})->bytes, expected);
}

TEST(RequestRecords, refuse_certType_3_with_another_key_type) {
    EXPECT_FALSE(RecordsOf({{3, 1, 7}}).has_value());
    EXPECT_FALSE(RecordsOf({{1, 2, 7}, {3, 0, 8}}).has_value());
}

TEST(RequestRecords, widen_negative_values_with_their_sign) {
    Bytes expected{};
    Put(expected, 0, -7, -48, -1, 0);
    EXPECT_EQ(RecordsOf({{-7, -48, -1}})->bytes, expected);
}

}  // namespace

// Lengths that cannot be true: every operation with an output survives them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "outputs.h"
#include "public_header.h"

namespace kesta {
namespace {

using testing::HasSubstr;

class Outputs : public testing::TestWithParam<Operation> {
protected:
    void SetUp() override { stand_in().Reset(); }
    Output Run() { return GetParam().run(Library::Linked().Try()); }
};

class Texts : public Outputs {};

TEST_P(Texts, end_at_their_NUL_whatever_length_is_reported) {
    stand_in().text = "true text";
    for (const std::uint32_t lie : {0U, 3U, 4000U, 0x7fffffffU, 0x80000000U, 0xffffffffU}) {
        stand_in().reported = lie;
        const Output output = Run();
        EXPECT_EQ(output.code, KESTA_OK) << lie;
        EXPECT_EQ(output.text, "true text") << lie;
    }
}

TEST_P(Texts, that_fill_the_whole_capacity_are_given_whole) {
    stand_in().text = std::string(GetParam().bound, 'a');
    EXPECT_EQ(Run().text.size(), GetParam().bound);
}

TEST_P(Texts, written_beyond_the_capacity_are_a_failure) {
    stand_in().text = "text";
    stand_in().beyond = 16;
    const Output output = Run();
    EXPECT_EQ(output.code, KESTA_BUFFER_TOO_SMALL);
    EXPECT_THAT(output.text, HasSubstr("wrote beyond"));
}

TEST_P(Texts, said_to_need_more_than_can_be_are_a_failure_that_names_both_lengths) {
    stand_in().code = KESTA_BUFFER_TOO_SMALL;
    stand_in().reported = 0xfffffff0U;
    const Output output = Run();
    EXPECT_EQ(output.code, KESTA_BUFFER_TOO_SMALL);
    EXPECT_THAT(output.text, HasSubstr("4294967280"));
    EXPECT_THAT(output.text, HasSubstr(std::to_string(GetParam().bound)));
}

INSTANTIATE_TEST_SUITE_P(Each, Texts, testing::ValuesIn(kTexts),
                         [](const auto& test) { return std::string(test.param.name); });

class Records : public Outputs {};

TEST_P(Records, have_the_length_that_is_reported) {
    stand_in().text = "12345678";
    stand_in().reported = 5;
    EXPECT_EQ(Run().text, "12345");
}

TEST_P(Records, as_long_as_their_bound_are_given_whole) {
    stand_in().text = std::string(GetParam().bound, '1');
    EXPECT_EQ(Run().text, stand_in().text);
}

TEST_P(Records, longer_than_their_bound_are_a_failure) {
    stand_in().text = "12345678";
    stand_in().reported = static_cast<std::uint32_t>(GetParam().bound + 1);
    const Output output = Run();
    EXPECT_EQ(output.code, KESTA_BUFFER_TOO_SMALL);
    EXPECT_THAT(output.text, HasSubstr(std::to_string(GetParam().bound + 1)));
}

TEST_P(Records, written_beyond_the_capacity_are_a_failure) {
    stand_in().beyond = 1;
    EXPECT_EQ(Run().code, KESTA_BUFFER_TOO_SMALL);
}

INSTANTIATE_TEST_SUITE_P(Each, Records, testing::ValuesIn(kRecords),
                         [](const auto& test) { return std::string(test.param.name); });

class Lengths : public testing::Test {
protected:
    void SetUp() override { stand_in().Reset(); }
    const Library library = Library::Linked();
};

TEST_F(Lengths, failing_probe_is_the_failure_of_the_operation) {
    stand_in().probeCode = 0x5B11;
    EXPECT_EQ(library.Try().Sign("SN", 1, 2, "data", "w").code(), 0x5B11);
    EXPECT_EQ(stand_in().calls.size(), 2U);  // the probe, and the message
}

TEST_F(Lengths, probe_beyond_the_bound_is_an_answer_that_cannot_be_true) {
    stand_in().probed = 8201;
    const auto result = library.Try().Sign("SN", 1, 2, "data", "w");
    ASSERT_FALSE(result.ok());
    EXPECT_EQ(result.failure().origin, Failure::Origin::kAnswer);
    EXPECT_THAT(result.failure().message, HasSubstr("at most 8200"));
}

TEST_F(Lengths, probe_of_nothing_still_offers_room_for_the_NUL) {
    stand_in().probed = 0;
    EXPECT_EQ(library.Try().Sign("SN", 1, 2, "data", "w").value(), "");
}

TEST_F(Lengths, probe_that_says_nothing_is_one_of_nothing) {
    stand_in().text = "t";
    stand_in().probeSilent = true;
    EXPECT_EQ(library.Try().Sign("SN", 1, 2, "data", "w").value(), "");
}

TEST_F(Lengths, probe_of_requests_that_is_not_positive_is_a_failure) {
    for (const std::uint32_t lie : {0U, 0x80000000U, 0xffffffffU}) {
        stand_in().probed = lie;
        EXPECT_EQ(library.Try().GenerateCertRequest("SN", "").code(), KESTA_BUFFER_TOO_SMALL);
    }
}

TEST_F(Lengths, decrypted_text_may_be_reported_with_its_NUL_or_without) {
    stand_in().text = "plain";
    for (const std::uint32_t length : {5U, 6U}) {
        stand_in().reported = length;
        EXPECT_EQ(library.AsymDec("SN", 3, 2, "cipher"), "plain");
    }
}

TEST_F(Lengths, decrypted_text_that_a_NUL_cuts_short_is_a_failure) {
    stand_in().text = std::string("plain\0text", 10);
    const auto result = library.Try().AsymDec("SN", 3, 2, "cipher");
    ASSERT_FALSE(result.ok());
    EXPECT_EQ(result.failure().origin, Failure::Origin::kAnswer);
    EXPECT_THAT(result.failure().message, HasSubstr("10 bytes"));
}

TEST_F(Lengths, message_longer_than_the_probe_says_is_given_whole) {
    stand_in().message = std::string(1000, 'm');
    EXPECT_EQ(library.GetErrorMsg(5).size(), 1000U);
    EXPECT_EQ(library.Message(5).size(), 1000U);
}

TEST_F(Lengths, message_of_a_failed_call_or_of_nothing_is_replaced) {
    stand_in().messageCode = KESTA_BUFFER_TOO_SMALL;
    EXPECT_THAT(library.Message(5), HasSubstr("no text"));
    stand_in().messageCode = 0;
    stand_in().message.clear();
    EXPECT_THAT(library.Message(5), HasSubstr("no text"));
}

TEST_F(Lengths, message_that_does_not_fit_is_replaced) {
    stand_in().message = std::string(4095, 'm');
    EXPECT_EQ(library.Message(5).size(), 4095U);
    EXPECT_EQ(library.GetErrorMsg(5).size(), 4095U);
    for (const std::size_t size : {4096U, 100000U}) {
        stand_in().message = std::string(size, 'm');
        EXPECT_THAT(library.Message(5), HasSubstr("no text"));
        EXPECT_EQ(library.Try().GetErrorMsg(5).failure().operation, "GetErrorMsg");
    }
}

}  // namespace
}  // namespace kesta

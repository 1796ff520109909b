// Lengths that cannot be true: every operation with an output survives them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#include "kesta/ukey.hpp"
#include "stand_in.h"

namespace kesta {
namespace {

using testing::HasSubstr;

// An operation with an output, brought to one form: its code and its text.
struct Output {
    std::string text;
    int code;
};
struct Operation {
    const char* name;
    std::size_t bound;  // the capacity that is offered
    std::function<Output(const Library::Quiet&)> run;
};

Output Of(const Result<std::string>& result) {
    return {result.ok() ? result.value() : result.failure().message, result.code()};
}
Output Of(const Result<Bytes>& result) {
    return {result.ok() ? std::string(result.value().begin(), result.value().end())
                        : result.failure().message,
            result.code()};
}
Output Of(const Result<std::vector<std::string>>& result) {
    return {result.ok() ? JoinList(result.value()) : result.failure().message, result.code()};
}

Result<std::vector<std::string>> OneInBatch(const Library::Quiet& quiet) {
    BatchSignature batch;
    batch.list = {"text"};
    return quiet.Batch_Sign(batch);
}

const Operation kTexts[] = {
    {"GetDllVersion", 64, [](auto& q) { return Of(q.GetDllVersion()); }},
    {"GetDriverVersion", 64, [](auto& q) { return Of(q.GetDriverVersion()); }},
    {"GetVidAndPid", 64, [](auto& q) { return Of(q.GetVidAndPid()); }},
    {"GetPrintNumber", 1024, [](auto& q) { return Of(q.GetPrintNumber()); }},
    {"GetVendorInfo", 256, [](auto& q) { return Of(q.GetVendorInfo(1)); }},
    {"GetCert", 4096, [](auto& q) { return Of(q.GetCert("SN", 1, 2)); }},
    {"GetCertDN", 1024, [](auto& q) { return Of(q.GetCertDN("SN", 1, 2)); }},
    {"GetLabel", 512, [](auto& q) { return Of(q.GetLabel("SN")); }},
    {"GetData", 260, [](auto& q) { return Of(q.GetData("ten-letter", 0)); }},
    {"Sign", 8200, [](auto& q) { return Of(q.Sign("SN", 1, 2, "data", "w")); }},
    {"SignHash", 8200, [](auto& q) { return Of(q.SignHash("SN", 1, 2, "hash", 3)); }},
    {"Batch_Sign", 4104, [](auto& q) { return Of(OneInBatch(q)); }},
};
const Operation kRecords[] = {
    {"GetPinInfo", 8, [](auto& q) { return Of(q.GetPinInfo("SN")); }},
    {"GetCertInfo", 1280, [](auto& q) { return Of(q.GetCertInfo("SN", 1)); }},
};

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

TEST_F(Lengths, probe_of_four_gigabytes_is_refused) {
    stand_in().probed = 0xffffffffU;
    EXPECT_EQ(library.Try().Sign("SN", 1, 2, "data", "w").failure().origin,
              Failure::Origin::kRefused);
}

TEST_F(Lengths, probe_of_nothing_still_offers_room_for_the_NUL) {
    stand_in().probed = 0;
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

TEST_F(Lengths, endless_message_is_replaced) {
    stand_in().message = std::string(100000, 'm');
    EXPECT_THAT(library.Message(5), HasSubstr("no text"));
}

}  // namespace
}  // namespace kesta

// GenerateCertRequest beside its grammar: what the token is asked, in what order, and how the
// result is handed out when nothing is cached.
#include "api_test.h"

namespace {

const char* const oneGroup = "CertType(1)KeyType(2)HashType(3)";
const char* const twoGroups = "CertType(1)KeyType(2)HashType(3)|KeyType(3)";

void AnswerWith(const std::string& first, const std::string& second = "") {
    TheRecorder().On("GMCreatePKCS10", 1).Request(first);
    TheRecorder().On("GMCreatePKCS10", 2).Request(second);
}

}  // namespace

TEST(GenerateCertRequest, verifies_and_creates_for_each_group_in_turn) {
    int length = 0;
    EXPECT_EQ(GenerateCertRequest("A1", twoGroups, nullptr, &length), 0);
    EXPECT_EQ(Trace(),
              (Lines{"VerifyPIN(\"A1\")", "GMCreatePKCS10(\"A1\", 1, 2, 3, &null, null, 0)",
                     "VerifyPIN(\"A1\")", "GMCreatePKCS10(\"A1\", 1, 3, 3, &null, null, 0)"}));
    EXPECT_FALSE(LogExists());
}

TEST(GenerateCertRequest, begins_each_call_with_values_of_0) {
    int length = 0;
    EXPECT_EQ(GenerateCertRequest("A1", oneGroup, nullptr, &length), 0);
    TheRecorder().Forget();
    EXPECT_EQ(GenerateCertRequest("A1", "KeyType(4)", nullptr, &length), 0);
    EXPECT_EQ(TheRecorder().Only("GMCreatePKCS10").Describe(),
              "GMCreatePKCS10(\"A1\", 0, 4, 0, &null, null, 0)");
}

TEST(GenerateCertRequest, joins_the_requests_with_two_bars) {
    AnswerWith("first", "second");
    CanaryBuffer buffer(30);
    int length = 30;
    EXPECT_EQ(GenerateCertRequest("A1", twoGroups, buffer.data(), &length), 0);
    EXPECT_TRUE(buffer.HoldsOnly(std::string("first||second", 14)));
    EXPECT_EQ(length, 13);
}

TEST(GenerateCertRequest, takes_a_null_request_for_an_empty_text) {
    TheRecorder().On("GMCreatePKCS10", 2).Request("second");
    CanaryBuffer buffer(30);
    int length = 30;
    EXPECT_EQ(GenerateCertRequest("A1", twoGroups, buffer.data(), &length), 0);
    EXPECT_EQ(buffer.Text(), "||second");
    EXPECT_EQ(length, 8);
}

TEST(GenerateCertRequest, ends_with_bars_when_the_last_request_is_null) {
    TheRecorder().On("GMCreatePKCS10", 1).Request("first");
    CanaryBuffer buffer(30);
    int length = 30;
    EXPECT_EQ(GenerateCertRequest("A1", twoGroups, buffer.data(), &length), 0);
    EXPECT_EQ(buffer.Text(), "first||");
}

TEST(GenerateCertRequest, releases_every_request_it_was_given) {
    AnswerWith("first", "second");
    int length = 0;
    GenerateCertRequest("A1", twoGroups, nullptr, &length);
    EXPECT_EQ(TheRecorder().LiveRequests(), 0);
}

TEST(GenerateCertRequest, clears_the_last_error_when_it_asks_nothing) {
    Initialize();
    G_LastError = unrelated_code;
    int length = 0;
    EXPECT_EQ(GenerateCertRequest("A1", "", nullptr, &length), 0);
    EXPECT_EQ(G_LastError, 0);
}

// ---- The serial number -----------------------------------------------------------------------

TEST(GenerateCertRequest, works_on_one_private_copy_of_the_serial_number) {
    const char sn[] = "A1";
    int length = 0;
    GenerateCertRequest(sn, twoGroups, nullptr, &length);
    const auto calls = TheRecorder().Calls();
    ASSERT_EQ(calls.size(), 4U);
    EXPECT_NE(calls[0].At(0).address, static_cast<const void*>(sn));
    for (const auto& call : calls) EXPECT_EQ(call.At(0).address, calls[0].At(0).address);
}

TEST(GenerateCertRequest, gives_the_token_a_writable_serial_number) {
    TheRecorder().On("VerifyPIN", 1).Writes(0, "B");
    char sn[] = "A1";
    int length = 0;
    GenerateCertRequest(sn, twoGroups, nullptr, &length);
    EXPECT_STREQ(sn, "A1");
    EXPECT_EQ(TheRecorder().Calls("GMCreatePKCS10").at(1).Bytes(0), "B1");
}

TEST(GenerateCertRequest, passes_empty_and_huge_serial_numbers) {
    int length = 0;
    EXPECT_EQ(GenerateCertRequest("", oneGroup, nullptr, &length), 0);
    EXPECT_EQ(TheRecorder().Only("VerifyPIN").Bytes(0), "");
    TheRecorder().Forget();
    const std::string huge(3000000, 'S');
    EXPECT_EQ(GenerateCertRequest(huge.c_str(), oneGroup, nullptr, &length), 0);
    EXPECT_TRUE(TheRecorder().Only("GMCreatePKCS10").Bytes(0) == huge);
}

// ---- Pointers --------------------------------------------------------------------------------

TEST(GenerateCertRequest, requires_three_pointers) {
    CanaryBuffer buffer(30);
    int length = 30;
    struct Case {
        const char* sn;
        const char* request;
        int* length;
    };
    for (const Case& call : {Case{nullptr, oneGroup, &length}, Case{"A1", nullptr, &length},
                             Case{"A1", oneGroup, nullptr}}) {
        G_LastError = 0;
        EXPECT_EQ(GenerateCertRequest(call.sn, call.request, buffer.data(), call.length), -401);
        EXPECT_EQ(G_LastError, -401);
        EXPECT_EQ(GenerateCertRequest(call.sn, call.request, nullptr, call.length), -401);
    }
    EXPECT_EQ(length, 30);
    EXPECT_TRUE(buffer.Untouched());
    EXPECT_TRUE(g_initFlag) << "the library is initialised before the arguments are checked";
    EXPECT_EQ(Trace(), Lines{});
}

// ---- Fresh results ---------------------------------------------------------------------------

TEST(FreshRequest, probe_answers_the_length_with_the_NUL) {
    AnswerWith("first", "second");
    int length = -3;
    EXPECT_EQ(GenerateCertRequest("A1", twoGroups, nullptr, &length), 0);
    EXPECT_EQ(length, 14);
    EXPECT_EQ(G_LastError, 0);
}

TEST(FreshRequest, accepts_a_capacity_equal_to_the_text_and_writes_the_NUL_behind_it) {
    AnswerWith("first");
    CanaryBuffer buffer(6);
    int length = 5;
    EXPECT_EQ(GenerateCertRequest("A1", oneGroup, buffer.data(), &length), 0);
    EXPECT_TRUE(buffer.HoldsOnly(std::string("first", 6)));
    EXPECT_EQ(length, 5);
}

TEST(FreshRequest, too_small_answers_the_length_without_the_NUL) {
    AnswerWith("first");
    CanaryBuffer buffer(6);
    int length = 4;
    EXPECT_EQ(GenerateCertRequest("A1", oneGroup, buffer.data(), &length), -404);
    EXPECT_EQ(length, 5);
    EXPECT_EQ(G_LastError, -404);
    EXPECT_TRUE(buffer.Untouched());
    EXPECT_EQ(TheRecorder().LiveRequests(), 0);
}

TEST(FreshRequest, compares_a_negative_capacity_as_signed) {
    AnswerWith("first");
    CanaryBuffer buffer(6);
    int length = -1;
    EXPECT_EQ(GenerateCertRequest("A1", oneGroup, buffer.data(), &length), -404);
    EXPECT_EQ(length, 5);
    EXPECT_TRUE(buffer.Untouched());
}

TEST(FreshRequest, too_small_caches_nothing) {
    TheRecorder().On("GMCreatePKCS10").Request("first");
    CanaryBuffer buffer(6);
    int length = 4;
    ASSERT_EQ(GenerateCertRequest("A1", oneGroup, buffer.data(), &length), -404);
    TheRecorder().Forget();
    EXPECT_EQ(GenerateCertRequest("A1", oneGroup, buffer.data(), &length), 0);
    EXPECT_EQ(TheRecorder().Names(), (Lines{"VerifyPIN", "GMCreatePKCS10"}));
}

TEST(FreshRequest, handed_out_at_once_caches_nothing) {
    TheRecorder().On("GMCreatePKCS10").Request("first");
    CanaryBuffer buffer(6);
    int length = 6;
    ASSERT_EQ(GenerateCertRequest("A1", oneGroup, buffer.data(), &length), 0);
    TheRecorder().Forget();
    ASSERT_EQ(GenerateCertRequest("A1", oneGroup, buffer.data(), &length), 0);
    EXPECT_EQ(TheRecorder().Names(), (Lines{"VerifyPIN", "GMCreatePKCS10"}));
}

TEST(FreshRequest, without_groups_is_an_empty_text) {
    CanaryBuffer buffer(3);
    int length = 0;
    EXPECT_EQ(GenerateCertRequest("A1", "|", buffer.data(), &length), 0);
    EXPECT_TRUE(buffer.HoldsOnly(std::string(1, '\0')));
    EXPECT_EQ(length, 0);
    EXPECT_EQ(Trace(), Lines{});
}

TEST(FreshRequest, of_megabytes_is_handed_out_whole) {
    const std::string huge(3000000, 'R');
    AnswerWith(huge, huge);
    CanaryBuffer buffer(6000003);
    int length = 6000003;
    EXPECT_EQ(GenerateCertRequest("A1", twoGroups, buffer.data(), &length), 0);
    EXPECT_TRUE(buffer.HoldsOnly(huge + "||" + huge + '\0'));
}

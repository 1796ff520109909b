// GenerateCertRequest beside its grammar: what the token is asked, in what order, and how the
// result is handed out when nothing is cached.
#include "api_test.h"

namespace {

const char* const one_group = "CertType(1)KeyType(2)HashType(3)";
const char* const two_groups = "CertType(1)KeyType(2)HashType(3)|KeyType(3)";

void answer_with(const std::string& first, const std::string& second = "") {
    recorder().on("GMCreatePKCS10", 1).request(first);
    recorder().on("GMCreatePKCS10", 2).request(second);
}

}  // namespace

TEST(GenerateCertRequest, verifies_and_creates_for_each_group_in_turn) {
    int length = 0;
    EXPECT_EQ(GenerateCertRequest("A1", two_groups, nullptr, &length), 0);
    EXPECT_EQ(trace(),
              (Lines{"VerifyPIN(\"A1\")", "GMCreatePKCS10(\"A1\", 1, 2, 3, &null, null, 0)",
                     "VerifyPIN(\"A1\")", "GMCreatePKCS10(\"A1\", 1, 3, 3, &null, null, 0)"}));
    EXPECT_FALSE(log_exists());
}

TEST(GenerateCertRequest, begins_each_call_with_values_of_0) {
    int length = 0;
    EXPECT_EQ(GenerateCertRequest("A1", one_group, nullptr, &length), 0);
    recorder().forget();
    EXPECT_EQ(GenerateCertRequest("A1", "KeyType(4)", nullptr, &length), 0);
    EXPECT_EQ(recorder().only("GMCreatePKCS10").describe(),
              "GMCreatePKCS10(\"A1\", 0, 4, 0, &null, null, 0)");
}

TEST(GenerateCertRequest, joins_the_requests_with_two_bars) {
    answer_with("first", "second");
    CanaryBuffer buffer(30);
    int length = 30;
    EXPECT_EQ(GenerateCertRequest("A1", two_groups, buffer.data(), &length), 0);
    EXPECT_TRUE(buffer.holds_only(std::string("first||second", 14)));
    EXPECT_EQ(length, 13);
}

TEST(GenerateCertRequest, takes_a_null_request_for_an_empty_text) {
    recorder().on("GMCreatePKCS10", 2).request("second");
    CanaryBuffer buffer(30);
    int length = 30;
    EXPECT_EQ(GenerateCertRequest("A1", two_groups, buffer.data(), &length), 0);
    EXPECT_EQ(buffer.text(), "||second");
    EXPECT_EQ(length, 8);
}

TEST(GenerateCertRequest, ends_with_bars_when_the_last_request_is_null) {
    recorder().on("GMCreatePKCS10", 1).request("first");
    CanaryBuffer buffer(30);
    int length = 30;
    EXPECT_EQ(GenerateCertRequest("A1", two_groups, buffer.data(), &length), 0);
    EXPECT_EQ(buffer.text(), "first||");
}

TEST(GenerateCertRequest, releases_every_request_it_was_given) {
    answer_with("first", "second");
    int length = 0;
    GenerateCertRequest("A1", two_groups, nullptr, &length);
    EXPECT_EQ(recorder().live_requests(), 0);
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
    GenerateCertRequest(sn, two_groups, nullptr, &length);
    const auto calls = recorder().calls();
    ASSERT_EQ(calls.size(), 4U);
    EXPECT_NE(calls[0].at(0).address, static_cast<const void*>(sn));
    for (const auto& call : calls) EXPECT_EQ(call.at(0).address, calls[0].at(0).address);
}

TEST(GenerateCertRequest, gives_the_token_a_writable_serial_number) {
    recorder().on("VerifyPIN", 1).writes(0, "B");
    char sn[] = "A1";
    int length = 0;
    GenerateCertRequest(sn, two_groups, nullptr, &length);
    EXPECT_STREQ(sn, "A1");
    EXPECT_EQ(recorder().calls("GMCreatePKCS10").at(1).bytes(0), "B1");
}

TEST(GenerateCertRequest, passes_empty_and_huge_serial_numbers) {
    int length = 0;
    EXPECT_EQ(GenerateCertRequest("", one_group, nullptr, &length), 0);
    EXPECT_EQ(recorder().only("VerifyPIN").bytes(0), "");
    recorder().forget();
    const std::string huge(3000000, 'S');
    EXPECT_EQ(GenerateCertRequest(huge.c_str(), one_group, nullptr, &length), 0);
    EXPECT_TRUE(recorder().only("GMCreatePKCS10").bytes(0) == huge);
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
    for (const Case& call : {Case{nullptr, one_group, &length}, Case{"A1", nullptr, &length},
                             Case{"A1", one_group, nullptr}}) {
        G_LastError = 0;
        EXPECT_EQ(GenerateCertRequest(call.sn, call.request, buffer.data(), call.length), -401);
        EXPECT_EQ(G_LastError, -401);
        EXPECT_EQ(GenerateCertRequest(call.sn, call.request, nullptr, call.length), -401);
    }
    EXPECT_EQ(length, 30);
    EXPECT_TRUE(buffer.untouched());
    EXPECT_TRUE(g_initFlag) << "the library is initialised before the arguments are checked";
    EXPECT_EQ(trace(), Lines{});
}

// ---- Fresh results ---------------------------------------------------------------------------

TEST(FreshRequest, probe_answers_the_length_with_the_NUL) {
    answer_with("first", "second");
    int length = -3;
    EXPECT_EQ(GenerateCertRequest("A1", two_groups, nullptr, &length), 0);
    EXPECT_EQ(length, 14);
    EXPECT_EQ(G_LastError, 0);
}

TEST(FreshRequest, accepts_a_capacity_equal_to_the_text_and_writes_the_NUL_behind_it) {
    answer_with("first");
    CanaryBuffer buffer(6);
    int length = 5;
    EXPECT_EQ(GenerateCertRequest("A1", one_group, buffer.data(), &length), 0);
    EXPECT_TRUE(buffer.holds_only(std::string("first", 6)));
    EXPECT_EQ(length, 5);
}

TEST(FreshRequest, too_small_answers_the_length_without_the_NUL) {
    answer_with("first");
    CanaryBuffer buffer(6);
    int length = 4;
    EXPECT_EQ(GenerateCertRequest("A1", one_group, buffer.data(), &length), -404);
    EXPECT_EQ(length, 5);
    EXPECT_EQ(G_LastError, -404);
    EXPECT_TRUE(buffer.untouched());
    EXPECT_EQ(recorder().live_requests(), 0);
}

TEST(FreshRequest, compares_a_negative_capacity_as_signed) {
    answer_with("first");
    CanaryBuffer buffer(6);
    int length = -1;
    EXPECT_EQ(GenerateCertRequest("A1", one_group, buffer.data(), &length), -404);
    EXPECT_EQ(length, 5);
    EXPECT_TRUE(buffer.untouched());
}

TEST(FreshRequest, too_small_caches_nothing) {
    recorder().on("GMCreatePKCS10").request("first");
    CanaryBuffer buffer(6);
    int length = 4;
    ASSERT_EQ(GenerateCertRequest("A1", one_group, buffer.data(), &length), -404);
    recorder().forget();
    EXPECT_EQ(GenerateCertRequest("A1", one_group, buffer.data(), &length), 0);
    EXPECT_EQ(recorder().names(), (Lines{"VerifyPIN", "GMCreatePKCS10"}));
}

TEST(FreshRequest, handed_out_at_once_caches_nothing) {
    recorder().on("GMCreatePKCS10").request("first");
    CanaryBuffer buffer(6);
    int length = 6;
    ASSERT_EQ(GenerateCertRequest("A1", one_group, buffer.data(), &length), 0);
    recorder().forget();
    ASSERT_EQ(GenerateCertRequest("A1", one_group, buffer.data(), &length), 0);
    EXPECT_EQ(recorder().names(), (Lines{"VerifyPIN", "GMCreatePKCS10"}));
}

TEST(FreshRequest, without_groups_is_an_empty_text) {
    CanaryBuffer buffer(3);
    int length = 0;
    EXPECT_EQ(GenerateCertRequest("A1", "|", buffer.data(), &length), 0);
    EXPECT_TRUE(buffer.holds_only(std::string(1, '\0')));
    EXPECT_EQ(length, 0);
    EXPECT_EQ(trace(), Lines{});
}

TEST(FreshRequest, of_megabytes_is_handed_out_whole) {
    const std::string huge(3000000, 'R');
    answer_with(huge, huge);
    CanaryBuffer buffer(6000003);
    int length = 6000003;
    EXPECT_EQ(GenerateCertRequest("A1", two_groups, buffer.data(), &length), 0);
    EXPECT_TRUE(buffer.holds_only(huge + "||" + huge + '\0'));
}

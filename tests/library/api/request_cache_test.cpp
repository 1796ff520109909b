// The cache of one probed request: what fills it, what uses it up, what discards it.
#include "api_test.h"

namespace {

const char* const sn = "A1";
const char* const info = "CertType(1)";
const std::string probed = "probed";  // 6 characters

// Leaves a probed text behind; what is made from then on reads "fresh".
void probe() {
    recorder().on("GMCreatePKCS10").request(probed);
    int length = 0;
    ASSERT_EQ(GenerateCertRequest(sn, info, nullptr, &length), 0);
    ASSERT_EQ(length, 7);
    recorder().on("GMCreatePKCS10").request("fresh");
    recorder().forget();
}

std::string fetch(const char* from = sn, const char* text = info) {
    CanaryBuffer buffer(20, '\0');
    int length = 19;
    const int result = GenerateCertRequest(from, text, buffer.data(), &length);
    return result ? std::to_string(result) : buffer.text();
}

bool is_cached() {
    return fetch() == probed;
}

}  // namespace

TEST(RequestCache, gives_the_probed_text_without_asking_the_token) {
    probe();
    CanaryBuffer buffer(7);
    int length = 7;
    G_LastError = unrelated_code;
    EXPECT_EQ(GenerateCertRequest(sn, info, buffer.data(), &length), 0);
    EXPECT_TRUE(buffer.holds_only(probed + '\0'));
    EXPECT_EQ(length, 6);
    EXPECT_EQ(G_LastError, 0);
    EXPECT_EQ(trace(), Lines{});
    EXPECT_FALSE(log_exists());
}

TEST(RequestCache, is_used_up_by_the_call_that_fetches) {
    probe();
    EXPECT_EQ(fetch(), probed);
    EXPECT_EQ(fetch(), "fresh");
    EXPECT_EQ(recorder().names(), (Lines{"VerifyPIN", "GMCreatePKCS10"}));
}

TEST(RequestCache, accepts_a_capacity_equal_to_the_text) {
    probe();
    CanaryBuffer buffer(7);
    int length = 6;
    EXPECT_EQ(GenerateCertRequest(sn, info, buffer.data(), &length), 0);
    EXPECT_TRUE(buffer.holds_only(probed + '\0'));
    EXPECT_EQ(length, 6);
}

TEST(RequestCache, stays_when_the_buffer_is_too_small_and_answers_the_length_with_the_NUL) {
    probe();
    CanaryBuffer buffer(7);
    int length = 5;
    EXPECT_EQ(GenerateCertRequest(sn, info, buffer.data(), &length), -404);
    EXPECT_EQ(length, 7);
    EXPECT_EQ(G_LastError, -404);
    EXPECT_TRUE(buffer.untouched());
    EXPECT_EQ(trace(), Lines{});
    EXPECT_EQ(GenerateCertRequest(sn, info, buffer.data(), &length), 0);
    EXPECT_EQ(buffer.text(), probed);
    EXPECT_EQ(G_LastError, 0);
}

TEST(RequestCache, compares_a_negative_capacity_as_signed) {
    probe();
    CanaryBuffer buffer(7);
    int length = -1;
    EXPECT_EQ(GenerateCertRequest(sn, info, buffer.data(), &length), -404);
    EXPECT_EQ(length, 7);
    EXPECT_TRUE(buffer.untouched());
}

TEST(RequestCache, holds_an_empty_text_too) {
    int length = 0;
    ASSERT_EQ(GenerateCertRequest(sn, "|", nullptr, &length), 0);
    ASSERT_EQ(length, 1);
    CanaryBuffer buffer(3);
    length = 0;
    EXPECT_EQ(GenerateCertRequest(sn, "|", buffer.data(), &length), 0);
    EXPECT_TRUE(buffer.holds_only(std::string(1, '\0')));
    EXPECT_EQ(length, 0);
}

TEST(RequestCache, of_an_empty_text_refuses_a_negative_capacity) {
    int length = 0;
    ASSERT_EQ(GenerateCertRequest(sn, "", nullptr, &length), 0);
    CanaryBuffer buffer(3);
    length = -1;
    EXPECT_EQ(GenerateCertRequest(sn, "", buffer.data(), &length), -404);
    EXPECT_EQ(length, 1);
}

TEST(RequestCache, holds_megabytes) {
    const std::string huge(4000000, 'R');
    recorder().on("GMCreatePKCS10").request(huge);
    int length = 0;
    ASSERT_EQ(GenerateCertRequest(sn, info, nullptr, &length), 0);
    EXPECT_EQ(length, 4000001);
    CanaryBuffer buffer(4000001);
    EXPECT_EQ(GenerateCertRequest(sn, info, buffer.data(), &length), 0);
    EXPECT_TRUE(buffer.holds_only(huge + '\0'));
}

TEST(RequestCache, compares_texts_not_addresses) {
    probe();
    const std::string same_sn = sn, same_info = info;
    EXPECT_EQ(fetch(same_sn.c_str(), same_info.c_str()), probed);
}

TEST(RequestCache, keeps_texts_of_its_own) {
    recorder().on("GMCreatePKCS10").request(probed);
    char own_sn[] = "A1", own_info[] = "CertType(1)";
    int length = 0;
    ASSERT_EQ(GenerateCertRequest(own_sn, own_info, nullptr, &length), 0);
    own_sn[0] = own_info[0] = 'X';
    recorder().forget();
    EXPECT_EQ(fetch("A1", "CertType(1)"), probed);
    EXPECT_EQ(trace(), Lines{});
}

TEST(RequestCache, remembers_the_serial_number_as_the_caller_gave_it) {
    recorder().on("GMCreatePKCS10").request(probed).writes(0, "ZZ");
    int length = 0;
    ASSERT_EQ(GenerateCertRequest(sn, info, nullptr, &length), 0);
    recorder().on("GMCreatePKCS10").request("fresh");
    EXPECT_TRUE(is_cached());
}

// ---- Discarded -------------------------------------------------------------------------------

TEST(RequestCache, is_discarded_by_a_fetch_with_another_request) {
    probe();
    EXPECT_EQ(fetch(sn, "CertType(2)"), "fresh");
    EXPECT_FALSE(is_cached());
}

TEST(RequestCache, is_discarded_by_a_fetch_with_another_serial_number) {
    probe();
    EXPECT_EQ(fetch("A2"), "fresh");
    EXPECT_FALSE(is_cached());
}

TEST(RequestCache, tells_upper_from_lower_case) {
    probe();
    EXPECT_EQ(fetch(sn, "certtype(1)"), "fresh");
    probe();
    EXPECT_EQ(fetch("a1"), "fresh");
}

TEST(RequestCache, tells_equivalent_requests_apart) {
    probe();
    EXPECT_EQ(fetch(sn, "CertType(1)|"), "fresh");
}

TEST(RequestCache, is_discarded_before_generation_whatever_comes_of_it) {
    probe();
    recorder().on("VerifyPIN", 1).returns(9);
    EXPECT_EQ(fetch(sn, "CertType(2)"), "9");
    EXPECT_FALSE(is_cached());
    probe();
    EXPECT_EQ(fetch(sn, "Colour(2)"), "-401");
    EXPECT_FALSE(is_cached());
}

TEST(RequestCache, is_discarded_by_a_fetch_of_others_into_too_small_a_buffer) {
    probe();
    CanaryBuffer buffer(7);
    int length = 1;
    EXPECT_EQ(GenerateCertRequest(sn, "CertType(2)", buffer.data(), &length), -404);
    EXPECT_EQ(length, 5);
    EXPECT_FALSE(is_cached());
}

// ---- Replaced --------------------------------------------------------------------------------

TEST(RequestCache, is_replaced_by_a_probe_of_the_same) {
    probe();
    int length = 0;
    EXPECT_EQ(GenerateCertRequest(sn, info, nullptr, &length), 0);
    EXPECT_EQ(recorder().names(), (Lines{"VerifyPIN", "GMCreatePKCS10"}));
    EXPECT_EQ(length, 6);
    recorder().forget();
    EXPECT_EQ(fetch(), "fresh");
    EXPECT_EQ(trace(), Lines{});
}

TEST(RequestCache, is_replaced_by_a_probe_of_another) {
    probe();
    int length = 0;
    EXPECT_EQ(GenerateCertRequest(sn, "CertType(2)", nullptr, &length), 0);
    recorder().forget();
    EXPECT_EQ(fetch(sn, "CertType(2)"), "fresh");
    EXPECT_EQ(trace(), Lines{});
}

// ---- Kept ------------------------------------------------------------------------------------

TEST(RequestCache, stays_when_a_probe_fails) {
    for (const char* const entry : {"VerifyPIN", "GMCreatePKCS10"}) {
        probe();
        recorder().on(entry, 1).returns(9);
        int length = 0;
        EXPECT_EQ(GenerateCertRequest(sn, info, nullptr, &length), 9);
        recorder().on(entry, 1).returns(0);
        EXPECT_TRUE(is_cached()) << entry;
    }
}

TEST(RequestCache, stays_when_a_probe_is_malformed) {
    probe();
    int length = 0;
    EXPECT_EQ(GenerateCertRequest(sn, "Colour(1)", nullptr, &length), -401);
    EXPECT_ANY_THROW(GenerateCertRequest(sn, "CertType", nullptr, &length));
    EXPECT_TRUE(is_cached());
}

TEST(RequestCache, stays_when_a_pointer_is_missing) {
    probe();
    CanaryBuffer buffer(7);
    int length = 7;
    EXPECT_EQ(GenerateCertRequest(nullptr, info, buffer.data(), &length), -401);
    EXPECT_EQ(GenerateCertRequest(sn, nullptr, buffer.data(), &length), -401);
    EXPECT_EQ(GenerateCertRequest(sn, info, buffer.data(), nullptr), -401);
    EXPECT_EQ(GenerateCertRequest(sn, info, nullptr, nullptr), -401);
    EXPECT_TRUE(is_cached());
}

TEST(RequestCache, stays_over_Finalize_and_other_exports) {
    probe();
    Finalize();
    EXPECT_EQ(VerifyPIN(sn), 0);
    EXPECT_EQ(Batch_ImportX509Cert(sn, "cert"), 0);
    EXPECT_TRUE(is_cached());
}

// ---- Imports ---------------------------------------------------------------------------------

TEST(RequestCache, is_released_by_an_import_whatever_comes_of_it) {
    probe();
    EXPECT_EQ(ImportX509Cert(sn, "cert"), 0);
    EXPECT_FALSE(is_cached());
    probe();
    recorder().on("GMWritePKCS7").returns(9);
    EXPECT_EQ(ImportX509Cert(sn, "cert"), 9);
    EXPECT_FALSE(is_cached());
}

TEST(RequestCache, is_released_by_an_import_with_a_key_whatever_comes_of_it) {
    probe();
    EXPECT_EQ(ImportEncX509Cert(sn, "cert", "key"), 0);
    EXPECT_FALSE(is_cached());
    probe();
    recorder().on("GMImportPriKey").returns(9);
    EXPECT_EQ(ImportEncX509Cert(sn, "cert", "key"), 9);
    EXPECT_FALSE(is_cached());
}

TEST(RequestCache, is_released_before_an_import_asks_the_token) {
    const auto refuse = [](const recording::Call&) { throw 1; };
    recorder().on("GMWritePKCS7").does(refuse);
    recorder().on("GMImportPriKey").does(refuse);
    probe();
    EXPECT_ANY_THROW(ImportX509Cert(sn, "cert"));
    EXPECT_FALSE(is_cached());
    probe();
    EXPECT_ANY_THROW(ImportEncX509Cert(sn, "cert", "key"));
    EXPECT_FALSE(is_cached());
}

TEST(RequestCache, stays_when_an_imports_pointer_is_missing) {
    probe();
    EXPECT_EQ(ImportX509Cert(nullptr, "cert"), -401);
    EXPECT_EQ(ImportX509Cert(sn, nullptr), -401);
    EXPECT_EQ(ImportEncX509Cert(nullptr, "cert", "key"), -401);
    EXPECT_EQ(ImportEncX509Cert(sn, nullptr, "key"), -401);
    EXPECT_EQ(ImportEncX509Cert(sn, "cert", nullptr), -401);
    EXPECT_TRUE(is_cached());
}

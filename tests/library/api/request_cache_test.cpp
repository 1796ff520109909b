// The cache of one probed request: what fills it, what uses it up, what discards it.
#include "api_test.h"

namespace {

const char* const sn = "A1";
const char* const info = "CertType(1)";
const std::string probed = "probed";  // 6 characters

// Leaves a probed text behind; what is made from then on reads "fresh".
void Probe() {
    TheRecorder().On("GMCreatePKCS10").Request(probed);
    int length = 0;
    ASSERT_EQ(GenerateCertRequest(sn, info, nullptr, &length), 0);
    ASSERT_EQ(length, 7);
    TheRecorder().On("GMCreatePKCS10").Request("fresh");
    TheRecorder().Forget();
}

std::string Fetch(const char* from = sn, const char* text = info) {
    CanaryBuffer buffer(20, '\0');
    int length = 19;
    const int result = GenerateCertRequest(from, text, buffer.data(), &length);
    return result ? std::to_string(result) : buffer.Text();
}

bool IsCached() {
    return Fetch() == probed;
}

}  // namespace

TEST(RequestCache, gives_the_probed_text_without_asking_the_token) {
    Probe();
    CanaryBuffer buffer(7);
    int length = 7;
    G_LastError = unrelated_code;
    EXPECT_EQ(GenerateCertRequest(sn, info, buffer.data(), &length), 0);
    EXPECT_TRUE(buffer.HoldsOnly(probed + '\0'));
    EXPECT_EQ(length, 6);
    EXPECT_EQ(G_LastError, 0);
    EXPECT_EQ(Trace(), Lines{});
    EXPECT_FALSE(LogExists());
}

TEST(RequestCache, is_used_up_by_the_call_that_fetches) {
    Probe();
    EXPECT_EQ(Fetch(), probed);
    EXPECT_EQ(Fetch(), "fresh");
    EXPECT_EQ(TheRecorder().Names(), (Lines{"VerifyPIN", "GMCreatePKCS10"}));
}

TEST(RequestCache, accepts_a_capacity_equal_to_the_text) {
    Probe();
    CanaryBuffer buffer(7);
    int length = 6;
    EXPECT_EQ(GenerateCertRequest(sn, info, buffer.data(), &length), 0);
    EXPECT_TRUE(buffer.HoldsOnly(probed + '\0'));
    EXPECT_EQ(length, 6);
}

TEST(RequestCache, stays_when_the_buffer_is_too_small_and_answers_the_length_with_the_NUL) {
    Probe();
    CanaryBuffer buffer(7);
    int length = 5;
    EXPECT_EQ(GenerateCertRequest(sn, info, buffer.data(), &length), -404);
    EXPECT_EQ(length, 7);
    EXPECT_EQ(G_LastError, -404);
    EXPECT_TRUE(buffer.Untouched());
    EXPECT_EQ(Trace(), Lines{});
    EXPECT_EQ(GenerateCertRequest(sn, info, buffer.data(), &length), 0);
    EXPECT_EQ(buffer.Text(), probed);
    EXPECT_EQ(G_LastError, 0);
}

TEST(RequestCache, compares_a_negative_capacity_as_signed) {
    Probe();
    CanaryBuffer buffer(7);
    int length = -1;
    EXPECT_EQ(GenerateCertRequest(sn, info, buffer.data(), &length), -404);
    EXPECT_EQ(length, 7);
    EXPECT_TRUE(buffer.Untouched());
}

TEST(RequestCache, holds_an_empty_text_too) {
    int length = 0;
    ASSERT_EQ(GenerateCertRequest(sn, "|", nullptr, &length), 0);
    ASSERT_EQ(length, 1);
    CanaryBuffer buffer(3);
    length = 0;
    EXPECT_EQ(GenerateCertRequest(sn, "|", buffer.data(), &length), 0);
    EXPECT_TRUE(buffer.HoldsOnly(std::string(1, '\0')));
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
    TheRecorder().On("GMCreatePKCS10").Request(huge);
    int length = 0;
    ASSERT_EQ(GenerateCertRequest(sn, info, nullptr, &length), 0);
    EXPECT_EQ(length, 4000001);
    CanaryBuffer buffer(4000001);
    EXPECT_EQ(GenerateCertRequest(sn, info, buffer.data(), &length), 0);
    EXPECT_TRUE(buffer.HoldsOnly(huge + '\0'));
}

TEST(RequestCache, compares_texts_not_addresses) {
    Probe();
    const std::string sameSn = sn, sameInfo = info;
    EXPECT_EQ(Fetch(sameSn.c_str(), sameInfo.c_str()), probed);
}

TEST(RequestCache, keeps_texts_of_its_own) {
    TheRecorder().On("GMCreatePKCS10").Request(probed);
    char ownSn[] = "A1", ownInfo[] = "CertType(1)";
    int length = 0;
    ASSERT_EQ(GenerateCertRequest(ownSn, ownInfo, nullptr, &length), 0);
    ownSn[0] = ownInfo[0] = 'X';
    TheRecorder().Forget();
    EXPECT_EQ(Fetch("A1", "CertType(1)"), probed);
    EXPECT_EQ(Trace(), Lines{});
}

TEST(RequestCache, remembers_the_serial_number_as_the_caller_gave_it) {
    TheRecorder().On("GMCreatePKCS10").Request(probed).Writes(0, "ZZ");
    int length = 0;
    ASSERT_EQ(GenerateCertRequest(sn, info, nullptr, &length), 0);
    TheRecorder().On("GMCreatePKCS10").Request("fresh");
    EXPECT_TRUE(IsCached());
}

// ---- Discarded -------------------------------------------------------------------------------

TEST(RequestCache, is_discarded_by_a_fetch_with_another_request) {
    Probe();
    EXPECT_EQ(Fetch(sn, "CertType(2)"), "fresh");
    EXPECT_FALSE(IsCached());
}

TEST(RequestCache, is_discarded_by_a_fetch_with_another_serial_number) {
    Probe();
    EXPECT_EQ(Fetch("A2"), "fresh");
    EXPECT_FALSE(IsCached());
}

TEST(RequestCache, tells_upper_from_lower_case) {
    Probe();
    EXPECT_EQ(Fetch(sn, "certtype(1)"), "fresh");
    Probe();
    EXPECT_EQ(Fetch("a1"), "fresh");
}

TEST(RequestCache, tells_equivalent_requests_apart) {
    Probe();
    EXPECT_EQ(Fetch(sn, "CertType(1)|"), "fresh");
}

TEST(RequestCache, is_discarded_before_generation_whatever_comes_of_it) {
    Probe();
    TheRecorder().On("VerifyPIN", 1).Returns(9);
    EXPECT_EQ(Fetch(sn, "CertType(2)"), "9");
    EXPECT_FALSE(IsCached());
    Probe();
    EXPECT_EQ(Fetch(sn, "Colour(2)"), "-401");
    EXPECT_FALSE(IsCached());
}

TEST(RequestCache, is_discarded_by_a_fetch_of_others_into_too_small_a_buffer) {
    Probe();
    CanaryBuffer buffer(7);
    int length = 1;
    EXPECT_EQ(GenerateCertRequest(sn, "CertType(2)", buffer.data(), &length), -404);
    EXPECT_EQ(length, 5);
    EXPECT_FALSE(IsCached());
}

// ---- Replaced --------------------------------------------------------------------------------

TEST(RequestCache, is_replaced_by_a_probe_of_the_same) {
    Probe();
    int length = 0;
    EXPECT_EQ(GenerateCertRequest(sn, info, nullptr, &length), 0);
    EXPECT_EQ(TheRecorder().Names(), (Lines{"VerifyPIN", "GMCreatePKCS10"}));
    EXPECT_EQ(length, 6);
    TheRecorder().Forget();
    EXPECT_EQ(Fetch(), "fresh");
    EXPECT_EQ(Trace(), Lines{});
}

TEST(RequestCache, is_replaced_by_a_probe_of_another) {
    Probe();
    int length = 0;
    EXPECT_EQ(GenerateCertRequest(sn, "CertType(2)", nullptr, &length), 0);
    TheRecorder().Forget();
    EXPECT_EQ(Fetch(sn, "CertType(2)"), "fresh");
    EXPECT_EQ(Trace(), Lines{});
}

// ---- Kept ------------------------------------------------------------------------------------

TEST(RequestCache, stays_when_a_probe_fails) {
    for (const char* const entry : {"VerifyPIN", "GMCreatePKCS10"}) {
        Probe();
        TheRecorder().On(entry, 1).Returns(9);
        int length = 0;
        EXPECT_EQ(GenerateCertRequest(sn, info, nullptr, &length), 9);
        TheRecorder().On(entry, 1).Returns(0);
        EXPECT_TRUE(IsCached()) << entry;
    }
}

TEST(RequestCache, stays_when_a_probe_is_malformed) {
    Probe();
    int length = 0;
    EXPECT_EQ(GenerateCertRequest(sn, "Colour(1)", nullptr, &length), -401);
    EXPECT_ANY_THROW(GenerateCertRequest(sn, "CertType", nullptr, &length));
    EXPECT_TRUE(IsCached());
}

TEST(RequestCache, stays_when_a_pointer_is_missing) {
    Probe();
    CanaryBuffer buffer(7);
    int length = 7;
    EXPECT_EQ(GenerateCertRequest(nullptr, info, buffer.data(), &length), -401);
    EXPECT_EQ(GenerateCertRequest(sn, nullptr, buffer.data(), &length), -401);
    EXPECT_EQ(GenerateCertRequest(sn, info, buffer.data(), nullptr), -401);
    EXPECT_EQ(GenerateCertRequest(sn, info, nullptr, nullptr), -401);
    EXPECT_TRUE(IsCached());
}

TEST(RequestCache, stays_over_Finalize_and_other_exports) {
    Probe();
    Finalize();
    EXPECT_EQ(VerifyPIN(sn), 0);
    EXPECT_EQ(Batch_ImportX509Cert(sn, "cert"), 0);
    EXPECT_TRUE(IsCached());
}

// ---- Imports ---------------------------------------------------------------------------------

TEST(RequestCache, is_released_by_an_import_whatever_comes_of_it) {
    Probe();
    EXPECT_EQ(ImportX509Cert(sn, "cert"), 0);
    EXPECT_FALSE(IsCached());
    Probe();
    TheRecorder().On("GMWritePKCS7").Returns(9);
    EXPECT_EQ(ImportX509Cert(sn, "cert"), 9);
    EXPECT_FALSE(IsCached());
}

TEST(RequestCache, is_released_by_an_import_with_a_key_whatever_comes_of_it) {
    Probe();
    EXPECT_EQ(ImportEncX509Cert(sn, "cert", "key"), 0);
    EXPECT_FALSE(IsCached());
    Probe();
    TheRecorder().On("GMImportPriKey").Returns(9);
    EXPECT_EQ(ImportEncX509Cert(sn, "cert", "key"), 9);
    EXPECT_FALSE(IsCached());
}

TEST(RequestCache, is_released_before_an_import_asks_the_token) {
    const auto refuse = [](const recording::Call&) { throw 1; };
    TheRecorder().On("GMWritePKCS7").Does(refuse);
    TheRecorder().On("GMImportPriKey").Does(refuse);
    Probe();
    EXPECT_ANY_THROW(ImportX509Cert(sn, "cert"));
    EXPECT_FALSE(IsCached());
    Probe();
    EXPECT_ANY_THROW(ImportEncX509Cert(sn, "cert", "key"));
    EXPECT_FALSE(IsCached());
}

TEST(RequestCache, stays_when_an_imports_pointer_is_missing) {
    Probe();
    EXPECT_EQ(ImportX509Cert(nullptr, "cert"), -401);
    EXPECT_EQ(ImportX509Cert(sn, nullptr), -401);
    EXPECT_EQ(ImportEncX509Cert(nullptr, "cert", "key"), -401);
    EXPECT_EQ(ImportEncX509Cert(sn, nullptr, "key"), -401);
    EXPECT_EQ(ImportEncX509Cert(sn, "cert", nullptr), -401);
    EXPECT_TRUE(IsCached());
}

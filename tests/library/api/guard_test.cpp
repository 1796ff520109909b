// After a failed binding no entry point is called: what would ask the token answers -101.
#include "api_test.h"
#include "every_export.h"

namespace {

void make_nothing_bindable() {
    install::close_entirely();
    install::remove_token_library();
}

bool asks_token(const Export& which) {
    return which.asks_token();
}
bool answers_alone(const Export& which) {
    return !which.asks_token() && which.name != "Initialize";
}

}  // namespace

class ExportThatAsksTheToken : public testing::TestWithParam<Export> {};
INSTANTIATE_TEST_SUITE_P(Guard, ExportThatAsksTheToken,
                         testing::ValuesIn(exports_where(asks_token)), ExportName());

TEST_P(ExportThatAsksTheToken, answers_minus_101_without_the_library_file) {
    make_nothing_bindable();
    G_LastError = unrelated_code;
    EXPECT_EQ(GetParam().call(), GetParam().without_token);
    if (GetParam().without_token == -101) {
        EXPECT_EQ(G_LastError, -101);
    }
    EXPECT_FALSE(g_initFlag);
}

// The pointers found before the last one are stored and stay when the library is closed.
TEST_P(ExportThatAsksTheToken, never_uses_the_pointers_of_an_incomplete_library) {
    install::put_library_without("SetCachePinFlag");
    EXPECT_EQ(GetParam().call(), GetParam().without_token);
    EXPECT_EQ(GetParam().call(), GetParam().without_token);
    EXPECT_EQ(trace(), Lines{});
    EXPECT_FALSE(install::is_open());
}

TEST_P(ExportThatAsksTheToken, never_uses_the_pointers_of_an_earlier_binding) {
    ASSERT_EQ(Initialize(), 0);
    ASSERT_EQ(VerifyPIN("A1"), 0);
    Finalize();
    install::close_entirely();
    install::put_library_without("GetMediaID");
    recorder().forget();
    EXPECT_EQ(Initialize(), -101);
    EXPECT_EQ(GetParam().call(), GetParam().without_token);
    EXPECT_EQ(trace(), Lines{});
}

TEST_P(ExportThatAsksTheToken, asks_as_soon_as_the_library_can_be_bound) {
    make_nothing_bindable();
    GetParam().call();
    install::put_complete_library();
    ASSERT_EQ(Initialize(), 0);
    EXPECT_NE(GetParam().call(), -101);
    EXPECT_NE(trace(), Lines{});
}

class ExportThatAnswersAlone : public testing::TestWithParam<Export> {};
INSTANTIATE_TEST_SUITE_P(Guard, ExportThatAnswersAlone,
                         testing::ValuesIn(exports_where(answers_alone)), ExportName());

TEST_P(ExportThatAnswersAlone, answers_as_ever_without_the_library_file) {
    make_nothing_bindable();
    EXPECT_EQ(GetParam().call(), GetParam().without_token);
    EXPECT_FALSE(g_initFlag);
}

// ---- Where the guard stands ------------------------------------------------------------------

TEST(Guard, leaves_argument_checks_in_front) {
    make_nothing_bindable();
    EXPECT_EQ(GetErrorMsg(1, nullptr, nullptr), -401);
    EXPECT_EQ(GenerateCertRequest(nullptr, "", nullptr, nullptr), -401);
    EXPECT_EQ(ImportX509Cert(nullptr, "cert"), -401);
    EXPECT_EQ(ImportEncX509Cert("A1", nullptr, "key"), -401);
    EXPECT_EQ(CheckDriverIntegrity(2), -300);
}

TEST(Guard, leaves_fixed_probes_as_they_are) {
    make_nothing_bindable();
    int length = 0;
    EXPECT_EQ(GetErrorMsg(1, nullptr, &length), 0);
    EXPECT_EQ(length, 200);
    unsigned size = 0;
    EXPECT_EQ(GetPinInfo("A1", nullptr, &size), 0);
    EXPECT_EQ(size, 8U);
    EXPECT_EQ(GetCertInfo("A1", 1, nullptr, &size), 0);
    EXPECT_EQ(size, 1280U);
}

TEST(Guard, lets_a_request_without_groups_succeed) {
    make_nothing_bindable();
    int length = 0;
    EXPECT_EQ(GenerateCertRequest("A1", "||", nullptr, &length), 0);
    EXPECT_EQ(length, 1);
    EXPECT_EQ(G_LastError, 0);
}

TEST(Guard, lets_the_parser_refuse_before_it_answers) {
    make_nothing_bindable();
    int length = 0;
    EXPECT_EQ(GenerateCertRequest("A1", "Colour(1)", nullptr, &length), -401);
    EXPECT_EQ(GenerateCertRequest("A1", "CertType(1)|Colour(1)", nullptr, &length), -101);
}

TEST(Guard, lets_a_cached_request_be_fetched) {
    recorder().on("GMCreatePKCS10").request("MIIB");
    int length = 0;
    ASSERT_EQ(GenerateCertRequest("A1", "CertType(1)", nullptr, &length), 0);
    Finalize();
    make_nothing_bindable();
    CanaryBuffer buffer(5);
    EXPECT_EQ(GenerateCertRequest("A1", "CertType(1)", buffer.data(), &length), 0);
    EXPECT_TRUE(buffer.holds_only(std::string("MIIB", 5)));
}

TEST(Guard, lets_an_import_forget_the_cached_request_first) {
    recorder().on("GMCreatePKCS10").request("MIIB");
    int length = 0;
    ASSERT_EQ(GenerateCertRequest("A1", "CertType(1)", nullptr, &length), 0);
    Finalize();
    make_nothing_bindable();
    EXPECT_EQ(ImportX509Cert("A1", "cert"), -101);
    CanaryBuffer buffer(5);
    EXPECT_EQ(GenerateCertRequest("A1", "CertType(1)", buffer.data(), &length), -101);
    EXPECT_TRUE(buffer.untouched());
}

TEST(Guard, lets_the_escrowed_key_be_logged_first) {
    make_nothing_bindable();
    EXPECT_EQ(ImportEncX509Cert("A1", "cert", "k,ey"), -101);
    EXPECT_EQ(log_lines(), (Lines{"CZRKUSBKey::ImportEncX509Cert  strPriKeyTemp:|"
                                  "strPriKeyTemp:key"}));
}

TEST(Guard, leaves_the_outputs_alone) {
    make_nothing_bindable();
    char serial[] = "as it was";  // logged as the caller passed it
    CanaryBuffer buffer(100);
    int length = 77;
    unsigned size = 77;
    EXPECT_EQ(GetErrorMsg(1, buffer.data(), &length), -101);
    EXPECT_EQ(GetPrintNumber(serial, &size), -101);
    EXPECT_STREQ(serial, "as it was");
    EXPECT_EQ(GetCert("A1", 1, 2, buffer.data(), &size), -101);
    EXPECT_EQ(GenerateCertRequest("A1", "CertType(1)", buffer.data(), &length), -101);
    EXPECT_TRUE(buffer.untouched());
    EXPECT_EQ(length, 77);
    EXPECT_EQ(size, 77U);
}

TEST(Guard, lets_identity_and_end_be_logged_with_its_code) {
    make_nothing_bindable();
    unsigned length = 0x11;
    EXPECT_EQ(GetPrintNumber(nullptr, &length), -101);
    EXPECT_EQ(log_lines(), (Lines{"GetPrintNumber|Begin pnSNLen = 00000011",
                                  "GetPrintNumber|End G_LastError: FFFFFF9B"}));
}

// It asks whether a library is bound, not whether the flag is set.
TEST(Guard, lets_an_export_that_never_initialises_ask_after_Finalize) {
    ASSERT_EQ(Initialize(), 0);
    Finalize();
    EXPECT_EQ(SetCachePinFlag("A1", -1), 0);
    EXPECT_EQ(trace(), (Lines{"SetCachePinFlag(\"A1\", -1)"}));
    EXPECT_FALSE(g_initFlag);
}

// After a failed binding no entry point is called: what would ask the token answers -101.
#include "api_test.h"
#include "every_export.h"

namespace {

void MakeNothingBindable() {
    install::CloseEntirely();
    install::RemoveTokenLibrary();
}

bool AsksToken(const Export& which) {
    return which.AsksToken();
}
bool AnswersAlone(const Export& which) {
    return !which.AsksToken() && which.name != "Initialize";
}

}  // namespace

class ExportThatAsksTheToken : public testing::TestWithParam<Export> {};
INSTANTIATE_TEST_SUITE_P(Guard, ExportThatAsksTheToken, testing::ValuesIn(ExportsWhere(AsksToken)),
                         ExportName());

TEST_P(ExportThatAsksTheToken, answers_minus_101_without_the_library_file) {
    MakeNothingBindable();
    G_LastError = unrelated_code;
    EXPECT_EQ(GetParam().Make(), GetParam().withoutToken);
    if (GetParam().withoutToken == -101) {
        EXPECT_EQ(G_LastError, -101);
    }
    EXPECT_FALSE(g_initFlag);
}

// The pointers found before the last one are stored and stay when the library is closed.
TEST_P(ExportThatAsksTheToken, never_uses_the_pointers_of_an_incomplete_library) {
    install::PutLibraryWithout("SetCachePinFlag");
    EXPECT_EQ(GetParam().Make(), GetParam().withoutToken);
    EXPECT_EQ(GetParam().Make(), GetParam().withoutToken);
    EXPECT_EQ(Trace(), Lines{});
    EXPECT_FALSE(install::IsOpen());
}

TEST_P(ExportThatAsksTheToken, never_uses_the_pointers_of_an_earlier_binding) {
    ASSERT_EQ(Initialize(), 0);
    ASSERT_EQ(VerifyPIN("A1"), 0);
    Finalize();
    install::CloseEntirely();
    install::PutLibraryWithout("GetMediaID");
    TheRecorder().Forget();
    EXPECT_EQ(Initialize(), -101);
    EXPECT_EQ(GetParam().Make(), GetParam().withoutToken);
    EXPECT_EQ(Trace(), Lines{});
}

TEST_P(ExportThatAsksTheToken, asks_as_soon_as_the_library_can_be_bound) {
    MakeNothingBindable();
    GetParam().Make();
    install::PutCompleteLibrary();
    ASSERT_EQ(Initialize(), 0);
    EXPECT_NE(GetParam().Make(), -101);
    EXPECT_NE(Trace(), Lines{});
}

class ExportThatAnswersAlone : public testing::TestWithParam<Export> {};
INSTANTIATE_TEST_SUITE_P(Guard, ExportThatAnswersAlone,
                         testing::ValuesIn(ExportsWhere(AnswersAlone)), ExportName());

TEST_P(ExportThatAnswersAlone, answers_as_ever_without_the_library_file) {
    MakeNothingBindable();
    EXPECT_EQ(GetParam().Make(), GetParam().withoutToken);
    EXPECT_FALSE(g_initFlag);
}

// ---- Where the guard stands ------------------------------------------------------------------

TEST(Guard, leaves_argument_checks_in_front) {
    MakeNothingBindable();
    EXPECT_EQ(GetErrorMsg(1, nullptr, nullptr), -401);
    EXPECT_EQ(GenerateCertRequest(nullptr, "", nullptr, nullptr), -401);
    EXPECT_EQ(ImportX509Cert(nullptr, "cert"), -401);
    EXPECT_EQ(ImportEncX509Cert("A1", nullptr, "key"), -401);
    EXPECT_EQ(CheckDriverIntegrity(2), -300);
}

TEST(Guard, leaves_fixed_probes_as_they_are) {
    MakeNothingBindable();
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
    MakeNothingBindable();
    int length = 0;
    EXPECT_EQ(GenerateCertRequest("A1", "||", nullptr, &length), 0);
    EXPECT_EQ(length, 1);
    EXPECT_EQ(G_LastError, 0);
}

TEST(Guard, lets_the_parser_refuse_before_it_answers) {
    MakeNothingBindable();
    int length = 0;
    EXPECT_EQ(GenerateCertRequest("A1", "Colour(1)", nullptr, &length), -401);
    EXPECT_EQ(GenerateCertRequest("A1", "CertType(1)|Colour(1)", nullptr, &length), -101);
}

TEST(Guard, lets_a_cached_request_be_fetched) {
    TheRecorder().On("GMCreatePKCS10").Request("MIIB");
    int length = 0;
    ASSERT_EQ(GenerateCertRequest("A1", "CertType(1)", nullptr, &length), 0);
    Finalize();
    MakeNothingBindable();
    CanaryBuffer buffer(5);
    EXPECT_EQ(GenerateCertRequest("A1", "CertType(1)", buffer.data(), &length), 0);
    EXPECT_TRUE(buffer.HoldsOnly(std::string("MIIB", 5)));
}

TEST(Guard, lets_an_import_forget_the_cached_request_first) {
    TheRecorder().On("GMCreatePKCS10").Request("MIIB");
    int length = 0;
    ASSERT_EQ(GenerateCertRequest("A1", "CertType(1)", nullptr, &length), 0);
    Finalize();
    MakeNothingBindable();
    EXPECT_EQ(ImportX509Cert("A1", "cert"), -101);
    CanaryBuffer buffer(5);
    EXPECT_EQ(GenerateCertRequest("A1", "CertType(1)", buffer.data(), &length), -101);
    EXPECT_TRUE(buffer.Untouched());
}

TEST(Guard, lets_the_escrowed_key_be_logged_first) {
    MakeNothingBindable();
    EXPECT_EQ(ImportEncX509Cert("A1", "cert", "k,ey"), -101);
    EXPECT_EQ(LogLines(), (Lines{"CZRKUSBKey::ImportEncX509Cert  strPriKeyTemp:|"
                                 "strPriKeyTemp:key"}));
}

TEST(Guard, leaves_the_outputs_alone) {
    MakeNothingBindable();
    char serial[] = "as it was";  // logged as the caller passed it
    CanaryBuffer buffer(100);
    int length = 77;
    unsigned size = 77;
    EXPECT_EQ(GetErrorMsg(1, buffer.data(), &length), -101);
    EXPECT_EQ(GetPrintNumber(serial, &size), -101);
    EXPECT_STREQ(serial, "as it was");
    EXPECT_EQ(GetCert("A1", 1, 2, buffer.data(), &size), -101);
    EXPECT_EQ(GenerateCertRequest("A1", "CertType(1)", buffer.data(), &length), -101);
    EXPECT_TRUE(buffer.Untouched());
    EXPECT_EQ(length, 77);
    EXPECT_EQ(size, 77U);
}

TEST(Guard, lets_identity_and_end_be_logged_with_its_code) {
    MakeNothingBindable();
    unsigned length = 0x11;
    EXPECT_EQ(GetPrintNumber(nullptr, &length), -101);
    EXPECT_EQ(LogLines(), (Lines{"GetPrintNumber|Begin pnSNLen = 00000011",
                                 "GetPrintNumber|End G_LastError: FFFFFF9B"}));
}

// It asks whether a library is bound, not whether the flag is set.
TEST(Guard, lets_an_export_that_never_initialises_ask_after_Finalize) {
    ASSERT_EQ(Initialize(), 0);
    Finalize();
    EXPECT_EQ(SetCachePinFlag("A1", -1), 0);
    EXPECT_EQ(Trace(), (Lines{"SetCachePinFlag(\"A1\", -1)"}));
    EXPECT_FALSE(g_initFlag);
}

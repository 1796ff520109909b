// While the token library cannot be bound: what needs no token answers as ever, and checks stand in
// front of the guard's -101.
#include "api_test.h"

namespace {

class Unbound : public testing::Test {
protected:
    Unbound() {
        install::CloseEntirely();
        install::RemoveTokenLibrary();
    }

    // Refused by the checks, with nothing written.
    void ExpectRefused(int code) {
        EXPECT_EQ(code, -401);
        EXPECT_EQ(G_LastError, -401);
        G_LastError = unrelated_code;
    }
    // Answered by the guard, with nothing written.
    void ExpectGuarded(int code) {
        EXPECT_EQ(code, -101);
        EXPECT_EQ(G_LastError, -101);
        EXPECT_TRUE(buffer.Untouched());
        EXPECT_EQ(size, 77U);
        EXPECT_EQ(length, 77);
    }
    // A probe that asks nobody: 0 stands in G_LastError although the binding has just failed.
    void ExpectProbed(int code, unsigned wanted) {
        EXPECT_EQ(code, 0);
        EXPECT_EQ(G_LastError, 0);
        EXPECT_EQ(size, wanted);
    }

    CanaryBuffer buffer{100};
    unsigned size = 77;
    int length = 77;
    const char* const name = "name567890";
};

}  // namespace

// ---- Answers that need no token -----------------------------------------------------------------

TEST_F(Unbound, probes_of_signatures_and_decryption_are_computed) {
    ExpectProbed(Sign("A1", 1, 2, "data", "warning", nullptr, &size), 8200);
    ExpectProbed(SignHash("A1", 1, 2, "hash", 3, nullptr, &size), 8200);
    ExpectProbed(AsymDec("A1", 1, 2, "cipher", nullptr, &size), 8204);
    ExpectProbed(
        Batch_Sign(1, nullptr, 3, 4, "abc", nullptr, nullptr, 8, 9, "x||y||z", 11, nullptr, &size),
        12322);
}

TEST_F(Unbound, fixed_probes_store_0_after_the_failed_binding) {
    ExpectProbed(GetPinInfo("A1", nullptr, &size), 8);
    ExpectProbed(GetCertInfo("A1", 1, nullptr, &size), 1280);
    ExpectProbed(WaitForKeyEvent(nullptr, nullptr, &size), 17);
}

TEST_F(Unbound, constant_queries_and_the_stop_store_0_after_the_failed_binding) {
    ExpectProbed(GetDriverVersion(nullptr, &size), 13);
    ExpectProbed(GetDllVersion(nullptr, &size), 13);
    ExpectProbed(GetVidAndPid(nullptr, &size), 9);
    ExpectProbed(GetVendorInfo(2, nullptr, &size), 20);
    ExpectProbed(StopDetectUKey(), 20);
}

// ---- Checks -------------------------------------------------------------------------------------

TEST_F(Unbound, exports_check_the_pointers_of_certificates_first) {
    ExpectRefused(GetCert("A1", 1, 2, nullptr, nullptr));
    ExpectRefused(GetCert(nullptr, 1, 2, nullptr, &size));
    ExpectRefused(GetCertDN("A1", 1, 2, nullptr, nullptr));
    ExpectRefused(GetCertDN(nullptr, 1, 2, nullptr, &length));
    ExpectRefused(GetCertInfo("A1", 1, buffer.data(), nullptr));
    ExpectRefused(GetPinInfo("A1", buffer.data(), nullptr));
}

TEST_F(Unbound, exports_check_the_pointers_of_signatures_first) {
    char* const out = buffer.data();
    ExpectRefused(Sign("A1", 1, 2, "data", nullptr, out, &size));
    ExpectRefused(SignHash("A1", 1, 2, nullptr, 3, out, &size));
    ExpectRefused(AsymDec("A1", 1, 2, nullptr, out, &size));
    ExpectRefused(Batch_Sign(0, nullptr, 3, 4, "a", nullptr, nullptr, 8, 9, "", 11, out, nullptr));
    ExpectRefused(Batch_Sign(1, nullptr, 3, 4, "a", nullptr, nullptr, 8, 9, "", 11, out, &size));
}

TEST_F(Unbound, exports_check_labels_data_and_locale_first) {
    ExpectRefused(GetLabel("", buffer.data(), &length));
    ExpectRefused(SetLabel("A1", nullptr));
    ExpectRefused(SetData("short", 1, "value"));
    ExpectRefused(SetData(name, 1, std::string(301, 'v').c_str()));
    ExpectRefused(GetData("short", 1, buffer.data(), &length));
    ExpectRefused(SetCharset(nullptr, "A1"));
    ExpectRefused(SetLanguage("en", nullptr));
}

// ---- The guard ----------------------------------------------------------------------------------

TEST_F(Unbound, reads_leave_the_outputs_alone) {
    char* const out = buffer.data();
    ExpectGuarded(GetCert("A1", 1, 2, out, &size));
    ExpectGuarded(GetCertDN("A1", 1, 2, out, &length));
    ExpectGuarded(GetCertInfo("A1", 1, out, &size));
    ExpectGuarded(GetPinInfo("A1", out, &size));
    ExpectGuarded(GetLabel("A1", out, &length));
    ExpectGuarded(GetData(name, 1, out, &length));
}

TEST_F(Unbound, probes_that_ask_the_token_leave_the_length_alone) {
    ExpectGuarded(GetPrintNumber(nullptr, &size));
    ExpectGuarded(GetCert("A1", 1, 2, nullptr, &size));
    ExpectGuarded(GetCertDN("A1", 1, 2, nullptr, &length));
    ExpectGuarded(GetLabel("A1", nullptr, &length));
    ExpectGuarded(GetData(name, 1, nullptr, &length));
}

TEST_F(Unbound, signatures_and_decryption_leave_the_outputs_alone) {
    char* const out = buffer.data();
    ExpectGuarded(Sign("A1", 1, 2, "data", "warning", out, &size));
    ExpectGuarded(SignHash("A1", 1, 2, "hash", 3, out, &size));
    ExpectGuarded(AsymDec("A1", 1, 2, "cipher", out, &size));
    ExpectGuarded(Batch_Sign(0, nullptr, 3, 4, "a", nullptr, nullptr, 8, 9, "", 11, out, &size));
}

// ---- The batch request --------------------------------------------------------------------------

TEST_F(Unbound, batch_request_is_read_before_the_token_is_missed) {
    for (const int initialise : {0, 1}) {
        for (const char* const text : {"Colour(1)", "CertType(3)KeyType(1)",
                                       "KeyType(1)|HashType(1)|HashType(1)|HashType(1)"}) {
            ExpectRefused(
                Batch_InitAndGenerateCertRequest("A1", initialise, text, nullptr, &length));
        }
    }
    const char* const fine = "CertType(1)KeyType(2)";
    ExpectRefused(Batch_InitAndGenerateCertRequest("A1", 2, fine, nullptr, &length));
    ExpectGuarded(Batch_InitAndGenerateCertRequest("A1", 0, fine, nullptr, &length));
    ExpectGuarded(Batch_InitAndGenerateCertRequest("A1", 1, fine, buffer.data(), &length));
}

TEST_F(Unbound, batch_request_without_usable_records_succeeds_unless_the_key_is_initialised) {
    EXPECT_EQ(Batch_InitAndGenerateCertRequest("A1", 0, "KeyType(2)|", nullptr, &length), 0);
    EXPECT_EQ(length, 1);
    EXPECT_EQ(G_LastError, 0);
    EXPECT_EQ(Batch_InitAndGenerateCertRequest("A1", 1, "", nullptr, &length), -101);
}

// ---- The bundle ---------------------------------------------------------------------------------

TEST_F(Unbound, bundle_is_classified_before_the_token_is_missed) {
    ExpectRefused(Batch_ImportX509Cert("A1", nullptr));
    ExpectRefused(Batch_ImportX509Cert("A1", "Cert(A)"));
    ExpectRefused(Batch_ImportX509Cert("A1", "signcert(A)"));
}

TEST_F(Unbound, bundle_logs_the_guards_code_as_the_tokens) {
    EXPECT_EQ(Batch_ImportX509Cert("A1", "cert"), -101);
    EXPECT_EQ(Batch_ImportX509Cert("A1", "SignCert(A)|EncPriKey(K)"), -101);
    EXPECT_EQ(Batch_ImportX509Cert("A1", "EncCert(B)|EncPriKey(K)"), -101);
    EXPECT_EQ(Batch_ImportX509Cert("A1", "EncCert(B)"), -101);
    EXPECT_EQ(G_LastError, -101);
    const std::string begin = "CZRKUSBKey::Batch_ImportX509Cert|begin, strP7: ";
    EXPECT_EQ(LogLines(), (Lines{begin + "cert",
                                 "Batch_ImportX509Cert|end, err: -101, Cert GMWritePKCS7 error.",
                                 begin + "SignCert(A)|EncPriKey(K)",
                                 "Batch_ImportX509Cert|end, err: -101, Cert GMWritePKCS7 error.",
                                 begin + "EncCert(B)|EncPriKey(K)",
                                 "CZRKUSBKey::Batch_ImportX509Cert  strPriKeyTemp:|strPriKeyTemp:K",
                                 "Batch_ImportX509Cert|end, err: -101, Cert GMImportPriKey error.",
                                 begin + "EncCert(B)",
                                 "CGMUsbKeyCommonEx|end, err: -101, Cert GMWritePKCS7 error."}));
}

TEST_F(Unbound, TestInitUKey_logs_the_guards_code_at_its_end) {
    EXPECT_EQ(TestInitUKey("A1", nullptr), -101);
    EXPECT_EQ(LogLines(), (Lines{"TestInitUKey|Begin", "TestInitUKey|End G_LastError: FFFFFF9B"}));
}

// A second Initialize that fails leaves the flag set: there is nothing for InitUKey to refuse.
TEST(InitUKey, behind_a_failed_second_initialisation_logs_the_guards_code) {
    ASSERT_EQ(Initialize(), 0);
    install::CloseEntirely();
    install::RemoveTokenLibrary();
    ASSERT_EQ(Initialize(), -101);
    EXPECT_EQ(InitUKey("B2"), -101);
    EXPECT_EQ(G_LastError, -101);
    EXPECT_EQ(Trace(), Lines{});
    EXPECT_EQ(LogLines(),
              (Lines{"InitUKey|Begin", "szSN:|4232", "InitUKey|End G_LastError: FFFFFF9B"}));
}

// Batch_ImportX509Cert: cleaning, kinds of text, order of import, failures.
#include "api_test.h"

namespace {

std::string Written(const std::string& certificate) {
    return "GMWritePKCS7(\"A1\", \"" + certificate + "\", string\"\")";
}

std::string Imported(const std::string& key) {
    return "GMImportPriKey(\"A1\", " + (key.empty() ? "zero" : "\"" + key + "\"") + "[1024], 0)";
}

int ImportBundle(const std::string& bundle) {
    return Batch_ImportX509Cert("A1", bundle.c_str());
}

const std::string begin = "CZRKUSBKey::Batch_ImportX509Cert|begin, strP7: ";
const std::string keyTag = "CZRKUSBKey::Batch_ImportX509Cert  strPriKeyTemp:|strPriKeyTemp:";
const std::string failure = "Batch_ImportX509Cert|end, err: ";
const std::string header =
    "00000000000000010000000000000001000000000000000000000000000000000000000000000273";

}  // namespace

// ---- Arguments ----------------------------------------------------------------------------------

TEST(Bundle, that_is_null_is_minus_401_and_not_logged) {
    EXPECT_EQ(Batch_ImportX509Cert("A1", nullptr), -401);
    EXPECT_EQ(G_LastError, -401);
    EXPECT_EQ(Batch_ImportX509Cert(nullptr, nullptr), -401);
    EXPECT_EQ(Trace(), Lines{});
    EXPECT_FALSE(LogExists());
    EXPECT_TRUE(g_initFlag);
}

TEST(Bundle, for_a_null_serial_number_goes_to_an_empty_one) {
    EXPECT_EQ(Batch_ImportX509Cert(nullptr, "cert"), 0);
    EXPECT_EQ(Trace(), (Lines{"GMWritePKCS7(\"\", \"cert\", string\"\")"}));
}

TEST(Bundle, of_sections_for_a_null_serial_number_goes_to_an_empty_one) {
    EXPECT_EQ(Batch_ImportX509Cert(nullptr, "SignCert(A)|EncPriKey(K)|EncCert(B)"), 0);
    EXPECT_EQ(Trace(), (Lines{"GMWritePKCS7(\"\", \"A\", string\"\")",
                              "GMImportPriKey(\"\", \"K\"[1024], 0)",
                              "GMWritePKCS7(\"\", \"B\", string\"\")"}));
}

TEST(Bundle, works_on_a_copy_of_the_serial_number) {
    const char* const serial = "A1";
    EXPECT_EQ(Batch_ImportX509Cert(serial, "SignCert(A)|EncPriKey(K)|EncCert(B)"), 0);
    for (const recording::Call& call : TheRecorder().Calls()) {
        EXPECT_NE(call.At(0).address, static_cast<const void*>(serial)) << call.Describe();
    }
}

TEST(Bundle, is_not_taken_for_a_format) {
    EXPECT_EQ(ImportBundle("EncPriKey(%s%n)|SignCert(%d)"), 0);
    EXPECT_EQ(LogLines(), (Lines{begin + "EncPriKey(%s%n)|SignCert(%d)", keyTag + "%s%n"}));
}

TEST(Bundle, that_is_malformed_reaches_nobody_and_logs_its_begin_alone) {
    EXPECT_EQ(ImportBundle("SignCert(A)|"), -401);
    EXPECT_EQ(G_LastError, -401);
    EXPECT_EQ(Trace(), Lines{});
    EXPECT_EQ(LogLines(), (Lines{begin + "SignCert(A)|"}));
}

// ---- One certificate ----------------------------------------------------------------------------

TEST(SingleCertificate, is_written_whole_and_its_success_is_logged_as_an_error_of_0) {
    EXPECT_EQ(ImportBundle("certificate"), 0);
    EXPECT_EQ(G_LastError, 0);
    EXPECT_EQ(Trace(), (Lines{Written("certificate")}));
    EXPECT_EQ(LogLines(), (Lines{begin + "certificate", failure + "0, Cert GMWritePKCS7 error."}));
}

TEST(SingleCertificate, that_is_refused_is_the_tokens_code) {
    TheRecorder().On("GMWritePKCS7").Returns(-55);
    EXPECT_EQ(ImportBundle("certificate"), -55);
    EXPECT_EQ(G_LastError, -55);
    EXPECT_EQ(LogLines(),
              (Lines{begin + "certificate", failure + "-55, Cert GMWritePKCS7 error."}));
}

TEST(SingleCertificate, may_begin_with_a_parenthesis) {
    EXPECT_EQ(ImportBundle("(SignCert(A)|x"), 0);
    EXPECT_EQ(Trace(), (Lines{Written("(SignCert(A)|x")}));
}

TEST(SingleCertificate, may_be_empty_or_hold_bars_and_closing_parentheses) {
    EXPECT_EQ(ImportBundle(""), 0);
    EXPECT_EQ(ImportBundle("a|b)|c"), 0);
    EXPECT_EQ(Trace(), (Lines{Written(""), Written("a|b)|c")}));
}

TEST(SingleCertificate, loses_commas_and_line_breaks) {
    EXPECT_EQ(ImportBundle(",MI\r\nIB,\r,\nxx\n\n"), 0);
    EXPECT_EQ(Trace(), (Lines{Written("MIIBxx")}));
    EXPECT_EQ(LogLines().front(), begin + "MIIBxx");
}

TEST(SingleCertificate, hides_behind_no_commas_or_line_breaks_in_front) {
    EXPECT_EQ(ImportBundle("\r\n,(SignCert(A)"), 0);
    EXPECT_EQ(Trace(), (Lines{Written("(SignCert(A)")}));
}

// ---- Sections -----------------------------------------------------------------------------------

TEST(Bundle, imports_signing_certificates_then_keys_then_encryption_certificates) {
    for (const char* const bundle :
         {"SignCert(A)|EncCert(B)|EncPriKey(K)", "EncCert(B)|EncPriKey(K)|SignCert(A)",
          "EncPriKey(K)|SignCert(A)|EncCert(B)"}) {
        TheRecorder().Forget();
        EXPECT_EQ(ImportBundle(bundle), 0);
        EXPECT_EQ(Trace(), (Lines{Written("A"), Imported("K"), Written("B")})) << bundle;
    }
}

TEST(Bundle, logs_its_begin_and_its_keys_and_no_end_on_success) {
    ImportBundle("SignCert(A)|EncCert(B)|EncPriKey(K)|EncPriKey(L)");
    EXPECT_EQ(LogLines(), (Lines{begin + "SignCert(A)|EncCert(B)|EncPriKey(K)|EncPriKey(L)",
                                 keyTag + "K", keyTag + "L"}));
}

TEST(Bundle, writes_sections_of_one_kind_in_the_order_of_the_text) {
    EXPECT_EQ(ImportBundle("SignCert(A)|SignCert(B)|EncCert(C)|EncCert(D)"), 0);
    EXPECT_EQ(Trace(), (Lines{Written("A"), Written("B"), Written("C"), Written("D")}));
}

TEST(Bundle, of_one_section_of_each_kind_alone_is_enough) {
    EXPECT_EQ(ImportBundle("SignCert(A)"), 0);
    EXPECT_EQ(ImportBundle("EncPriKey(K)"), 0);
    EXPECT_EQ(ImportBundle("EncCert(B)"), 0);
    EXPECT_EQ(Trace(), (Lines{Written("A"), Imported("K"), Written("B")}));
}

TEST(Bundle, loses_commas_and_line_breaks_in_names_contents_and_between) {
    EXPECT_EQ(ImportBundle("Sign,Cert(M\r\nI,I)\r\n|\nEncPri\rKey(K\n,K)"), 0);
    EXPECT_EQ(Trace(), (Lines{Written("MII"), Imported("KK")}));
    EXPECT_EQ(LogLines(), (Lines{begin + "SignCert(MII)|EncPriKey(KK)", keyTag + "KK"}));
}

TEST(Bundle, in_another_case_passes_the_classifier_and_has_no_sections) {
    EXPECT_EQ(ImportBundle("signcert(A)|ENCCERT(B)|encprikey(K)"), -401);
    EXPECT_EQ(G_LastError, -401);
    EXPECT_EQ(Trace(), Lines{});
    EXPECT_EQ(LogLines(), (Lines{begin + "signcert(A)|ENCCERT(B)|encprikey(K)"}));
}

TEST(Bundle, in_mixed_case_imports_the_sections_that_are_spelt_as_they_should_be) {
    EXPECT_EQ(ImportBundle("signcert(A)|EncCert(B)"), 0);
    EXPECT_EQ(Trace(), (Lines{Written("B")}));
}

TEST(Bundle, with_empty_contents_writes_empty_texts) {
    EXPECT_EQ(ImportBundle("SignCert()|EncPriKey()|EncCert()"), 0);
    EXPECT_EQ(Trace(), (Lines{Written(""), Imported(""), Written("")}));
}

TEST(Bundle, ends_a_content_at_the_first_closing_parenthesis) {
    EXPECT_EQ(ImportBundle("SignCert(A)B)|EncCert(C)"), 0);
    EXPECT_EQ(Trace(), (Lines{Written("A"), Written("C")}));
}

TEST(Bundle, may_end_in_a_text_without_a_bar) {
    EXPECT_EQ(ImportBundle("SignCert(A)whatever (stands) here"), 0);
    EXPECT_EQ(Trace(), (Lines{Written("A")}));
}

TEST(Bundle, lets_the_token_fill_the_scratch_string_and_does_not_read_it) {
    TheRecorder().On("GMWritePKCS7").Fills("filled");
    EXPECT_EQ(ImportBundle("SignCert(A)|SignCert(B)"), 0);
    EXPECT_EQ(Trace(), (Lines{Written("A"), Written("B")}));
}

// ---- The classifier -----------------------------------------------------------------------------

TEST(Classifier, refuses_a_bar_with_no_section_behind_it) {
    for (const char* const bundle : {"SignCert(A)|", "SignCert(A)|EncCert(B)|", "SignCert(A)|x",
                                     "SignCert(A)||", "SignCert(A)|EncCert", "SignCert(A)|("}) {
        EXPECT_EQ(ImportBundle(bundle), -401) << bundle;
    }
    EXPECT_EQ(Trace(), Lines{});
}

TEST(Classifier, refuses_other_names_wherever_they_stand) {
    for (const char* const bundle :
         {"Cert(A)", "SignCerts(A)", " SignCert(A)", "SignCert (A)", "SignCert(A)|Cert(B)",
          "SignCert(A)| EncCert(B)", "SignCert(A)||EncCert(B)", "SignCert(A)|EncCert(B)|Sign(C)"}) {
        EXPECT_EQ(ImportBundle(bundle), -401) << bundle;
    }
    EXPECT_EQ(Trace(), Lines{});
}

TEST(Classifier, accepts_an_opener_at_the_very_end) {
    EXPECT_EQ(ImportBundle("SignCert("), 0);
    EXPECT_EQ(Trace(), (Lines{Written("")}));
}

TEST(Classifier, looks_for_the_bar_behind_each_opener_and_so_inside_contents) {
    EXPECT_EQ(ImportBundle("SignCert(A|B)"), -401);
    EXPECT_EQ(ImportBundle("SignCert(A|EncCert(B)"), 0);
    EXPECT_EQ(Trace(), (Lines{Written("A|EncCert(B"), Written("B")}));
}

// ---- Openers without a closing parenthesis ------------------------------------------------------

TEST(OpenSection, is_empty_and_handled_once) {
    EXPECT_EQ(ImportBundle("EncCert(B)|SignCert(A"), 0);
    EXPECT_EQ(Trace(), (Lines{Written(""), Written("B")}));
}

TEST(OpenSection, lets_the_search_go_on_at_the_second_character) {
    EXPECT_EQ(ImportBundle("SignCert(A|SignCert(B"), 0);
    EXPECT_EQ(Trace(), (Lines{Written(""), Written("")}));
}

TEST(OpenSection, behind_closed_ones_does_not_repeat_them) {
    EXPECT_EQ(ImportBundle("SignCert(A)|SignCert(B)|SignCert(C"), 0);
    EXPECT_EQ(Trace(), (Lines{Written("A"), Written("B"), Written("")}));
}

TEST(OpenSection, of_a_key_is_an_empty_key) {
    EXPECT_EQ(ImportBundle("EncPriKey(K"), 0);
    EXPECT_EQ(Trace(), (Lines{Imported("")}));
    EXPECT_EQ(LogLines(), (Lines{begin + "EncPriKey(K", keyTag}));
}

// ---- Keys ---------------------------------------------------------------------------------------

TEST(BundledKey, loses_its_header) {
    EXPECT_EQ(ImportBundle("EncPriKey(" + header + "body)"), 0);
    EXPECT_EQ(Trace(), (Lines{Imported("body")}));
    EXPECT_EQ(LogLines().back(), keyTag + header + "body");
}

TEST(BundledKey, loses_its_first_80_characters_when_the_header_stands_elsewhere) {
    EXPECT_EQ(ImportBundle("EncPriKey(abc" + header + "body)"), 0);
    EXPECT_EQ(Trace(), (Lines{Imported("273body")}));
}

TEST(BundledKey, that_is_the_header_alone_is_empty) {
    EXPECT_EQ(ImportBundle("EncPriKey(" + header + ")"), 0);
    EXPECT_EQ(TheRecorder().Only("GMImportPriKey").Bytes(1), std::string(1024, '\0'));
}

TEST(BundledKey, keeps_a_header_that_lacks_a_digit) {
    const std::string text = header.substr(1) + "body";
    EXPECT_EQ(ImportBundle("EncPriKey(" + text + ")"), 0);
    EXPECT_EQ(Trace(), (Lines{Imported(text)}));
}

TEST(BundledKey, of_1024_characters_passes_without_a_NUL) {
    const std::string body(1024, 'k');
    EXPECT_EQ(ImportBundle("EncPriKey(" + body + ")|EncPriKey(" + header + body + ")"), 0);
    for (const recording::Call& call : TheRecorder().Calls("GMImportPriKey")) {
        EXPECT_EQ(call.Bytes(1), body);
    }
    EXPECT_EQ(TheRecorder().Calls("GMImportPriKey").size(), 2U);
}

TEST(BundledKey, meets_a_zeroed_buffer_after_a_longer_one) {
    EXPECT_EQ(ImportBundle("EncPriKey(longer)|EncPriKey(K)"), 0);
    EXPECT_EQ(Trace(), (Lines{Imported("longer"), Imported("K")}));
}

TEST(BundledKeyDeathTest, of_1025_characters_ends_the_process_after_its_log_line) {
    const std::string body(1025, 'k');
    EXPECT_EXIT(ImportBundle("EncPriKey(" + body + ")"), testing::KilledBySignal(SIGABRT), "");
    EXPECT_EQ(LogLines().back(), keyTag + body);
}

TEST(BundledKeyDeathTest, of_1025_characters_behind_its_header_ends_the_process) {
    const std::string body(1025, 'k');
    EXPECT_EXIT(ImportBundle("EncPriKey(" + header + body + ")"), testing::KilledBySignal(SIGABRT),
                "");
}

// ---- Failures -----------------------------------------------------------------------------------

TEST(Bundle, whose_signing_certificate_is_refused_stops_there) {
    TheRecorder().On("GMWritePKCS7", 2).Returns(13);
    EXPECT_EQ(ImportBundle("SignCert(A)|SignCert(B)|SignCert(C)|EncPriKey(K)"), 13);
    EXPECT_EQ(G_LastError, 13);
    EXPECT_EQ(Trace(), (Lines{Written("A"), Written("B")}));
    EXPECT_EQ(LogLines().back(), failure + "13, Cert GMWritePKCS7 error.");
    EXPECT_EQ(LogLines().size(), 2U);
}

TEST(Bundle, whose_key_is_refused_stops_there) {
    TheRecorder().On("GMImportPriKey").Returns(-14);
    EXPECT_EQ(ImportBundle("EncCert(B)|EncPriKey(K)|EncPriKey(L)|SignCert(A)"), -14);
    EXPECT_EQ(G_LastError, -14);
    EXPECT_EQ(Trace(), (Lines{Written("A"), Imported("K")}));
    EXPECT_EQ(LogLines(), (Lines{begin + "EncCert(B)|EncPriKey(K)|EncPriKey(L)|SignCert(A)",
                                 keyTag + "K", failure + "-14, Cert GMImportPriKey error."}));
}

TEST(Bundle, whose_encryption_certificate_is_refused_logs_under_a_tag_of_its_own) {
    TheRecorder().On("GMWritePKCS7", 2).Returns(15);
    EXPECT_EQ(ImportBundle("SignCert(A)|EncCert(B)|EncCert(C)"), 15);
    EXPECT_EQ(G_LastError, 15);
    EXPECT_EQ(Trace(), (Lines{Written("A"), Written("B")}));
    EXPECT_EQ(LogLines(), (Lines{begin + "SignCert(A)|EncCert(B)|EncCert(C)",
                                 "CGMUsbKeyCommonEx|end, err: 15, Cert GMWritePKCS7 error."}));
}

// ---- What stays ---------------------------------------------------------------------------------

TEST(Bundle, keeps_a_probed_request) {
    TheRecorder().On("GMCreatePKCS10").Request("MIIB");
    int length = 0;
    ASSERT_EQ(GenerateCertRequest("A1", "CertType(1)", nullptr, &length), 0);
    EXPECT_EQ(ImportBundle("SignCert(A)"), 0);
    EXPECT_EQ(ImportBundle("cert"), 0);
    TheRecorder().Forget();
    CanaryBuffer buffer(5);
    EXPECT_EQ(GenerateCertRequest("A1", "CertType(1)", buffer.data(), &length), 0);
    EXPECT_TRUE(buffer.HoldsOnly(std::string("MIIB", 5)));
    EXPECT_EQ(Trace(), Lines{});
}

TEST(Bundle, leaks_nothing_on_any_way) {
    TheRecorder().On("GMWritePKCS7").Fills("filled by the token library");
    ExpectNoLeak([] {
        ImportBundle("SignCert(A)|EncPriKey(K)|EncCert(B)");
        ImportBundle("cert");
        ImportBundle("Cert(A)");
        ImportBundle("SignCert(A");
        TheRecorder().On("GMImportPriKey").Returns(1);
        ImportBundle("EncPriKey(K)");
        TheRecorder().On("GMImportPriKey").Returns(0);
    });
}

// Batch_ImportX509Cert: cleaning, kinds of text, order of import, failures.
#include "api_test.h"

namespace {

std::string written(const std::string& certificate) {
    return "GMWritePKCS7(\"A1\", \"" + certificate + "\", string\"\")";
}

std::string imported(const std::string& key) {
    return "GMImportPriKey(\"A1\", " + (key.empty() ? "zero" : "\"" + key + "\"") + "[1024], 0)";
}

int import_bundle(const std::string& bundle) {
    return Batch_ImportX509Cert("A1", bundle.c_str());
}

const std::string begin = "CZRKUSBKey::Batch_ImportX509Cert|begin, strP7: ";
const std::string key_tag = "CZRKUSBKey::Batch_ImportX509Cert  strPriKeyTemp:|strPriKeyTemp:";
const std::string failure = "Batch_ImportX509Cert|end, err: ";
const std::string header =
    "00000000000000010000000000000001000000000000000000000000000000000000000000000273";

}  // namespace

// ---- Arguments ----------------------------------------------------------------------------------

TEST(Bundle, that_is_null_is_minus_401_and_not_logged) {
    EXPECT_EQ(Batch_ImportX509Cert("A1", nullptr), -401);
    EXPECT_EQ(G_LastError, -401);
    EXPECT_EQ(Batch_ImportX509Cert(nullptr, nullptr), -401);
    EXPECT_EQ(trace(), Lines{});
    EXPECT_FALSE(log_exists());
    EXPECT_TRUE(g_initFlag);
}

TEST(Bundle, for_a_null_serial_number_goes_to_an_empty_one) {
    EXPECT_EQ(Batch_ImportX509Cert(nullptr, "cert"), 0);
    EXPECT_EQ(trace(), (Lines{"GMWritePKCS7(\"\", \"cert\", string\"\")"}));
}

TEST(Bundle, of_sections_for_a_null_serial_number_goes_to_an_empty_one) {
    EXPECT_EQ(Batch_ImportX509Cert(nullptr, "SignCert(A)|EncPriKey(K)|EncCert(B)"), 0);
    EXPECT_EQ(trace(), (Lines{"GMWritePKCS7(\"\", \"A\", string\"\")",
                              "GMImportPriKey(\"\", \"K\"[1024], 0)",
                              "GMWritePKCS7(\"\", \"B\", string\"\")"}));
}

TEST(Bundle, works_on_a_copy_of_the_serial_number) {
    const char* const serial = "A1";
    EXPECT_EQ(Batch_ImportX509Cert(serial, "SignCert(A)|EncPriKey(K)|EncCert(B)"), 0);
    for (const recording::Call& call : recorder().calls()) {
        EXPECT_NE(call.at(0).address, static_cast<const void*>(serial)) << call.describe();
    }
}

TEST(Bundle, is_not_taken_for_a_format) {
    EXPECT_EQ(import_bundle("EncPriKey(%s%n)|SignCert(%d)"), 0);
    EXPECT_EQ(log_lines(), (Lines{begin + "EncPriKey(%s%n)|SignCert(%d)", key_tag + "%s%n"}));
}

TEST(Bundle, that_is_malformed_reaches_nobody_and_logs_its_begin_alone) {
    EXPECT_EQ(import_bundle("SignCert(A)|"), -401);
    EXPECT_EQ(G_LastError, -401);
    EXPECT_EQ(trace(), Lines{});
    EXPECT_EQ(log_lines(), (Lines{begin + "SignCert(A)|"}));
}

// ---- One certificate ----------------------------------------------------------------------------

TEST(SingleCertificate, is_written_whole_and_its_success_is_logged_as_an_error_of_0) {
    EXPECT_EQ(import_bundle("certificate"), 0);
    EXPECT_EQ(G_LastError, 0);
    EXPECT_EQ(trace(), (Lines{written("certificate")}));
    EXPECT_EQ(log_lines(), (Lines{begin + "certificate", failure + "0, Cert GMWritePKCS7 error."}));
}

TEST(SingleCertificate, that_is_refused_is_the_tokens_code) {
    recorder().on("GMWritePKCS7").returns(-55);
    EXPECT_EQ(import_bundle("certificate"), -55);
    EXPECT_EQ(G_LastError, -55);
    EXPECT_EQ(log_lines(),
              (Lines{begin + "certificate", failure + "-55, Cert GMWritePKCS7 error."}));
}

TEST(SingleCertificate, may_begin_with_a_parenthesis) {
    EXPECT_EQ(import_bundle("(SignCert(A)|x"), 0);
    EXPECT_EQ(trace(), (Lines{written("(SignCert(A)|x")}));
}

TEST(SingleCertificate, may_be_empty_or_hold_bars_and_closing_parentheses) {
    EXPECT_EQ(import_bundle(""), 0);
    EXPECT_EQ(import_bundle("a|b)|c"), 0);
    EXPECT_EQ(trace(), (Lines{written(""), written("a|b)|c")}));
}

TEST(SingleCertificate, loses_commas_and_line_breaks) {
    EXPECT_EQ(import_bundle(",MI\r\nIB,\r,\nxx\n\n"), 0);
    EXPECT_EQ(trace(), (Lines{written("MIIBxx")}));
    EXPECT_EQ(log_lines().front(), begin + "MIIBxx");
}

TEST(SingleCertificate, hides_behind_no_commas_or_line_breaks_in_front) {
    EXPECT_EQ(import_bundle("\r\n,(SignCert(A)"), 0);
    EXPECT_EQ(trace(), (Lines{written("(SignCert(A)")}));
}

// ---- Sections -----------------------------------------------------------------------------------

TEST(Bundle, imports_signing_certificates_then_keys_then_encryption_certificates) {
    for (const char* const bundle :
         {"SignCert(A)|EncCert(B)|EncPriKey(K)", "EncCert(B)|EncPriKey(K)|SignCert(A)",
          "EncPriKey(K)|SignCert(A)|EncCert(B)"}) {
        recorder().forget();
        EXPECT_EQ(import_bundle(bundle), 0);
        EXPECT_EQ(trace(), (Lines{written("A"), imported("K"), written("B")})) << bundle;
    }
}

TEST(Bundle, logs_its_begin_and_its_keys_and_no_end_on_success) {
    import_bundle("SignCert(A)|EncCert(B)|EncPriKey(K)|EncPriKey(L)");
    EXPECT_EQ(log_lines(), (Lines{begin + "SignCert(A)|EncCert(B)|EncPriKey(K)|EncPriKey(L)",
                                  key_tag + "K", key_tag + "L"}));
}

TEST(Bundle, writes_sections_of_one_kind_in_the_order_of_the_text) {
    EXPECT_EQ(import_bundle("SignCert(A)|SignCert(B)|EncCert(C)|EncCert(D)"), 0);
    EXPECT_EQ(trace(), (Lines{written("A"), written("B"), written("C"), written("D")}));
}

TEST(Bundle, of_one_section_of_each_kind_alone_is_enough) {
    EXPECT_EQ(import_bundle("SignCert(A)"), 0);
    EXPECT_EQ(import_bundle("EncPriKey(K)"), 0);
    EXPECT_EQ(import_bundle("EncCert(B)"), 0);
    EXPECT_EQ(trace(), (Lines{written("A"), imported("K"), written("B")}));
}

TEST(Bundle, loses_commas_and_line_breaks_in_names_contents_and_between) {
    EXPECT_EQ(import_bundle("Sign,Cert(M\r\nI,I)\r\n|\nEncPri\rKey(K\n,K)"), 0);
    EXPECT_EQ(trace(), (Lines{written("MII"), imported("KK")}));
    EXPECT_EQ(log_lines(), (Lines{begin + "SignCert(MII)|EncPriKey(KK)", key_tag + "KK"}));
}

TEST(Bundle, in_another_case_passes_the_classifier_and_has_no_sections) {
    EXPECT_EQ(import_bundle("signcert(A)|ENCCERT(B)|encprikey(K)"), -401);
    EXPECT_EQ(G_LastError, -401);
    EXPECT_EQ(trace(), Lines{});
    EXPECT_EQ(log_lines(), (Lines{begin + "signcert(A)|ENCCERT(B)|encprikey(K)"}));
}

TEST(Bundle, in_mixed_case_imports_the_sections_that_are_spelt_as_they_should_be) {
    EXPECT_EQ(import_bundle("signcert(A)|EncCert(B)"), 0);
    EXPECT_EQ(trace(), (Lines{written("B")}));
}

TEST(Bundle, with_empty_contents_writes_empty_texts) {
    EXPECT_EQ(import_bundle("SignCert()|EncPriKey()|EncCert()"), 0);
    EXPECT_EQ(trace(), (Lines{written(""), imported(""), written("")}));
}

TEST(Bundle, ends_a_content_at_the_first_closing_parenthesis) {
    EXPECT_EQ(import_bundle("SignCert(A)B)|EncCert(C)"), 0);
    EXPECT_EQ(trace(), (Lines{written("A"), written("C")}));
}

TEST(Bundle, may_end_in_a_text_without_a_bar) {
    EXPECT_EQ(import_bundle("SignCert(A)whatever (stands) here"), 0);
    EXPECT_EQ(trace(), (Lines{written("A")}));
}

TEST(Bundle, lets_the_token_fill_the_scratch_string_and_does_not_read_it) {
    recorder().on("GMWritePKCS7").fills("filled");
    EXPECT_EQ(import_bundle("SignCert(A)|SignCert(B)"), 0);
    EXPECT_EQ(trace(), (Lines{written("A"), written("B")}));
}

// ---- The classifier -----------------------------------------------------------------------------

TEST(Classifier, refuses_a_bar_with_no_section_behind_it) {
    for (const char* const bundle : {"SignCert(A)|", "SignCert(A)|EncCert(B)|", "SignCert(A)|x",
                                     "SignCert(A)||", "SignCert(A)|EncCert", "SignCert(A)|("}) {
        EXPECT_EQ(import_bundle(bundle), -401) << bundle;
    }
    EXPECT_EQ(trace(), Lines{});
}

TEST(Classifier, refuses_other_names_wherever_they_stand) {
    for (const char* const bundle :
         {"Cert(A)", "SignCerts(A)", " SignCert(A)", "SignCert (A)", "SignCert(A)|Cert(B)",
          "SignCert(A)| EncCert(B)", "SignCert(A)||EncCert(B)", "SignCert(A)|EncCert(B)|Sign(C)"}) {
        EXPECT_EQ(import_bundle(bundle), -401) << bundle;
    }
    EXPECT_EQ(trace(), Lines{});
}

TEST(Classifier, accepts_an_opener_at_the_very_end) {
    EXPECT_EQ(import_bundle("SignCert("), 0);
    EXPECT_EQ(trace(), (Lines{written("")}));
}

TEST(Classifier, looks_for_the_bar_behind_each_opener_and_so_inside_contents) {
    EXPECT_EQ(import_bundle("SignCert(A|B)"), -401);
    EXPECT_EQ(import_bundle("SignCert(A|EncCert(B)"), 0);
    EXPECT_EQ(trace(), (Lines{written("A|EncCert(B"), written("B")}));
}

// ---- Openers without a closing parenthesis ------------------------------------------------------

TEST(OpenSection, is_empty_and_handled_once) {
    EXPECT_EQ(import_bundle("EncCert(B)|SignCert(A"), 0);
    EXPECT_EQ(trace(), (Lines{written(""), written("B")}));
}

TEST(OpenSection, lets_the_search_go_on_at_the_second_character) {
    EXPECT_EQ(import_bundle("SignCert(A|SignCert(B"), 0);
    EXPECT_EQ(trace(), (Lines{written(""), written("")}));
}

TEST(OpenSection, behind_closed_ones_does_not_repeat_them) {
    EXPECT_EQ(import_bundle("SignCert(A)|SignCert(B)|SignCert(C"), 0);
    EXPECT_EQ(trace(), (Lines{written("A"), written("B"), written("")}));
}

TEST(OpenSection, of_a_key_is_an_empty_key) {
    EXPECT_EQ(import_bundle("EncPriKey(K"), 0);
    EXPECT_EQ(trace(), (Lines{imported("")}));
    EXPECT_EQ(log_lines(), (Lines{begin + "EncPriKey(K", key_tag}));
}

// ---- Keys ---------------------------------------------------------------------------------------

TEST(BundledKey, loses_its_header) {
    EXPECT_EQ(import_bundle("EncPriKey(" + header + "body)"), 0);
    EXPECT_EQ(trace(), (Lines{imported("body")}));
    EXPECT_EQ(log_lines().back(), key_tag + header + "body");
}

TEST(BundledKey, loses_its_first_80_characters_when_the_header_stands_elsewhere) {
    EXPECT_EQ(import_bundle("EncPriKey(abc" + header + "body)"), 0);
    EXPECT_EQ(trace(), (Lines{imported("273body")}));
}

TEST(BundledKey, that_is_the_header_alone_is_empty) {
    EXPECT_EQ(import_bundle("EncPriKey(" + header + ")"), 0);
    EXPECT_EQ(recorder().only("GMImportPriKey").bytes(1), std::string(1024, '\0'));
}

TEST(BundledKey, keeps_a_header_that_lacks_a_digit) {
    const std::string text = header.substr(1) + "body";
    EXPECT_EQ(import_bundle("EncPriKey(" + text + ")"), 0);
    EXPECT_EQ(trace(), (Lines{imported(text)}));
}

TEST(BundledKey, of_1024_characters_passes_without_a_NUL) {
    const std::string body(1024, 'k');
    EXPECT_EQ(import_bundle("EncPriKey(" + body + ")|EncPriKey(" + header + body + ")"), 0);
    for (const recording::Call& call : recorder().calls("GMImportPriKey")) {
        EXPECT_EQ(call.bytes(1), body);
    }
    EXPECT_EQ(recorder().calls("GMImportPriKey").size(), 2U);
}

TEST(BundledKey, meets_a_zeroed_buffer_after_a_longer_one) {
    EXPECT_EQ(import_bundle("EncPriKey(longer)|EncPriKey(K)"), 0);
    EXPECT_EQ(trace(), (Lines{imported("longer"), imported("K")}));
}

TEST(BundledKeyDeathTest, of_1025_characters_ends_the_process_after_its_log_line) {
    const std::string body(1025, 'k');
    EXPECT_EXIT(import_bundle("EncPriKey(" + body + ")"), testing::KilledBySignal(SIGABRT), "");
    EXPECT_EQ(log_lines().back(), key_tag + body);
}

TEST(BundledKeyDeathTest, of_1025_characters_behind_its_header_ends_the_process) {
    const std::string body(1025, 'k');
    EXPECT_EXIT(import_bundle("EncPriKey(" + header + body + ")"), testing::KilledBySignal(SIGABRT),
                "");
}

// ---- Failures -----------------------------------------------------------------------------------

TEST(Bundle, whose_signing_certificate_is_refused_stops_there) {
    recorder().on("GMWritePKCS7", 2).returns(13);
    EXPECT_EQ(import_bundle("SignCert(A)|SignCert(B)|SignCert(C)|EncPriKey(K)"), 13);
    EXPECT_EQ(G_LastError, 13);
    EXPECT_EQ(trace(), (Lines{written("A"), written("B")}));
    EXPECT_EQ(log_lines().back(), failure + "13, Cert GMWritePKCS7 error.");
    EXPECT_EQ(log_lines().size(), 2U);
}

TEST(Bundle, whose_key_is_refused_stops_there) {
    recorder().on("GMImportPriKey").returns(-14);
    EXPECT_EQ(import_bundle("EncCert(B)|EncPriKey(K)|EncPriKey(L)|SignCert(A)"), -14);
    EXPECT_EQ(G_LastError, -14);
    EXPECT_EQ(trace(), (Lines{written("A"), imported("K")}));
    EXPECT_EQ(log_lines(), (Lines{begin + "EncCert(B)|EncPriKey(K)|EncPriKey(L)|SignCert(A)",
                                  key_tag + "K", failure + "-14, Cert GMImportPriKey error."}));
}

TEST(Bundle, whose_encryption_certificate_is_refused_logs_under_a_tag_of_its_own) {
    recorder().on("GMWritePKCS7", 2).returns(15);
    EXPECT_EQ(import_bundle("SignCert(A)|EncCert(B)|EncCert(C)"), 15);
    EXPECT_EQ(G_LastError, 15);
    EXPECT_EQ(trace(), (Lines{written("A"), written("B")}));
    EXPECT_EQ(log_lines(), (Lines{begin + "SignCert(A)|EncCert(B)|EncCert(C)",
                                  "CGMUsbKeyCommonEx|end, err: 15, Cert GMWritePKCS7 error."}));
}

// ---- What stays ---------------------------------------------------------------------------------

TEST(Bundle, keeps_a_probed_request) {
    recorder().on("GMCreatePKCS10").request("MIIB");
    int length = 0;
    ASSERT_EQ(GenerateCertRequest("A1", "CertType(1)", nullptr, &length), 0);
    EXPECT_EQ(import_bundle("SignCert(A)"), 0);
    EXPECT_EQ(import_bundle("cert"), 0);
    recorder().forget();
    CanaryBuffer buffer(5);
    EXPECT_EQ(GenerateCertRequest("A1", "CertType(1)", buffer.data(), &length), 0);
    EXPECT_TRUE(buffer.holds_only(std::string("MIIB", 5)));
    EXPECT_EQ(trace(), Lines{});
}

TEST(Bundle, leaks_nothing_on_any_way) {
    recorder().on("GMWritePKCS7").fills("filled by the token library");
    expect_no_leak([] {
        import_bundle("SignCert(A)|EncPriKey(K)|EncCert(B)");
        import_bundle("cert");
        import_bundle("Cert(A)");
        import_bundle("SignCert(A");
        recorder().on("GMImportPriKey").returns(1);
        import_bundle("EncPriKey(K)");
        recorder().on("GMImportPriKey").returns(0);
    });
}

// ImportEncX509Cert: an escrowed key, then its certificate.
#include <csignal>
#include <stdexcept>

#include "api_test.h"
#include "exports_cpp.h"

namespace {

const char* const sn = "A1";
const std::string header =
    "0000000000000001000000000000000100000000000000000000000000000000"
    "0000000000000273";
const std::string keyTag = "CZRKUSBKey::ImportEncX509Cert  strPriKeyTemp:|";

// The whole buffer that the token was given for a key text.
std::string KeyBuffer(const std::string& key) {
    TheRecorder().Forget();
    EXPECT_EQ(ImportEncX509Cert(sn, "MIIC", key.c_str()), 0);
    return TheRecorder().Only("GMImportPriKey").Bytes(1);
}

std::string ZeroFilled(const std::string& body) {
    return body + std::string(1024 - body.size(), '\0');
}

}  // namespace

TEST(ImportEncX509Cert, imports_the_key_then_the_certificate) {
    EXPECT_EQ(ImportEncX509Cert(sn, "MIIC", "MHcC"), 0);
    EXPECT_EQ(Trace(), (Lines{"GMImportPriKey(\"A1\", \"MHcC\"[1024], 0)",
                              "GMWritePKCS7(\"A1\", \"MIIC\", string\"\")"}));
    EXPECT_EQ(G_LastError, 0);
    EXPECT_EQ(TheRecorder().Only("GMImportPriKey").At(2).width, 4);
}

TEST(ImportEncX509Cert, works_on_a_copy_of_the_serial_number) {
    ImportEncX509Cert(sn, "MIIC", "MHcC");
    const auto calls = TheRecorder().Calls();
    ASSERT_EQ(calls.size(), 2U);
    EXPECT_NE(calls[0].At(0).address, static_cast<const void*>(sn));
    EXPECT_NE(calls[1].At(0).address, static_cast<const void*>(sn));
}

TEST(ImportEncX509Cert, removes_commas_and_keeps_line_breaks_of_the_certificate) {
    EXPECT_EQ(ImportEncX509Cert(sn, "AB,CD\r\nEF,\n", "key"), 0);
    EXPECT_EQ(TheRecorder().Only("GMWritePKCS7").Bytes(1), "ABCD\r\nEF\n");
}

TEST(ImportEncX509Cert, removes_commas_and_keeps_line_breaks_of_the_key) {
    EXPECT_EQ(KeyBuffer("AB,CD\r\nEF,,\n"), ZeroFilled("ABCD\r\nEF\n"));
}

TEST(ImportEncX509Cert, only_reads_the_callers_texts) {
    char certificate[] = "A,B";
    char key[] = "C,D";
    ImportEncX509Cert(sn, certificate, key);
    EXPECT_STREQ(certificate, "A,B");
    EXPECT_STREQ(key, "C,D");
}

TEST(ImportEncX509Cert, passes_empty_texts) {
    EXPECT_EQ(ImportEncX509Cert("", "", ""), 0);
    EXPECT_EQ(Trace(), (Lines{"GMImportPriKey(\"\", zero[1024], 0)",
                              "GMWritePKCS7(\"\", \"\", string\"\")"}));
}

TEST(ImportEncX509Cert, passes_a_certificate_of_megabytes) {
    std::string wrapped, plain;
    for (int line = 0; line < 60000; ++line) {
        plain += std::string(64, 'M') + "\r\n";
        wrapped += std::string(64, 'M') + ",\r\n";
    }
    EXPECT_EQ(ImportEncX509Cert(sn, wrapped.c_str(), "key"), 0);
    EXPECT_TRUE(TheRecorder().Only("GMWritePKCS7").Bytes(1) == plain);
}

TEST(ImportEncX509Cert, requires_three_pointers) {
    struct Case {
        const char *serial, *certificate, *key;
    };
    for (const Case& call :
         {Case{nullptr, "MIIC", "key"}, Case{sn, nullptr, "key"}, Case{sn, "MIIC", nullptr}}) {
        G_LastError = 0;
        EXPECT_EQ(ImportEncX509Cert(call.serial, call.certificate, call.key), -401);
        EXPECT_EQ(G_LastError, -401);
    }
    EXPECT_TRUE(g_initFlag) << "the library is initialised before the arguments are checked";
    EXPECT_EQ(Trace(), Lines{});
    EXPECT_FALSE(LogExists());
}

TEST(ImportEncX509Cert, with_a_failing_key_leaves_the_certificate_unwritten) {
    TheRecorder().On("GMImportPriKey").Returns(-77);
    EXPECT_EQ(ImportEncX509Cert(sn, "MIIC", "key"), -77);
    EXPECT_EQ(G_LastError, -77);
    EXPECT_EQ(TheRecorder().Names(), (Lines{"GMImportPriKey"}));
}

TEST(ImportEncX509Cert, with_a_failing_certificate_undoes_nothing) {
    TheRecorder().On("GMWritePKCS7").Returns(0x6985);
    EXPECT_EQ(ImportEncX509Cert(sn, "MIIC", "key"), 0x6985);
    EXPECT_EQ(G_LastError, 0x6985);
    EXPECT_EQ(TheRecorder().Names(), (Lines{"GMImportPriKey", "GMWritePKCS7"}));
}

TEST(ImportEncX509Cert, leaks_nothing_when_the_token_throws) {
    for (const char* const entry : {"GMImportPriKey", "GMWritePKCS7"}) {
        TheRecorder().On(entry).Does([](const auto&) { throw std::runtime_error("x"); });
        ExpectNoLeak([] {
            EXPECT_THROW(ImportEncX509Cert(sn, "MIIC", "key"), std::runtime_error);
            ForgetLog();
        });
        TheRecorder().On(entry).Does(nullptr);
    }
}

// ---- The log ---------------------------------------------------------------------------------

TEST(ImportEncX509Cert, logs_the_key_text_without_commas_and_with_its_header) {
    const std::string key = header + "MH,cC\r\nAB";
    EXPECT_EQ(ImportEncX509Cert(sn, "MIIC", key.c_str()), 0);
    EXPECT_EQ(LogLines(), (Lines{keyTag + "strPriKeyTemp:" + header + "MHcC\r\nAB"}));
}

TEST(ImportEncX509Cert, logs_the_key_before_it_asks_the_token) {
    Lines seen;
    TheRecorder().On("GMImportPriKey").Returns(5).Does([&seen](const auto&) { seen = LogLines(); });
    EXPECT_EQ(ImportEncX509Cert(sn, "MIIC", "key"), 5);
    EXPECT_EQ(seen, (Lines{keyTag + "strPriKeyTemp:key"}));
    EXPECT_EQ(LogLines(), seen);
}

TEST(ImportEncX509Cert, takes_no_directive_from_a_key_text) {
    EXPECT_EQ(ImportEncX509Cert(sn, "MIIC", "%s%n%d"), 0);
    EXPECT_EQ(LogLines(), (Lines{keyTag + "strPriKeyTemp:%s%n%d"}));
}

// ---- The header ------------------------------------------------------------------------------

TEST(KeyHeader, at_the_start_is_dropped) {
    ASSERT_EQ(header.size(), 80U);
    EXPECT_EQ(KeyBuffer(header + "body"), ZeroFilled("body"));
}

TEST(KeyHeader, that_is_absent_leaves_the_text_whole) {
    const std::string body(200, 'k');
    EXPECT_EQ(KeyBuffer(body), ZeroFilled(body));
    EXPECT_EQ(KeyBuffer("k"), ZeroFilled("k"));
}

TEST(KeyHeader, in_the_middle_drops_the_first_eighty_characters) {
    const std::string text = "0123456789" + header + "body";
    EXPECT_EQ(KeyBuffer(text), ZeroFilled(header.substr(70) + "body"));
}

TEST(KeyHeader, at_the_end_drops_the_first_eighty_characters) {
    const std::string front(100, 'f');
    EXPECT_EQ(KeyBuffer(front + header), ZeroFilled(std::string(20, 'f') + header));
}

TEST(KeyHeader, twice_is_dropped_once) {
    EXPECT_EQ(KeyBuffer(header + header + "body"), ZeroFilled(header + "body"));
}

TEST(KeyHeader, alone_gives_an_empty_key) {
    EXPECT_EQ(KeyBuffer(header), ZeroFilled(""));
}

TEST(KeyHeader, with_commas_between_its_digits_is_recognised) {
    std::string spread;
    for (const char digit : header) spread += std::string(1, digit) + ",";
    EXPECT_EQ(KeyBuffer(spread + "bo,dy"), ZeroFilled("body"));
}

TEST(KeyHeader, with_a_digit_changed_or_missing_is_none) {
    std::string changed = header + "body";
    changed[79] = '4';
    EXPECT_EQ(KeyBuffer(changed), ZeroFilled(changed));
    const std::string shorter = header.substr(1) + "body";
    EXPECT_EQ(KeyBuffer(shorter), ZeroFilled(shorter));
}

TEST(KeyHeader, broken_by_a_line_break_is_none) {
    const std::string broken = header.substr(0, 40) + "\n" + header.substr(40) + "body";
    EXPECT_EQ(KeyBuffer(broken), ZeroFilled(broken));
}

// ---- The size of a key -----------------------------------------------------------------------

TEST(KeyBody, of_1023_characters_is_terminated) {
    EXPECT_EQ(KeyBuffer(std::string(1023, 'k')), std::string(1023, 'k') + '\0');
}

TEST(KeyBody, of_1024_characters_passes_without_NUL) {
    EXPECT_EQ(KeyBuffer(std::string(1024, 'k')), std::string(1024, 'k'));
}

TEST(KeyBody, of_1024_characters_passes_behind_a_header) {
    EXPECT_EQ(KeyBuffer(header + std::string(1024, 'k')), std::string(1024, 'k'));
}

TEST(KeyBody, is_measured_without_commas) {
    EXPECT_EQ(KeyBuffer(std::string(1000, 'k') + "," + std::string(24, 'k')),
              std::string(1024, 'k'));
}

TEST(KeyBody, is_zero_filled_anew_for_each_call) {
    KeyBuffer(std::string(1024, 'k'));
    EXPECT_EQ(KeyBuffer("short"), ZeroFilled("short"));
}

namespace {

// The child writes into the same log, so what it did before it died can be read here.
void ExpectAbort(const std::string& key) {
    TheRecorder().On("GMImportPriKey").Does([](const auto&) { LogEntry("token", "asked"); });
    EXPECT_EXIT(ImportEncX509Cert(sn, "MIIC", key.c_str()), testing::KilledBySignal(SIGABRT), "");
    EXPECT_TRUE(LogLines() == Lines{keyTag + "strPriKeyTemp:" + key})
        << LogLines().size() << " records";
}

}  // namespace

TEST(KeyBodyDeathTest, of_1025_characters_ends_the_process_after_the_log_line) {
    ExpectAbort(std::string(1025, 'k'));
}

TEST(KeyBodyDeathTest, of_1025_characters_behind_a_header_ends_the_process) {
    ExpectAbort(header + std::string(1025, 'k'));
}

TEST(KeyBodyDeathTest, of_megabytes_ends_the_process) {
    ExpectAbort(std::string(2000000, 'k'));
}

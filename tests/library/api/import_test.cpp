// ImportX509Cert: one certificate, freed of commas and line breaks.
#include <stdexcept>

#include "api_test.h"
#include "lgn_exception.h"

namespace {

const char* const sn = "A1";

std::string Written(const std::string& certificate) {
    TheRecorder().Forget();
    EXPECT_EQ(ImportX509Cert(sn, certificate.c_str()), 0);
    return TheRecorder().Only("GMWritePKCS7").Bytes(1);
}

}  // namespace

TEST(ImportX509Cert, passes_serial_number_text_and_an_empty_string) {
    EXPECT_EQ(ImportX509Cert(sn, "MIIC"), 0);
    EXPECT_EQ(Trace(), (Lines{"GMWritePKCS7(\"A1\", \"MIIC\", string\"\")"}));
    EXPECT_EQ(G_LastError, 0);
    EXPECT_FALSE(LogExists());
}

TEST(ImportX509Cert, passes_the_callers_own_serial_number) {
    ImportX509Cert(sn, "MIIC");
    EXPECT_EQ(TheRecorder().Only("GMWritePKCS7").At(0).address, static_cast<const void*>(sn));
}

TEST(ImportX509Cert, removes_every_comma_and_line_break) {
    EXPECT_EQ(Written("AB,CD\r\nEF,\r\n,GH\n\rIJ\r\r"), "ABCDEFGHIJ");
    EXPECT_EQ(Written(",\r\n"), "");
    EXPECT_EQ(Written(""), "");
}

TEST(ImportX509Cert, keeps_every_other_character) {
    const std::string text = " \tA;.|(\x01\x80\xFF)\"\\";
    EXPECT_EQ(Written(text), text);
}

TEST(ImportX509Cert, only_reads_the_callers_text) {
    char certificate[] = "AB,CD\r\n";
    ImportX509Cert(sn, certificate);
    EXPECT_STREQ(certificate, "AB,CD\r\n");
    EXPECT_NE(TheRecorder().Only("GMWritePKCS7").At(1).address,
              static_cast<const void*>(certificate));
}

TEST(ImportX509Cert, passes_megabytes_of_lines) {
    std::string wrapped, plain;
    for (int line = 0; line < 60000; ++line) {
        plain += std::string(64, 'M');
        wrapped += std::string(64, 'M') + ",\r\n";
    }
    EXPECT_TRUE(Written(wrapped) == plain);
}

TEST(ImportX509Cert, passes_the_tokens_code_through) {
    TheRecorder().On("GMWritePKCS7").Returns(static_cast<int>(0xE0000012));
    EXPECT_EQ(ImportX509Cert(sn, "MIIC"), static_cast<int>(0xE0000012));
    EXPECT_EQ(G_LastError, static_cast<int>(0xE0000012));
    EXPECT_FALSE(LogExists());
}

TEST(ImportX509Cert, requires_both_pointers) {
    for (const auto& [serial, text] : {std::pair<const char*, const char*>(nullptr, "MIIC"),
                                       {sn, nullptr},
                                       {nullptr, nullptr}}) {
        G_LastError = 0;
        EXPECT_EQ(ImportX509Cert(serial, text), -401);
        EXPECT_EQ(G_LastError, -401);
    }
    EXPECT_TRUE(g_initFlag) << "the library is initialised before the arguments are checked";
    EXPECT_EQ(Trace(), Lines{});
    EXPECT_FALSE(LogExists());
}

TEST(ImportX509Cert, passes_empty_and_huge_serial_numbers) {
    ImportX509Cert("", "MIIC");
    EXPECT_EQ(TheRecorder().Only("GMWritePKCS7").Bytes(0), "");
    TheRecorder().Forget();
    const std::string huge(2000000, 'S');
    ImportX509Cert(huge.c_str(), "MIIC");
    EXPECT_TRUE(TheRecorder().Only("GMWritePKCS7").Bytes(0) == huge);
}

// ---- The string that the token may fill ------------------------------------------------------

class StringFilledByTheToken : public testing::TestWithParam<std::size_t> {};
INSTANTIATE_TEST_SUITE_P(OfSize, StringFilledByTheToken,
                         testing::Values(0, 1, 7, 8, 1024, 1000000));

TEST_P(StringFilledByTheToken, is_discarded_and_released) {
    TheRecorder().On("GMWritePKCS7").Fills(std::string(GetParam(), 'o'));
    EXPECT_EQ(ImportX509Cert(sn, "MIIC"), 0);
    EXPECT_EQ(ImportEncX509Cert(sn, "MIIC", "key"), 0);
    for (const auto& call : TheRecorder().Calls("GMWritePKCS7")) EXPECT_EQ(call.Bytes(2), "");
    ExpectNoLeak([] {
        ImportX509Cert(sn, "MIIC");
        ImportEncX509Cert(sn, "MIIC", "key");
        ForgetLog();
    });
}

TEST(StringFilledByTheToken, is_released_when_the_token_throws) {
    TheRecorder().On("GMWritePKCS7").Fills(std::string(5000, 'o')).Does([](const auto&) {
        throw std::runtime_error("x");
    });
    ExpectNoLeak([] { EXPECT_THROW(ImportX509Cert(sn, "MIIC"), std::runtime_error); });
}

#ifndef KESTA_SANITIZED
// A sanitizer's malloc does not fail.
TEST(ImportX509Cert, without_memory_throws_the_string_librarys_exception) {
    const FailingAllocation failing(1);
    EXPECT_EQ(CodeThrownBy([] { ImportX509Cert(sn, "MIIC"); }), kOutOfMemory);
    EXPECT_EQ(Trace(), Lines{});
}

TEST(ImportEncX509Cert, without_memory_throws_the_string_librarys_exception) {
    for (const int nth : {1, 2, 3}) {
        const FailingAllocation failing(nth);
        EXPECT_EQ(CodeThrownBy([] { ImportEncX509Cert(sn, "MIIC", "key"); }), kOutOfMemory);
    }
    EXPECT_EQ(Trace(), Lines{});
    EXPECT_FALSE(LogExists());
}
#endif

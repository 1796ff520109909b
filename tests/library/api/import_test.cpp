// ImportX509Cert: one certificate, freed of commas and line breaks.
#include <stdexcept>

#include "api_test.h"
#include "lgn_exception.h"
#include "sanitized.h"

namespace {

const char* const sn = "A1";

std::string written(const std::string& certificate) {
    recorder().forget();
    EXPECT_EQ(ImportX509Cert(sn, certificate.c_str()), 0);
    return recorder().only("GMWritePKCS7").bytes(1);
}

}  // namespace

TEST(ImportX509Cert, passes_serial_number_text_and_an_empty_string) {
    EXPECT_EQ(ImportX509Cert(sn, "MIIC"), 0);
    EXPECT_EQ(trace(), (Lines{"GMWritePKCS7(\"A1\", \"MIIC\", string\"\")"}));
    EXPECT_EQ(G_LastError, 0);
    EXPECT_FALSE(log_exists());
}

TEST(ImportX509Cert, passes_the_callers_own_serial_number) {
    ImportX509Cert(sn, "MIIC");
    EXPECT_EQ(recorder().only("GMWritePKCS7").at(0).address, static_cast<const void*>(sn));
}

TEST(ImportX509Cert, removes_every_comma_and_line_break) {
    EXPECT_EQ(written("AB,CD\r\nEF,\r\n,GH\n\rIJ\r\r"), "ABCDEFGHIJ");
    EXPECT_EQ(written(",\r\n"), "");
    EXPECT_EQ(written(""), "");
}

TEST(ImportX509Cert, keeps_every_other_character) {
    const std::string text = " \tA;.|(\x01\x80\xFF)\"\\";
    EXPECT_EQ(written(text), text);
}

TEST(ImportX509Cert, only_reads_the_callers_text) {
    char certificate[] = "AB,CD\r\n";
    ImportX509Cert(sn, certificate);
    EXPECT_STREQ(certificate, "AB,CD\r\n");
    EXPECT_NE(recorder().only("GMWritePKCS7").at(1).address, static_cast<const void*>(certificate));
}

TEST(ImportX509Cert, passes_megabytes_of_lines) {
    std::string wrapped, plain;
    for (int line = 0; line < 60000; ++line) {
        plain += std::string(64, 'M');
        wrapped += std::string(64, 'M') + ",\r\n";
    }
    EXPECT_TRUE(written(wrapped) == plain);
}

TEST(ImportX509Cert, passes_the_tokens_code_through) {
    recorder().on("GMWritePKCS7").returns(static_cast<int>(0xE0000012));
    EXPECT_EQ(ImportX509Cert(sn, "MIIC"), static_cast<int>(0xE0000012));
    EXPECT_EQ(G_LastError, static_cast<int>(0xE0000012));
    EXPECT_FALSE(log_exists());
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
    EXPECT_EQ(trace(), Lines{});
    EXPECT_FALSE(log_exists());
}

TEST(ImportX509Cert, passes_empty_and_huge_serial_numbers) {
    ImportX509Cert("", "MIIC");
    EXPECT_EQ(recorder().only("GMWritePKCS7").bytes(0), "");
    recorder().forget();
    const std::string huge(2000000, 'S');
    ImportX509Cert(huge.c_str(), "MIIC");
    EXPECT_TRUE(recorder().only("GMWritePKCS7").bytes(0) == huge);
}

// ---- The string that the token may fill ------------------------------------------------------

class StringFilledByTheToken : public testing::TestWithParam<std::size_t> {};
INSTANTIATE_TEST_SUITE_P(OfSize, StringFilledByTheToken,
                         testing::Values(0, 1, 7, 8, 1024, 1000000));

TEST_P(StringFilledByTheToken, is_discarded_and_released) {
    recorder().on("GMWritePKCS7").fills(std::string(GetParam(), 'o'));
    EXPECT_EQ(ImportX509Cert(sn, "MIIC"), 0);
    EXPECT_EQ(ImportEncX509Cert(sn, "MIIC", "key"), 0);
    for (const auto& call : recorder().calls("GMWritePKCS7")) EXPECT_EQ(call.bytes(2), "");
    expect_no_leak([] {
        ImportX509Cert(sn, "MIIC");
        ImportEncX509Cert(sn, "MIIC", "key");
        forget_log();
    });
}

TEST(StringFilledByTheToken, is_released_when_the_token_throws) {
    recorder().on("GMWritePKCS7").fills(std::string(5000, 'o')).does([](const auto&) {
        throw std::runtime_error("x");
    });
    expect_no_leak([] { EXPECT_THROW(ImportX509Cert(sn, "MIIC"), std::runtime_error); });
}

#if !KESTA_SANITIZED
// A sanitizer's malloc does not fail.
TEST(ImportX509Cert, without_memory_throws_the_string_librarys_exception) {
    const FailingAllocation failing(1);
    EXPECT_EQ(code_thrown_by([] { ImportX509Cert(sn, "MIIC"); }), out_of_memory);
    EXPECT_EQ(trace(), Lines{});
}

TEST(ImportEncX509Cert, without_memory_throws_the_string_librarys_exception) {
    for (const int nth : {1, 2, 3}) {
        const FailingAllocation failing(nth);
        EXPECT_EQ(code_thrown_by([] { ImportEncX509Cert(sn, "MIIC", "key"); }), out_of_memory);
    }
    EXPECT_EQ(trace(), Lines{});
    EXPECT_FALSE(log_exists());
}
#endif

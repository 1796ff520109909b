// AsymDec.
#include "api_test.h"

namespace {

constexpr unsigned work_size = 2 * (6 + 4096);  // for a cipher text of six characters

void Answer(const std::string& bytes, unsigned claimed) {
    TheRecorder().On("GMUSBKeyAsymDec2").Writes(4, bytes).WritesNumber(5, claimed);
}

struct Decrypted {
    Decrypted(std::size_t room, unsigned capacity) : buffer(room), length(capacity) {
        code = AsymDec("A1", 1, 2, "cipher", buffer.data(), &length);
    }
    CanaryBuffer buffer;
    unsigned length;
    int code;
};

std::string CipherSeen(const char* cipher) {
    char plain[8];
    unsigned length = 8;
    TheRecorder().Forget();
    EXPECT_EQ(AsymDec("A1", 1, 2, cipher, plain, &length), -404);
    return TheRecorder().Only("GMUSBKeyAsymDec2").Bytes(3);
}

}  // namespace

TEST(AsymDec, hands_its_arguments_on_with_a_zeroed_work_buffer_and_its_size) {
    TheRecorder().Capture("GMUSBKeyAsymDec2", 4, work_size);
    CanaryBuffer plain(8);
    unsigned length = 8;
    AsymDec("A1", -1, 0xFFFFFFFF, "cipher", plain.data(), &length);
    EXPECT_EQ(Trace(), (Lines{"GMUSBKeyAsymDec2(\"A1\", -1, 4294967295, \"cipher\", zero[8204], "
                              "&8204)"}));
}

TEST(AsymDec, hands_on_a_length_and_a_buffer_of_its_own) {
    CanaryBuffer plain(8);
    unsigned length = 8;
    AsymDec("A1", 1, 2, "cipher", plain.data(), &length);
    const recording::Call call = TheRecorder().Only("GMUSBKeyAsymDec2");
    EXPECT_NE(call.At(4).address, plain.data());
    EXPECT_NE(call.At(5).address, &length);
}

TEST(AsymDec, hands_on_copies_of_serial_number_and_cipher) {
    char serial[] = "A1";
    char cipher[] = "cipher";
    TheRecorder().On("GMUSBKeyAsymDec2").Writes(0, "zz").Writes(3, "zzzzzz").WritesNumber(5, 0);
    CanaryBuffer plain(8);
    unsigned length = 8;
    EXPECT_EQ(AsymDec(serial, 1, 2, cipher, plain.data(), &length), 0);
    EXPECT_STREQ(serial, "A1");
    EXPECT_STREQ(cipher, "cipher");
}

TEST(AsymDec, joins_the_lines_of_the_cipher_text) {
    EXPECT_EQ(CipherSeen("first\r\nsecond\r\n"), "firstsecond");
}

TEST(AsymDec, drops_every_CR_and_every_LF_wherever_it_stands) {
    EXPECT_EQ(CipherSeen("\r\ra\n\nb\n\rc\r"), "abc");
    EXPECT_EQ(CipherSeen("\n\r\r\n"), "");
    EXPECT_EQ(CipherSeen(""), "");
}

TEST(AsymDec, keeps_commas_and_blanks_of_the_cipher_text) {
    EXPECT_EQ(CipherSeen(" a,b\tc "), " a,b\tc ");
}

TEST(AsymDec, sizes_its_work_by_the_cipher_text_with_its_line_breaks) {
    CanaryBuffer plain(8);
    unsigned length = 8;
    AsymDec("A1", 1, 2, "a\r\nb\r\n", plain.data(), &length);
    EXPECT_EQ(Trace(), (Lines{"GMUSBKeyAsymDec2(\"A1\", 1, 2, \"ab\", pointer, &8204)"}));
}

TEST(AsymDec, takes_a_null_serial_number_for_an_empty_text) {
    Answer("", 0);
    CanaryBuffer plain(8);
    unsigned length = 8;
    EXPECT_EQ(AsymDec(nullptr, 1, 2, "c", plain.data(), &length), 0);
    EXPECT_EQ(TheRecorder().Only("GMUSBKeyAsymDec2").Describe(),
              "GMUSBKeyAsymDec2(\"\", 1, 2, \"c\", pointer, &8194)");
}

TEST(AsymDec, without_cipher_or_length_is_minus_401) {
    CanaryBuffer plain(8);
    unsigned length = 8;
    EXPECT_EQ(AsymDec("A1", 1, 2, nullptr, plain.data(), &length), -401);
    EXPECT_EQ(G_LastError, -401);
    G_LastError = 0;
    EXPECT_EQ(AsymDec("A1", 1, 2, "c", plain.data(), nullptr), -401);
    EXPECT_EQ(G_LastError, -401);
    EXPECT_EQ(AsymDec("A1", 1, 2, nullptr, nullptr, &length), -401);
    EXPECT_EQ(length, 8U);
    EXPECT_TRUE(plain.Untouched());
    EXPECT_EQ(Trace(), Lines{});
    EXPECT_TRUE(g_initFlag);
}

TEST(AsymDec, answers_a_probe_with_twice_the_length_plus_8192_without_asking) {
    Initialize();
    G_LastError = unrelated_code;
    unsigned length = 0;
    EXPECT_EQ(AsymDec("A1", 1, 2, "cipher", nullptr, &length), 0);
    EXPECT_EQ(length, 8204U);
    EXPECT_EQ(G_LastError, 0);
    EXPECT_EQ(AsymDec(nullptr, 1, 2, "", nullptr, &length), 0);
    EXPECT_EQ(length, 8192U);
    EXPECT_EQ(Trace(), Lines{});
}

// ---- Lengths ------------------------------------------------------------------------------------

TEST(AsymDec, leaves_buffer_and_length_when_the_token_refuses) {
    TheRecorder().On("GMUSBKeyAsymDec2").Returns(91).Writes(4, "plain").WritesNumber(5, 5);
    const Decrypted decrypted(64, 64);
    EXPECT_EQ(decrypted.code, 91);
    EXPECT_EQ(G_LastError, 91);
    EXPECT_EQ(decrypted.length, 64U);
    EXPECT_TRUE(decrypted.buffer.Untouched());
}

TEST(AsymDec, writes_the_length_and_the_text_with_its_NUL) {
    Answer("plain", 5);
    const Decrypted decrypted(64, 64);
    EXPECT_EQ(decrypted.code, 0);
    EXPECT_EQ(G_LastError, 0);
    EXPECT_EQ(decrypted.length, 5U);
    EXPECT_TRUE(decrypted.buffer.HoldsOnly(std::string("plain", 6)));
}

TEST(AsymDec, with_a_shorter_length_is_minus_404_and_repeating_it_with_that_length_succeeds) {
    Answer("plain", 5);
    CanaryBuffer plain(8);
    unsigned length = 4;
    EXPECT_EQ(AsymDec("A1", 1, 2, "c", plain.data(), &length), -404);
    EXPECT_EQ(G_LastError, -404);
    EXPECT_EQ(length, 5U);
    EXPECT_TRUE(plain.Untouched());
    EXPECT_EQ(AsymDec("A1", 1, 2, "c", plain.data(), &length), 0);
    EXPECT_TRUE(plain.HoldsOnly(std::string("plain", 6)));
    EXPECT_EQ(TheRecorder().Calls("GMUSBKeyAsymDec2").size(), 2U);
}

TEST(AsymDec, takes_the_callers_length_as_signed) {
    Answer("plain", 5);
    const Decrypted decrypted(64, 0x80000000);
    EXPECT_EQ(decrypted.code, -404);
    EXPECT_EQ(decrypted.length, 5U);
    EXPECT_TRUE(decrypted.buffer.Untouched());
}

TEST(AsymDec, takes_the_tokens_length_as_signed) {
    Answer("plain", 0xFFFFFFFF);
    const Decrypted decrypted(64, 32);
    EXPECT_EQ(decrypted.code, 0);
    EXPECT_EQ(decrypted.length, 0xFFFFFFFFU);
    EXPECT_TRUE(decrypted.buffer.HoldsOnly(std::string("plain", 6)));
}

// The token that leaves the length alone claims the whole work buffer.
TEST(AsymDec, compares_the_size_of_its_work_when_the_token_leaves_the_length) {
    TheRecorder().On("GMUSBKeyAsymDec2").Writes(4, "plain");
    const Decrypted decrypted(64, 64);
    EXPECT_EQ(decrypted.code, -404);
    EXPECT_EQ(decrypted.length, work_size);
    EXPECT_TRUE(decrypted.buffer.Untouched());
}

TEST(AsymDec, copies_the_whole_text_when_its_length_is_understated) {
    Answer("plaintext", 2);
    const Decrypted decrypted(64, 64);
    EXPECT_EQ(decrypted.code, 0);
    EXPECT_EQ(decrypted.length, 2U);
    EXPECT_TRUE(decrypted.buffer.HoldsOnly(std::string("plaintext", 10)));
}

TEST(AsymDec, stays_within_the_capacity_and_a_NUL_when_the_length_is_understated) {
    Answer("plaintext", 2);
    const Decrypted decrypted(64, 5);
    EXPECT_EQ(decrypted.code, 0);
    EXPECT_TRUE(decrypted.buffer.HoldsOnly(std::string("plain", 6)));
}

TEST(AsymDec, ends_the_plain_text_at_its_first_NUL_and_reports_the_tokens_length) {
    Answer(std::string("pl\0in", 5), 5);
    const Decrypted decrypted(64, 64);
    EXPECT_EQ(decrypted.length, 5U);
    EXPECT_TRUE(decrypted.buffer.HoldsOnly(std::string("pl", 3)));
}

TEST(AsymDec, never_reads_past_a_full_work_buffer_without_a_NUL) {
    const std::string full(work_size, 'p');
    Answer(full, work_size);
    const Decrypted decrypted(work_size + 16, work_size + 8);
    EXPECT_EQ(decrypted.code, 0);
    EXPECT_EQ(decrypted.length, work_size);
    EXPECT_TRUE(decrypted.buffer.HoldsOnly(full + std::string(1, '\0')));
}

// ---- Memory -------------------------------------------------------------------------------------

TEST(AsymDec, leaks_nothing_on_any_path) {
    char plain[16];
    unsigned length = 0;
    for (const int code : {0, 5}) {
        TheRecorder().On("GMUSBKeyAsymDec2").Returns(code).WritesNumber(5, 3);
        for (const unsigned capacity : {2U, 16U}) {
            ExpectNoLeak([&] {
                length = capacity;
                AsymDec("A1", 1, 2, "a\r\nb", plain, &length);
            });
        }
    }
}

TEST(AsymDec, leaks_nothing_when_memory_runs_out) {
    char plain[16];
    unsigned length = 16;
    Initialize();
    ExpectNoLeak([&] {
        const FailingAllocation failing(1);
        EXPECT_ANY_THROW(AsymDec("A1", 1, 2, "c", plain, &length));
        EXPECT_TRUE(failing.Happened());
    });
    EXPECT_EQ(Trace(), Lines{});
    EXPECT_EQ(length, 16U);
}

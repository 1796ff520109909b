// GetCert: a certificate's text out of an internal buffer of 4096 bytes.
#include "api_test.h"

namespace {

constexpr unsigned internal = 4096;

// What the token library puts into the internal buffer, and the length that it claims.
void Answer(const std::string& bytes, unsigned claimed) {
    TheRecorder().On("GetCertInfo").Writes(3, bytes).WritesNumber(4, claimed);
}

// A call with a buffer: what the caller then finds.
struct Fetched {
    Fetched(unsigned room, unsigned capacity) : buffer(room), length(capacity) {
        code = GetCert("A1", 1, 2, buffer.data(), &length);
    }
    CanaryBuffer buffer;
    unsigned length;
    int code;
};

}  // namespace

TEST(GetCert, hands_its_arguments_on_with_a_zeroed_buffer_and_its_size) {
    const char* const serial = "A1";
    unsigned length = 0;
    EXPECT_EQ(GetCert(serial, 7, 0xFFFFFFFF, nullptr, &length), 0);
    EXPECT_EQ(Trace(), (Lines{"GetCertInfo(\"A1\", 7, 4294967295, zero[4096], &4096)"}));
    EXPECT_EQ(TheRecorder().Only("GetCertInfo").At(0).address, serial);
}

TEST(GetCert, offers_a_zeroed_buffer_each_time) {
    Answer(std::string(internal, 'x'), internal);
    unsigned length = 0;
    GetCert("A1", 1, 2, nullptr, &length);
    GetCert("A1", 1, 2, nullptr, &length);
    const std::string call = "GetCertInfo(\"A1\", 1, 2, zero[4096], &4096)";
    EXPECT_EQ(Trace(), (Lines{call, call}));
}

TEST(GetCert, without_a_length_pointer_is_minus_401) {
    CanaryBuffer buffer(8);
    EXPECT_EQ(GetCert("A1", 1, 2, buffer.data(), nullptr), -401);
    EXPECT_EQ(G_LastError, -401);
    EXPECT_TRUE(buffer.Untouched());
    EXPECT_EQ(Trace(), Lines{});
    EXPECT_TRUE(g_initFlag);
}

TEST(GetCert, without_a_serial_number_is_minus_401_and_leaves_the_length) {
    CanaryBuffer buffer(8);
    unsigned length = 8;
    EXPECT_EQ(GetCert(nullptr, 1, 2, buffer.data(), &length), -401);
    EXPECT_EQ(GetCert(nullptr, 1, 2, nullptr, &length), -401);
    EXPECT_EQ(G_LastError, -401);
    EXPECT_EQ(length, 8U);
    EXPECT_TRUE(buffer.Untouched());
    EXPECT_EQ(Trace(), Lines{});
}

TEST(GetCert, takes_an_empty_serial_number) {
    unsigned length = 0;
    EXPECT_EQ(GetCert("", 1, 2, nullptr, &length), 0);
    EXPECT_EQ(Trace().size(), 1U);
}

TEST(GetCert, leaves_buffer_and_length_when_the_token_refuses) {
    TheRecorder().On("GetCertInfo").Returns(0x88).Writes(3, "CERT").WritesNumber(4, 4);
    const Fetched fetched(64, 64);
    EXPECT_EQ(fetched.code, 0x88);
    EXPECT_EQ(G_LastError, 0x88);
    EXPECT_EQ(fetched.length, 64U);
    EXPECT_TRUE(fetched.buffer.Untouched());
}

TEST(GetCert, leaves_the_length_of_a_probe_when_the_token_refuses) {
    TheRecorder().On("GetCertInfo").Returns(-1).WritesNumber(4, 4);
    unsigned length = 9;
    EXPECT_EQ(GetCert("A1", 1, 2, nullptr, &length), -1);
    EXPECT_EQ(length, 9U);
}

// ---- Lengths ------------------------------------------------------------------------------------

TEST(GetCert, accepts_the_probed_length) {
    Answer("CERT", 4);
    const Fetched fetched(5, 5);
    EXPECT_EQ(fetched.code, 0);
    EXPECT_EQ(fetched.length, 4U);
    EXPECT_TRUE(fetched.buffer.HoldsOnly(std::string("CERT", 5)));
    EXPECT_EQ(G_LastError, 0);
}

TEST(GetCert, writes_no_more_than_text_and_NUL_into_a_larger_buffer) {
    Answer("CERT", 4);
    const Fetched fetched(64, 64);
    EXPECT_EQ(fetched.length, 4U);
    EXPECT_TRUE(fetched.buffer.HoldsOnly(std::string("CERT", 5)));
}

TEST(GetCert, takes_the_callers_length_as_signed) {
    Answer("CERT", 4);
    const Fetched fetched(64, 0x80000000);
    EXPECT_EQ(fetched.code, -404);
    EXPECT_EQ(fetched.length, 4U);
    EXPECT_TRUE(fetched.buffer.Untouched());
}

TEST(GetCert, takes_the_tokens_length_as_signed) {
    Answer("CERT", 0xFFFFFFFE);
    const Fetched fetched(64, 32);
    EXPECT_EQ(fetched.code, 0);
    EXPECT_EQ(fetched.length, 0xFFFFFFFEU);
    EXPECT_TRUE(fetched.buffer.HoldsOnly(std::string("CERT", 5)));
}

TEST(GetCert, of_an_empty_certificate_writes_a_NUL_alone) {
    Answer("", 0);
    const Fetched fetched(2, 0);
    EXPECT_EQ(fetched.code, 0);
    EXPECT_EQ(fetched.length, 0U);
    EXPECT_TRUE(fetched.buffer.HoldsOnly(std::string(1, '\0')));
}

// ---- A token library whose length and text differ -----------------------------------------------

TEST(GetCert, believes_a_length_beyond_the_text_and_copies_the_text) {
    Answer("CERT", 10);
    const Fetched fetched(64, 10);
    EXPECT_EQ(fetched.code, 0);
    EXPECT_EQ(fetched.length, 10U);
    EXPECT_TRUE(fetched.buffer.HoldsOnly(std::string("CERT", 5)));
}

TEST(GetCert, compares_the_claimed_length_and_not_the_texts) {
    Answer("CERT", 10);
    const Fetched fetched(64, 9);
    EXPECT_EQ(fetched.code, -404);
    EXPECT_EQ(fetched.length, 10U);
    EXPECT_TRUE(fetched.buffer.Untouched());
}

TEST(GetCert, copies_the_whole_text_when_its_length_is_understated) {
    Answer("CERTIFICATE", 4);
    const Fetched fetched(64, 64);
    EXPECT_EQ(fetched.code, 0);
    EXPECT_EQ(fetched.length, 4U);
    EXPECT_TRUE(fetched.buffer.HoldsOnly(std::string("CERTIFICATE", 12)));
}

TEST(GetCert, stays_within_the_capacity_and_a_NUL_when_the_length_is_understated) {
    Answer("CERTIFICATE", 4);
    const Fetched fetched(64, 6);
    EXPECT_EQ(fetched.code, 0);
    EXPECT_EQ(fetched.length, 4U);
    EXPECT_TRUE(fetched.buffer.HoldsOnly(std::string("CERTIF", 7)));
}

TEST(GetCert, answers_a_probe_from_the_claimed_length_whatever_the_text) {
    unsigned length = 0;
    Answer("CERT", 5000);
    EXPECT_EQ(GetCert("A1", 1, 2, nullptr, &length), 0);
    EXPECT_EQ(length, 5001U);
    Answer("CERT", 0xFFFFFFFF);
    EXPECT_EQ(GetCert("A1", 1, 2, nullptr, &length), 0);
    EXPECT_EQ(length, 0U);
}

TEST(GetCert, hands_out_4095_characters_behind_which_the_NUL_stands) {
    const std::string text(internal - 1, 'c');
    Answer(text, internal - 1);
    const Fetched fetched(internal, internal - 1);
    EXPECT_EQ(fetched.code, 0);
    EXPECT_TRUE(fetched.buffer.HoldsOnly(text + std::string(1, '\0')));
}

TEST(GetCert, never_reads_past_a_full_buffer_without_a_NUL) {
    const std::string text(internal, 'c');
    Answer(text, internal);
    const Fetched fetched(internal + 8, internal + 8);
    EXPECT_EQ(fetched.code, 0);
    EXPECT_EQ(fetched.length, internal);
    EXPECT_TRUE(fetched.buffer.HoldsOnly(text + std::string(1, '\0')));
}

TEST(GetCert, never_reads_past_its_buffer_for_a_length_beyond_it) {
    const std::string text(internal, 'c');
    Answer(text, 5000);
    const Fetched fetched(6000, 5000);
    EXPECT_EQ(fetched.code, 0);
    EXPECT_EQ(fetched.length, 5000U);
    EXPECT_TRUE(fetched.buffer.HoldsOnly(text + std::string(1, '\0')));
}

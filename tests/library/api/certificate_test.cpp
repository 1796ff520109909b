// GetCert: a certificate's text out of an internal buffer of 4096 bytes.
#include "api_test.h"

namespace {

constexpr unsigned internal = 4096;

// What the token library puts into the internal buffer, and the length that it claims.
void answer(const std::string& bytes, unsigned claimed) {
    recorder().on("GetCertInfo").writes(3, bytes).writes_number(4, claimed);
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
    EXPECT_EQ(trace(), (Lines{"GetCertInfo(\"A1\", 7, 4294967295, zero[4096], &4096)"}));
    EXPECT_EQ(recorder().only("GetCertInfo").at(0).address, serial);
}

TEST(GetCert, offers_a_zeroed_buffer_each_time) {
    answer(std::string(internal, 'x'), internal);
    unsigned length = 0;
    GetCert("A1", 1, 2, nullptr, &length);
    GetCert("A1", 1, 2, nullptr, &length);
    const std::string call = "GetCertInfo(\"A1\", 1, 2, zero[4096], &4096)";
    EXPECT_EQ(trace(), (Lines{call, call}));
}

TEST(GetCert, without_a_length_pointer_is_minus_401) {
    CanaryBuffer buffer(8);
    EXPECT_EQ(GetCert("A1", 1, 2, buffer.data(), nullptr), -401);
    EXPECT_EQ(G_LastError, -401);
    EXPECT_TRUE(buffer.untouched());
    EXPECT_EQ(trace(), Lines{});
    EXPECT_TRUE(g_initFlag);
}

TEST(GetCert, without_a_serial_number_is_minus_401_and_leaves_the_length) {
    CanaryBuffer buffer(8);
    unsigned length = 8;
    EXPECT_EQ(GetCert(nullptr, 1, 2, buffer.data(), &length), -401);
    EXPECT_EQ(GetCert(nullptr, 1, 2, nullptr, &length), -401);
    EXPECT_EQ(G_LastError, -401);
    EXPECT_EQ(length, 8U);
    EXPECT_TRUE(buffer.untouched());
    EXPECT_EQ(trace(), Lines{});
}

TEST(GetCert, takes_an_empty_serial_number) {
    unsigned length = 0;
    EXPECT_EQ(GetCert("", 1, 2, nullptr, &length), 0);
    EXPECT_EQ(trace().size(), 1U);
}

TEST(GetCert, leaves_buffer_and_length_when_the_token_refuses) {
    recorder().on("GetCertInfo").returns(0x88).writes(3, "CERT").writes_number(4, 4);
    const Fetched fetched(64, 64);
    EXPECT_EQ(fetched.code, 0x88);
    EXPECT_EQ(G_LastError, 0x88);
    EXPECT_EQ(fetched.length, 64U);
    EXPECT_TRUE(fetched.buffer.untouched());
}

TEST(GetCert, leaves_the_length_of_a_probe_when_the_token_refuses) {
    recorder().on("GetCertInfo").returns(-1).writes_number(4, 4);
    unsigned length = 9;
    EXPECT_EQ(GetCert("A1", 1, 2, nullptr, &length), -1);
    EXPECT_EQ(length, 9U);
}

// ---- Lengths ------------------------------------------------------------------------------------

TEST(GetCert, accepts_the_probed_length) {
    answer("CERT", 4);
    const Fetched fetched(5, 5);
    EXPECT_EQ(fetched.code, 0);
    EXPECT_EQ(fetched.length, 4U);
    EXPECT_TRUE(fetched.buffer.holds_only(std::string("CERT", 5)));
    EXPECT_EQ(G_LastError, 0);
}

TEST(GetCert, writes_no_more_than_text_and_NUL_into_a_larger_buffer) {
    answer("CERT", 4);
    const Fetched fetched(64, 64);
    EXPECT_EQ(fetched.length, 4U);
    EXPECT_TRUE(fetched.buffer.holds_only(std::string("CERT", 5)));
}

TEST(GetCert, takes_the_callers_length_as_signed) {
    answer("CERT", 4);
    const Fetched fetched(64, 0x80000000);
    EXPECT_EQ(fetched.code, -404);
    EXPECT_EQ(fetched.length, 4U);
    EXPECT_TRUE(fetched.buffer.untouched());
}

TEST(GetCert, takes_the_tokens_length_as_signed) {
    answer("CERT", 0xFFFFFFFE);
    const Fetched fetched(64, 32);
    EXPECT_EQ(fetched.code, 0);
    EXPECT_EQ(fetched.length, 0xFFFFFFFEU);
    EXPECT_TRUE(fetched.buffer.holds_only(std::string("CERT", 5)));
}

TEST(GetCert, of_an_empty_certificate_writes_a_NUL_alone) {
    answer("", 0);
    const Fetched fetched(2, 0);
    EXPECT_EQ(fetched.code, 0);
    EXPECT_EQ(fetched.length, 0U);
    EXPECT_TRUE(fetched.buffer.holds_only(std::string(1, '\0')));
}

// ---- A token library whose length and text differ -----------------------------------------------

TEST(GetCert, believes_a_length_beyond_the_text_and_copies_the_text) {
    answer("CERT", 10);
    const Fetched fetched(64, 10);
    EXPECT_EQ(fetched.code, 0);
    EXPECT_EQ(fetched.length, 10U);
    EXPECT_TRUE(fetched.buffer.holds_only(std::string("CERT", 5)));
}

TEST(GetCert, compares_the_claimed_length_and_not_the_texts) {
    answer("CERT", 10);
    const Fetched fetched(64, 9);
    EXPECT_EQ(fetched.code, -404);
    EXPECT_EQ(fetched.length, 10U);
    EXPECT_TRUE(fetched.buffer.untouched());
}

TEST(GetCert, copies_the_whole_text_when_its_length_is_understated) {
    answer("CERTIFICATE", 4);
    const Fetched fetched(64, 64);
    EXPECT_EQ(fetched.code, 0);
    EXPECT_EQ(fetched.length, 4U);
    EXPECT_TRUE(fetched.buffer.holds_only(std::string("CERTIFICATE", 12)));
}

TEST(GetCert, stays_within_the_capacity_and_a_NUL_when_the_length_is_understated) {
    answer("CERTIFICATE", 4);
    const Fetched fetched(64, 6);
    EXPECT_EQ(fetched.code, 0);
    EXPECT_EQ(fetched.length, 4U);
    EXPECT_TRUE(fetched.buffer.holds_only(std::string("CERTIF", 7)));
}

TEST(GetCert, answers_a_probe_from_the_claimed_length_whatever_the_text) {
    unsigned length = 0;
    answer("CERT", 5000);
    EXPECT_EQ(GetCert("A1", 1, 2, nullptr, &length), 0);
    EXPECT_EQ(length, 5001U);
    answer("CERT", 0xFFFFFFFF);
    EXPECT_EQ(GetCert("A1", 1, 2, nullptr, &length), 0);
    EXPECT_EQ(length, 0U);
}

TEST(GetCert, hands_out_4095_characters_behind_which_the_NUL_stands) {
    const std::string text(internal - 1, 'c');
    answer(text, internal - 1);
    const Fetched fetched(internal, internal - 1);
    EXPECT_EQ(fetched.code, 0);
    EXPECT_TRUE(fetched.buffer.holds_only(text + std::string(1, '\0')));
}

TEST(GetCert, never_reads_past_a_full_buffer_without_a_NUL) {
    const std::string text(internal, 'c');
    answer(text, internal);
    const Fetched fetched(internal + 8, internal + 8);
    EXPECT_EQ(fetched.code, 0);
    EXPECT_EQ(fetched.length, internal);
    EXPECT_TRUE(fetched.buffer.holds_only(text + std::string(1, '\0')));
}

TEST(GetCert, never_reads_past_its_buffer_for_a_length_beyond_it) {
    const std::string text(internal, 'c');
    answer(text, 5000);
    const Fetched fetched(6000, 5000);
    EXPECT_EQ(fetched.code, 0);
    EXPECT_EQ(fetched.length, 5000U);
    EXPECT_TRUE(fetched.buffer.holds_only(text + std::string(1, '\0')));
}

// Sign and SignHash.
#include "api_test.h"

// ---- Sign ---------------------------------------------------------------------------------------

namespace {

int TrySign(char* signature, unsigned* length) {
    return Sign("A1", 1, 2, "data", "warning", signature, length);
}

}  // namespace

TEST(Sign, sets_the_warning_and_then_signs_with_the_callers_pointers) {
    const char* const serial = "A1";
    const char* const data = "data";
    const char* const warning = "warning";
    CanaryBuffer signature(8);
    unsigned length = 8;
    EXPECT_EQ(Sign(serial, 3, 4, data, warning, signature.data(), &length), 0);
    EXPECT_EQ(Trace(), (Lines{"SetWarningMsg(\"A1\", \"warning\")",
                              "GMUsbKeyCriticalSign(\"A1\", 3, 4, \"data\", pointer, &8)"}));
    const recording::Call warned = TheRecorder().Only("SetWarningMsg");
    EXPECT_EQ(warned.At(0).address, serial);
    EXPECT_EQ(warned.At(1).address, warning);
    const recording::Call signedBy = TheRecorder().Only("GMUsbKeyCriticalSign");
    EXPECT_EQ(signedBy.At(0).address, serial);
    EXPECT_EQ(signedBy.At(3).address, data);
    EXPECT_EQ(signedBy.At(4).address, signature.data());
    EXPECT_EQ(signedBy.At(5).address, &length);
    EXPECT_TRUE(signature.Untouched());
    EXPECT_EQ(length, 8U);
}

TEST(Sign, widens_its_options_with_their_sign) {
    CanaryBuffer signature(8);
    unsigned length = 8;
    Sign("A1", -1, -2147483647 - 1, "d", "w", signature.data(), &length);
    EXPECT_EQ(Trace().back(), "GMUsbKeyCriticalSign(\"A1\", -1, -2147483648, \"d\", pointer, &8)");
    EXPECT_EQ(TheRecorder().Only("GMUsbKeyCriticalSign").At(1).width, 8);
}

TEST(Sign, lets_the_token_write_signature_and_length_whatever_the_capacity) {
    TheRecorder().On("GMUsbKeyCriticalSign").Writes(4, "MEUC").WritesNumber(5, 0xFFFFFFF0);
    CanaryBuffer signature(8);
    unsigned length = 1;
    EXPECT_EQ(TrySign(signature.data(), &length), 0);
    EXPECT_TRUE(signature.HoldsOnly("MEUC"));
    EXPECT_EQ(length, 0xFFFFFFF0U);
}

TEST(Sign, returns_the_result_of_the_warning_and_never_signs) {
    TheRecorder().On("SetWarningMsg").Returns(41);
    CanaryBuffer signature(8);
    unsigned length = 8;
    EXPECT_EQ(TrySign(signature.data(), &length), 41);
    EXPECT_EQ(G_LastError, 41);
    EXPECT_EQ(TheRecorder().Names(), (Lines{"SetWarningMsg"}));
    EXPECT_EQ(length, 8U);
    EXPECT_TRUE(signature.Untouched());
}

TEST(Sign, stores_and_returns_the_code_of_the_signature) {
    TheRecorder().On("GMUsbKeyCriticalSign").Returns(-42);
    CanaryBuffer signature(8);
    unsigned length = 8;
    EXPECT_EQ(TrySign(signature.data(), &length), -42);
    EXPECT_EQ(G_LastError, -42);
}

TEST(Sign, answers_a_probe_with_twice_the_length_plus_8192_without_asking) {
    Initialize();
    G_LastError = unrelated_code;
    unsigned length = 0;
    EXPECT_EQ(TrySign(nullptr, &length), 0);
    EXPECT_EQ(length, 8200U);
    EXPECT_EQ(G_LastError, 0);
    EXPECT_EQ(Trace(), Lines{});
    EXPECT_EQ(Sign(nullptr, 1, 2, "", "", nullptr, &length), 0);
    EXPECT_EQ(length, 8192U);
}

TEST(Sign, without_data_length_or_warning_is_minus_401) {
    CanaryBuffer signature(8);
    unsigned length = 8;
    const auto call = [&](const char* data, const char* warning, unsigned* size) {
        G_LastError = unrelated_code;
        const int code = Sign("A1", 1, 2, data, warning, signature.data(), size);
        return G_LastError == code ? code : unrelated_code;
    };
    EXPECT_EQ(call(nullptr, "w", &length), -401);
    EXPECT_EQ(call("d", nullptr, &length), -401);
    EXPECT_EQ(call("d", "w", nullptr), -401);
    EXPECT_EQ(length, 8U);
    EXPECT_TRUE(signature.Untouched());
    EXPECT_EQ(Trace(), Lines{});
    EXPECT_TRUE(g_initFlag);
}

TEST(Sign, without_a_warning_is_minus_401_also_for_a_probe) {
    unsigned length = 8;
    EXPECT_EQ(Sign("A1", 1, 2, "d", nullptr, nullptr, &length), -401);
    EXPECT_EQ(Sign("A1", 1, 2, nullptr, "w", nullptr, &length), -401);
    EXPECT_EQ(length, 8U);
}

TEST(Sign, hands_a_null_serial_number_on) {
    CanaryBuffer signature(8);
    unsigned length = 8;
    EXPECT_EQ(Sign(nullptr, 1, 2, "d", "w", signature.data(), &length), 0);
    EXPECT_EQ(Trace(), (Lines{"SetWarningMsg(null, \"w\")",
                              "GMUsbKeyCriticalSign(null, 1, 2, \"d\", pointer, &8)"}));
}

// ---- SignHash -----------------------------------------------------------------------------------

namespace {

constexpr std::size_t work_size = 2 * (4 + 4096);  // for a hash of four characters

int TrySignHash(char* signature, unsigned* length) {
    return SignHash("A1", 1, 2, "hash", 3, signature, length);
}

}  // namespace

TEST(SignHash, hands_its_arguments_on_with_a_zeroed_work_buffer) {
    TheRecorder().Capture("GMUsbKeyCommonSign", 5, work_size);
    CanaryBuffer signature(8);
    unsigned length = 8;
    EXPECT_EQ(SignHash("A1", -1, -2147483647 - 1, "hash", -3, signature.data(), &length), 0);
    EXPECT_EQ(Trace(), (Lines{"GMUsbKeyCommonSign(\"A1\", -1, -2147483648, \"hash\", -3, "
                              "zero[8200], &8)"}));
}

TEST(SignHash, hands_on_the_callers_own_length_pointer) {
    CanaryBuffer signature(8);
    unsigned length = 3;
    TrySignHash(signature.data(), &length);
    EXPECT_EQ(TheRecorder().Only("GMUsbKeyCommonSign").At(6).address, &length);
    EXPECT_EQ(length, 3U);
}

TEST(SignHash, hands_on_copies_of_serial_number_and_hash_and_a_buffer_of_its_own) {
    char serial[] = "A1";
    char hash[] = "hash";
    TheRecorder().On("GMUsbKeyCommonSign").Writes(0, "zz").Writes(3, "zzzz");
    CanaryBuffer signature(8);
    unsigned length = 8;
    EXPECT_EQ(SignHash(serial, 1, 2, hash, 3, signature.data(), &length), 0);
    EXPECT_STREQ(serial, "A1");
    EXPECT_STREQ(hash, "hash");
    EXPECT_NE(TheRecorder().Only("GMUsbKeyCommonSign").At(5).address, signature.data());
}

TEST(SignHash, hands_on_line_breaks_in_the_hash_unchanged) {
    CanaryBuffer signature(8);
    unsigned length = 8;
    SignHash("A1", 1, 2, "a\r\nb,", 3, signature.data(), &length);
    EXPECT_EQ(TheRecorder().Only("GMUsbKeyCommonSign").Bytes(3), "a\r\nb,");
}

TEST(SignHash, copies_the_signature_as_a_text_whatever_the_capacity) {
    TheRecorder()
        .On("GMUsbKeyCommonSign")
        .Writes(5, std::string("MEUC\0rest", 9))
        .WritesNumber(6, 2);
    CanaryBuffer signature(16);
    unsigned length = 1;
    EXPECT_EQ(TrySignHash(signature.data(), &length), 0);
    EXPECT_TRUE(signature.HoldsOnly(std::string("MEUC", 5)));
    EXPECT_EQ(length, 2U);
    EXPECT_EQ(G_LastError, 0);
}

TEST(SignHash, copies_an_empty_signature_as_a_NUL) {
    CanaryBuffer signature(16);
    unsigned length = 16;
    EXPECT_EQ(TrySignHash(signature.data(), &length), 0);
    EXPECT_TRUE(signature.HoldsOnly(std::string(1, '\0')));
    EXPECT_EQ(length, 16U);
}

TEST(SignHash, copies_nothing_when_the_token_refuses) {
    TheRecorder().On("GMUsbKeyCommonSign").Returns(61).Writes(5, "MEUC");
    CanaryBuffer signature(16);
    unsigned length = 16;
    EXPECT_EQ(TrySignHash(signature.data(), &length), 61);
    EXPECT_EQ(G_LastError, 61);
    EXPECT_TRUE(signature.Untouched());
}

TEST(SignHash, never_reads_past_a_full_work_buffer_without_a_NUL) {
    const std::string full(work_size, 's');
    TheRecorder().On("GMUsbKeyCommonSign").Writes(5, full);
    CanaryBuffer signature(work_size + 16);
    unsigned length = work_size;
    EXPECT_EQ(TrySignHash(signature.data(), &length), 0);
    EXPECT_TRUE(signature.HoldsOnly(full + std::string(1, '\0')));
}

TEST(SignHash, answers_a_probe_with_twice_the_length_plus_8192_without_asking) {
    Initialize();
    G_LastError = unrelated_code;
    unsigned length = 0;
    EXPECT_EQ(TrySignHash(nullptr, &length), 0);
    EXPECT_EQ(length, 8200U);
    EXPECT_EQ(G_LastError, 0);
    EXPECT_EQ(SignHash(nullptr, 1, 2, "", 3, nullptr, &length), 0);
    EXPECT_EQ(length, 8192U);
    EXPECT_EQ(Trace(), Lines{});
}

TEST(SignHash, without_hash_or_length_is_minus_401) {
    CanaryBuffer signature(8);
    unsigned length = 8;
    EXPECT_EQ(SignHash("A1", 1, 2, nullptr, 3, signature.data(), &length), -401);
    EXPECT_EQ(G_LastError, -401);
    G_LastError = 0;
    EXPECT_EQ(SignHash("A1", 1, 2, "hash", 3, signature.data(), nullptr), -401);
    EXPECT_EQ(G_LastError, -401);
    EXPECT_EQ(SignHash("A1", 1, 2, nullptr, 3, nullptr, &length), -401);
    EXPECT_EQ(length, 8U);
    EXPECT_TRUE(signature.Untouched());
    EXPECT_EQ(Trace(), Lines{});
    EXPECT_TRUE(g_initFlag);
}

TEST(SignHash, takes_a_null_serial_number_for_an_empty_text) {
    CanaryBuffer signature(8);
    unsigned length = 8;
    EXPECT_EQ(SignHash(nullptr, 1, 2, "hash", 3, signature.data(), &length), 0);
    EXPECT_EQ(Trace(), (Lines{"GMUsbKeyCommonSign(\"\", 1, 2, \"hash\", 3, pointer, &8)"}));
}

TEST(SignHash, logs_nothing_and_leaks_nothing) {
    char signature[8];
    unsigned length = 8;
    ExpectNoLeak([&] { TrySignHash(signature, &length); });
    TheRecorder().On("GMUsbKeyCommonSign").Returns(1);
    ExpectNoLeak([&] { TrySignHash(signature, &length); });
    EXPECT_FALSE(LogExists());
}

TEST(SignHash, leaks_nothing_when_memory_runs_out) {
    char signature[8];
    unsigned length = 8;
    Initialize();
    {
        const FailingAllocation failing(1);
        EXPECT_ANY_THROW(TrySignHash(signature, &length));
        EXPECT_TRUE(failing.Happened());
    }
    EXPECT_EQ(Trace(), Lines{});
    ExpectNoLeak([&] {
        const FailingAllocation failing(1);
        EXPECT_ANY_THROW(TrySignHash(signature, &length));
    });
}

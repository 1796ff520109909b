// GetCertDN, GetCertInfo, DelCertAndTempKey and the obsolete RegisterCert, UnregisterCert,
// RepairDriver.
#include "api_test.h"

// ---- GetCertDN ----------------------------------------------------------------------------------

TEST(GetCertDN, hands_its_arguments_on_with_a_zeroed_buffer) {
    const char* const serial = "A1";
    int length = 0;
    EXPECT_EQ(GetCertDN(serial, 0x80000000, 3, nullptr, &length), 0);
    EXPECT_EQ(Trace(), (Lines{"GM_GetCertDN(\"A1\", 2147483648, 3, zero[1024])"}));
    EXPECT_EQ(TheRecorder().Only("GM_GetCertDN").At(0).address, serial);
}

TEST(GetCertDN, without_length_pointer_or_serial_number_is_minus_401) {
    CanaryBuffer buffer(8);
    int length = 8;
    EXPECT_EQ(GetCertDN("A1", 1, 2, buffer.data(), nullptr), -401);
    EXPECT_EQ(G_LastError, -401);
    G_LastError = 0;
    EXPECT_EQ(GetCertDN(nullptr, 1, 2, buffer.data(), &length), -401);
    EXPECT_EQ(G_LastError, -401);
    EXPECT_EQ(GetCertDN(nullptr, 1, 2, nullptr, &length), -401);
    EXPECT_EQ(length, 8);
    EXPECT_TRUE(buffer.Untouched());
    EXPECT_EQ(Trace(), Lines{});
    EXPECT_TRUE(g_initFlag);
}

// ---- GetCertInfo --------------------------------------------------------------------------------

TEST(GetCertInfo, asks_the_entry_point_of_the_longer_name_with_the_callers_pointers) {
    const char* const serial = "A1";
    CanaryBuffer information(16);
    unsigned length = 16;
    EXPECT_EQ(GetCertInfo(serial, 0xFFFFFFFF, information.data(), &length), 0);
    EXPECT_EQ(Trace(), (Lines{"GetCertInfo_UOS(\"A1\", 4294967295, pointer, &16)"}));
    const recording::Call call = TheRecorder().Only("GetCertInfo_UOS");
    EXPECT_EQ(call.At(0).address, serial);
    EXPECT_EQ(call.At(2).address, information.data());
    EXPECT_EQ(call.At(3).address, &length);
    EXPECT_TRUE(information.Untouched());
    EXPECT_EQ(length, 16U);
}

TEST(GetCertInfo, lets_the_token_write_block_and_length) {
    TheRecorder().On("GetCertInfo_UOS").Writes(2, "block").WritesNumber(3, 0xFFFFFFFF);
    CanaryBuffer information(16);
    unsigned length = 1;
    EXPECT_EQ(GetCertInfo("A1", 1, information.data(), &length), 0);
    EXPECT_TRUE(information.HoldsOnly("block"));
    EXPECT_EQ(length, 0xFFFFFFFFU);
}

TEST(GetCertInfo, answers_a_probe_with_1280_without_asking) {
    Initialize();
    G_LastError = unrelated_code;
    unsigned length = 0;
    EXPECT_EQ(GetCertInfo(nullptr, 1, nullptr, &length), 0);
    EXPECT_EQ(length, 1280U);
    EXPECT_EQ(G_LastError, 0);
    EXPECT_EQ(Trace(), Lines{});
}

TEST(GetCertInfo, without_a_length_pointer_is_minus_401) {
    CanaryBuffer information(16);
    EXPECT_EQ(GetCertInfo("A1", 1, information.data(), nullptr), -401);
    EXPECT_EQ(G_LastError, -401);
    EXPECT_EQ(GetCertInfo("A1", 1, nullptr, nullptr), -401);
    EXPECT_TRUE(information.Untouched());
    EXPECT_EQ(Trace(), Lines{});
    EXPECT_TRUE(g_initFlag);
}

TEST(GetCertInfo, does_not_check_the_serial_number) {
    CanaryBuffer information(16);
    unsigned length = 16;
    EXPECT_EQ(GetCertInfo(nullptr, 1, information.data(), &length), 0);
    EXPECT_EQ(Trace(), (Lines{"GetCertInfo_UOS(null, 1, pointer, &16)"}));
}

// ---- DelCertAndTempKey --------------------------------------------------------------------------

TEST(DelCertAndTempKey, hands_its_arguments_on_in_order) {
    const char* const serial = "A1";
    EXPECT_EQ(DelCertAndTempKey(serial, 0xFFFFFFFE, 0x80000000), 0);
    EXPECT_EQ(Trace(), (Lines{"DelCertAndTempKey(\"A1\", 4294967294, 2147483648)"}));
    EXPECT_EQ(TheRecorder().Only("DelCertAndTempKey").At(0).address, serial);
    EXPECT_TRUE(g_initFlag);
}

TEST(DelCertAndTempKey, checks_no_argument) {
    EXPECT_EQ(DelCertAndTempKey(nullptr, 0, 0), 0);
    EXPECT_EQ(Trace(), (Lines{"DelCertAndTempKey(null, 0, 0)"}));
}

// ---- The obsolete ones --------------------------------------------------------------------------

TEST(ObsoleteExports, are_unsupported_also_once_the_library_is_bound) {
    Initialize();
    G_LastError = unrelated_code;
    EXPECT_EQ(RegisterCert(), -300);
    EXPECT_EQ(UnregisterCert(), -300);
    EXPECT_EQ(RepairDriver(), -300);
    EXPECT_EQ(G_LastError, unrelated_code);
    EXPECT_EQ(Trace(), Lines{});
    EXPECT_FALSE(LogExists());
}

// PIN and key initialisation: ChangePin, InitUKey, TestInitUKey, VerifyPIN, TestVerifyAndCachePin,
// GetPinInfo, SetCachePinFlag, RemovePinCache.
#include "api_test.h"

// ---- ChangePin ---------------------------------------------------------------------------------

TEST(ChangePin, hands_the_serial_number_on_as_the_same_pointer) {
    const char* const serial = "A1";
    EXPECT_EQ(ChangePin(serial), 0);
    EXPECT_EQ(Trace(), (Lines{"ChangePin(\"A1\")"}));
    EXPECT_EQ(TheRecorder().Only("ChangePin").At(0).address, serial);
}

TEST(ChangePin, passes_the_tokens_code_through_and_stores_it) {
    TheRecorder().On("ChangePin").Returns(-7);
    EXPECT_EQ(ChangePin("A1"), -7);
    EXPECT_EQ(G_LastError, -7);
}

TEST(ChangePin, logs_begin_serial_and_end) {
    TheRecorder().On("ChangePin").Returns(0x0A0B);
    ChangePin("A1z\xFF");
    EXPECT_EQ(LogLines(),
              (Lines{"ChangePin|Begin", "szSN:|41317AFF", "ChangePin|End G_LastError: 00000A0B"}));
}

TEST(ChangePin, logs_an_empty_serial_number_as_an_empty_body) {
    ChangePin("");
    EXPECT_EQ(LogLines(),
              (Lines{"ChangePin|Begin", "szSN:|", "ChangePin|End G_LastError: 00000000"}));
}

TEST(ChangePin, logs_a_negative_code_as_eight_digits) {
    TheRecorder().On("ChangePin").Returns(-1);
    ChangePin("A");
    EXPECT_EQ(LogLines().back(), "ChangePin|End G_LastError: FFFFFFFF");
}

TEST(ChangePin, logs_begin_and_serial_before_it_initialises) {
    Lines atFirstUse;
    TheRecorder().WhenLookedUp([&atFirstUse] { atFirstUse = LogLines(); });
    ChangePin("A1");
    EXPECT_EQ(atFirstUse, (Lines{"ChangePin|Begin", "szSN:|4131"}));
}

TEST(ChangePin, asks_after_it_has_logged_the_serial_and_before_the_end) {
    Lines whenAsked;
    TheRecorder().On("ChangePin").Does([&](const recording::Call&) { whenAsked = LogLines(); });
    ChangePin("A1");
    EXPECT_EQ(whenAsked, (Lines{"ChangePin|Begin", "szSN:|4131"}));
}

TEST(ChangePin, initialises_on_first_use) {
    ChangePin("A1");
    EXPECT_TRUE(g_initFlag);
}

TEST(ChangePin, without_a_token_library_logs_the_end_with_minus_101) {
    install::RemoveTokenLibrary();
    EXPECT_EQ(ChangePin("A1"), -101);
    EXPECT_EQ(LogLines(),
              (Lines{"ChangePin|Begin", "szSN:|4131", "ChangePin|End G_LastError: FFFFFF9B"}));
}

// ---- InitUKey ----------------------------------------------------------------------------------

TEST(InitUKey, after_Initialize_passes_zero_null_zero) {
    ASSERT_EQ(Initialize(), 0);
    const char* const serial = "A1";
    EXPECT_EQ(InitUKey(serial), 0);
    EXPECT_EQ(Trace(), (Lines{"CustInitCard(\"A1\", 0, null, 0)"}));
    EXPECT_EQ(TheRecorder().Only("CustInitCard").At(0).address, serial);
}

TEST(InitUKey, after_any_other_export_has_initialised_forwards) {
    VerifyPIN("A1");
    TheRecorder().On("CustInitCard").Returns(12);
    EXPECT_EQ(InitUKey("A1"), 12);
    EXPECT_EQ(G_LastError, 12);
}

TEST(InitUKey, logs_begin_serial_and_end) {
    Initialize();
    TheRecorder().On("CustInitCard").Returns(0x1F);
    InitUKey("B2");
    EXPECT_EQ(LogLines(),
              (Lines{"InitUKey|Begin", "szSN:|4232", "InitUKey|End G_LastError: 0000001F"}));
}

TEST(InitUKey, before_initialisation_logs_begin_and_serial_and_no_end) {
    InitUKey("B2");
    EXPECT_EQ(LogLines(), (Lines{"InitUKey|Begin", "szSN:|4232"}));
}

TEST(InitUKey, before_initialisation_neither_binds_nor_asks) {
    EXPECT_EQ(InitUKey("B2"), -109);
    EXPECT_EQ(TheRecorder().Lookups(), Lines{});
    EXPECT_EQ(Trace(), Lines{});
    EXPECT_FALSE(g_initFlag);
}

TEST(InitUKey, before_initialisation_leaves_the_last_error) {
    G_LastError = unrelated_code;
    EXPECT_EQ(InitUKey("B2"), -109);
    EXPECT_EQ(G_LastError, unrelated_code);
}

TEST(InitUKey, after_Finalize_refuses_again) {
    Initialize();
    Finalize();
    EXPECT_EQ(InitUKey("B2"), -109);
    EXPECT_EQ(Trace(), Lines{});
}

// ---- TestInitUKey ------------------------------------------------------------------------------

TEST(TestInitUKey, hands_its_parameter_on_between_two_zeros) {
    int parameter = 0;
    const char* const serial = "A1";
    EXPECT_EQ(TestInitUKey(serial, &parameter), 0);
    EXPECT_EQ(Trace(), (Lines{"CustInitCard(\"A1\", 0, pointer, 0)"}));
    EXPECT_EQ(TheRecorder().Only("CustInitCard").At(0).address, serial);
    EXPECT_EQ(TheRecorder().Only("CustInitCard").At(2).address, &parameter);
}

TEST(TestInitUKey, hands_null_texts_and_parameters_on) {
    EXPECT_EQ(TestInitUKey(nullptr, nullptr), 0);
    EXPECT_EQ(Trace(), (Lines{"CustInitCard(null, 0, null, 0)"}));
}

TEST(TestInitUKey, initialises_and_stores_the_tokens_code) {
    TheRecorder().On("CustInitCard").Returns(99);
    EXPECT_EQ(TestInitUKey("A1", nullptr), 99);
    EXPECT_EQ(G_LastError, 99);
    EXPECT_TRUE(g_initFlag);
}

TEST(TestInitUKey, logs_begin_and_end_without_the_serial_number) {
    TheRecorder().On("CustInitCard").Returns(-101);
    TestInitUKey("A1", nullptr);
    EXPECT_EQ(LogLines(), (Lines{"TestInitUKey|Begin", "TestInitUKey|End G_LastError: FFFFFF9B"}));
}

TEST(TestInitUKey, logs_begin_before_it_initialises) {
    Lines atFirstUse;
    TheRecorder().WhenLookedUp([&atFirstUse] { atFirstUse = LogLines(); });
    TestInitUKey("A1", nullptr);
    EXPECT_EQ(atFirstUse, (Lines{"TestInitUKey|Begin"}));
}

// ---- VerifyPIN, TestVerifyAndCachePin, RemovePinCache ------------------------------------------

TEST(VerifyPIN, hands_the_serial_number_on_as_the_same_pointer) {
    const char* const serial = "A1";
    EXPECT_EQ(VerifyPIN(serial), 0);
    EXPECT_EQ(Trace(), (Lines{"VerifyPIN(\"A1\")"}));
    EXPECT_EQ(TheRecorder().Only("VerifyPIN").At(0).address, serial);
}

TEST(VerifyPIN, hands_a_null_serial_number_on) {
    EXPECT_EQ(VerifyPIN(nullptr), 0);
    EXPECT_EQ(Trace(), (Lines{"VerifyPIN(null)"}));
}

TEST(VerifyPIN, that_succeeds_replaces_the_last_error_by_0) {
    G_LastError = unrelated_code;
    VerifyPIN("A1");
    EXPECT_EQ(G_LastError, 0);
}

TEST(TestVerifyAndCachePin, hands_both_arguments_on_in_order) {
    const char* const serial = "A1";
    int parameter = 0;
    EXPECT_EQ(TestVerifyAndCachePin(serial, &parameter), 0);
    EXPECT_EQ(Trace(), (Lines{"VerifyAndCachePin(\"A1\", pointer)"}));
    EXPECT_EQ(TheRecorder().Only("VerifyAndCachePin").At(0).address, serial);
    EXPECT_EQ(TheRecorder().Only("VerifyAndCachePin").At(1).address, &parameter);
}

TEST(TestVerifyAndCachePin, checks_no_argument) {
    EXPECT_EQ(TestVerifyAndCachePin(nullptr, nullptr), 0);
    EXPECT_EQ(Trace(), (Lines{"VerifyAndCachePin(null, null)"}));
}

TEST(RemovePinCache, asks_without_arguments_and_stores_the_code) {
    TheRecorder().On("GM_RemoveUserPin").Returns(8);
    EXPECT_EQ(RemovePinCache(), 8);
    EXPECT_EQ(G_LastError, 8);
    EXPECT_EQ(Trace(), (Lines{"GM_RemoveUserPin()"}));
    EXPECT_TRUE(g_initFlag);
    EXPECT_FALSE(LogExists());
}

// ---- GetPinInfo --------------------------------------------------------------------------------

TEST(GetPinInfo, answers_a_probe_with_8_without_asking) {
    unsigned length = 77;
    G_LastError = unrelated_code;
    EXPECT_EQ(GetPinInfo("A1", nullptr, &length), 0);
    EXPECT_EQ(length, 8U);
    EXPECT_EQ(G_LastError, 0);
    EXPECT_EQ(Trace(), Lines{});
}

TEST(GetPinInfo, stores_0_for_a_probe_after_it_has_initialised) {
    Initialize();
    G_LastError = unrelated_code;
    unsigned length = 0;
    EXPECT_EQ(GetPinInfo(nullptr, nullptr, &length), 0);
    EXPECT_EQ(G_LastError, 0);
}

TEST(GetPinInfo, without_a_length_pointer_is_minus_401) {
    CanaryBuffer record(8);
    EXPECT_EQ(GetPinInfo("A1", record.data(), nullptr), -401);
    EXPECT_EQ(G_LastError, -401);
    EXPECT_TRUE(record.Untouched());
    EXPECT_EQ(Trace(), Lines{});
    EXPECT_TRUE(g_initFlag);
}

TEST(GetPinInfo, without_any_pointer_is_minus_401) {
    EXPECT_EQ(GetPinInfo(nullptr, nullptr, nullptr), -401);
}

TEST(GetPinInfo, hands_all_three_pointers_on) {
    const char* const serial = "A1";
    CanaryBuffer record(8);
    unsigned length = 3;
    EXPECT_EQ(GetPinInfo(serial, record.data(), &length), 0);
    EXPECT_EQ(Trace(), (Lines{"GetPinInfo(\"A1\", pointer, &3)"}));
    const recording::Call call = TheRecorder().Only("GetPinInfo");
    EXPECT_EQ(call.At(0).address, serial);
    EXPECT_EQ(call.At(1).address, record.data());
    EXPECT_EQ(call.At(2).address, &length);
    EXPECT_TRUE(record.Untouched());
    EXPECT_EQ(length, 3U);
}

TEST(GetPinInfo, lets_the_token_write_record_and_length) {
    TheRecorder()
        .On("GetPinInfo")
        .Writes(1, std::string("\1\2\3\4\5\6\7\10", 8))
        .WritesNumber(2, 9);
    CanaryBuffer record(8);
    unsigned length = 1;
    EXPECT_EQ(GetPinInfo("A1", record.data(), &length), 0);
    EXPECT_TRUE(record.HoldsOnly(std::string("\1\2\3\4\5\6\7\10", 8)));
    EXPECT_EQ(length, 9U);
}

TEST(GetPinInfo, does_not_check_the_serial_number) {
    CanaryBuffer record(8);
    unsigned length = 8;
    EXPECT_EQ(GetPinInfo(nullptr, record.data(), &length), 0);
    EXPECT_EQ(Trace(), (Lines{"GetPinInfo(null, pointer, &8)"}));
}

// ---- SetCachePinFlag ---------------------------------------------------------------------------

TEST(SetCachePinFlag, before_initialisation_is_minus_101_and_asks_nobody) {
    EXPECT_EQ(SetCachePinFlag("A1", 1), -101);
    EXPECT_EQ(G_LastError, -101);
    EXPECT_EQ(Trace(), Lines{});
    EXPECT_EQ(TheRecorder().Lookups(), Lines{});
    EXPECT_FALSE(g_initFlag);
}

TEST(SetCachePinFlag, hands_serial_number_and_signed_flag_on) {
    Initialize();
    const char* const serial = "A1";
    EXPECT_EQ(SetCachePinFlag(serial, -2147483647 - 1), 0);
    EXPECT_EQ(Trace(), (Lines{"SetCachePinFlag(\"A1\", -2147483648)"}));
    EXPECT_EQ(TheRecorder().Only("SetCachePinFlag").At(0).address, serial);
}

// GetCertDN, GetCertInfo, DelCertAndTempKey and the obsolete RegisterCert, UnregisterCert,
// RepairDriver.
#include "api_test.h"
#include "seen_last_error.h"

namespace {

constexpr int internal = 1024;

struct FetchedName {
    FetchedName(std::size_t room, int capacity) : buffer(room), length(capacity) {
        code = GetCertDN("A1", 1, 2, buffer.data(), &length);
    }
    CanaryBuffer buffer;
    int length;
    int code;
};

}  // namespace

// ---- GetCertDN ----------------------------------------------------------------------------------

TEST(GetCertDN, hands_its_arguments_on_with_a_zeroed_buffer) {
    const char* const serial = "A1";
    int length = 0;
    EXPECT_EQ(GetCertDN(serial, 0x80000000, 3, nullptr, &length), 0);
    EXPECT_EQ(trace(), (Lines{"GM_GetCertDN(\"A1\", 2147483648, 3, zero[1024])"}));
    EXPECT_EQ(recorder().only("GM_GetCertDN").at(0).address, serial);
}

TEST(GetCertDN, offers_a_zeroed_buffer_each_time) {
    recorder().on("GM_GetCertDN").writes(3, std::string(internal, 'x'));
    int length = 0;
    GetCertDN("A1", 1, 2, nullptr, &length);
    GetCertDN("A1", 1, 2, nullptr, &length);
    const std::string call = "GM_GetCertDN(\"A1\", 1, 2, zero[1024])";
    EXPECT_EQ(trace(), (Lines{call, call}));
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
    EXPECT_TRUE(buffer.untouched());
    EXPECT_EQ(trace(), Lines{});
    EXPECT_TRUE(g_initFlag);
}

TEST(GetCertDN, clears_the_last_error_before_it_asks) {
    int length = 0;
    EXPECT_EQ(
        last_error_seen_by("GM_GetCertDN", [&length] { GetCertDN("A1", 1, 2, nullptr, &length); }),
        0);
}

TEST(GetCertDN, leaves_buffer_and_length_when_the_token_refuses) {
    recorder().on("GM_GetCertDN").returns(-9).writes(3, "CN=a");
    const FetchedName fetched(64, 64);
    EXPECT_EQ(fetched.code, -9);
    EXPECT_EQ(G_LastError, -9);
    EXPECT_EQ(fetched.length, 64);
    EXPECT_TRUE(fetched.buffer.untouched());
}

TEST(GetCertDN, answers_a_probe_with_the_length_and_the_NUL) {
    recorder().on("GM_GetCertDN").writes(3, "CN=a");
    int length = 0;
    EXPECT_EQ(GetCertDN("A1", 1, 2, nullptr, &length), 0);
    EXPECT_EQ(length, 5);
}

TEST(GetCertDN, accepts_a_length_equal_to_the_name_and_writes_the_NUL_behind_it) {
    recorder().on("GM_GetCertDN").writes(3, "CN=a");
    const FetchedName fetched(6, 4);
    EXPECT_EQ(fetched.code, 0);
    EXPECT_EQ(fetched.length, 4);
    EXPECT_TRUE(fetched.buffer.holds_only(std::string("CN=a", 5)));
}

TEST(GetCertDN, writes_no_more_than_text_and_NUL_into_a_larger_buffer) {
    recorder().on("GM_GetCertDN").writes(3, "CN=a");
    const FetchedName fetched(64, 64);
    EXPECT_EQ(fetched.code, 0);
    EXPECT_EQ(fetched.length, 4);
    EXPECT_TRUE(fetched.buffer.holds_only(std::string("CN=a", 5)));
}

TEST(GetCertDN, with_a_shorter_length_is_minus_404_and_writes_the_length_without_the_NUL) {
    recorder().on("GM_GetCertDN").writes(3, "CN=a");
    const FetchedName fetched(6, 3);
    EXPECT_EQ(fetched.code, -404);
    EXPECT_EQ(G_LastError, -404);
    EXPECT_EQ(fetched.length, 4);
    EXPECT_TRUE(fetched.buffer.untouched());
}

TEST(GetCertDN, takes_the_callers_length_as_signed) {
    const FetchedName fetched(6, -1);
    EXPECT_EQ(fetched.code, -404);
    EXPECT_EQ(fetched.length, 0);
    EXPECT_TRUE(fetched.buffer.untouched());
}

TEST(GetCertDN, of_an_empty_name_accepts_a_length_of_0) {
    const FetchedName fetched(2, 0);
    EXPECT_EQ(fetched.code, 0);
    EXPECT_EQ(fetched.length, 0);
    EXPECT_TRUE(fetched.buffer.holds_only(std::string(1, '\0')));
}

TEST(GetCertDN, ends_the_text_at_its_first_NUL) {
    recorder().on("GM_GetCertDN").writes(3, std::string("CN=a\0rest", 9));
    const FetchedName fetched(64, 64);
    EXPECT_EQ(fetched.length, 4);
    EXPECT_TRUE(fetched.buffer.holds_only(std::string("CN=a", 5)));
}

TEST(GetCertDN, never_reads_past_a_full_buffer_without_a_NUL) {
    const std::string text(internal, 'n');
    recorder().on("GM_GetCertDN").writes(3, text);
    int length = 0;
    EXPECT_EQ(GetCertDN("A1", 1, 2, nullptr, &length), 0);
    EXPECT_EQ(length, internal + 1);
    const FetchedName fetched(internal + 8, internal);
    EXPECT_EQ(fetched.code, 0);
    EXPECT_EQ(fetched.length, internal);
    EXPECT_TRUE(fetched.buffer.holds_only(text + std::string(1, '\0')));
}

TEST(GetCertDN, logs_nothing) {
    const FetchedName fetched(8, 8);
    EXPECT_FALSE(log_exists());
}

// ---- GetCertInfo --------------------------------------------------------------------------------

TEST(GetCertInfo, asks_the_entry_point_of_the_longer_name_with_the_callers_pointers) {
    const char* const serial = "A1";
    CanaryBuffer information(16);
    unsigned length = 16;
    EXPECT_EQ(GetCertInfo(serial, 0xFFFFFFFF, information.data(), &length), 0);
    EXPECT_EQ(trace(), (Lines{"GetCertInfo_UOS(\"A1\", 4294967295, pointer, &16)"}));
    const recording::Call call = recorder().only("GetCertInfo_UOS");
    EXPECT_EQ(call.at(0).address, serial);
    EXPECT_EQ(call.at(2).address, information.data());
    EXPECT_EQ(call.at(3).address, &length);
    EXPECT_TRUE(information.untouched());
    EXPECT_EQ(length, 16U);
}

TEST(GetCertInfo, lets_the_token_write_block_and_length) {
    recorder().on("GetCertInfo_UOS").writes(2, "block").writes_number(3, 0xFFFFFFFF);
    CanaryBuffer information(16);
    unsigned length = 1;
    EXPECT_EQ(GetCertInfo("A1", 1, information.data(), &length), 0);
    EXPECT_TRUE(information.holds_only("block"));
    EXPECT_EQ(length, 0xFFFFFFFFU);
}

TEST(GetCertInfo, answers_a_probe_with_1280_without_asking) {
    Initialize();
    G_LastError = unrelated_code;
    unsigned length = 0;
    EXPECT_EQ(GetCertInfo(nullptr, 1, nullptr, &length), 0);
    EXPECT_EQ(length, 1280U);
    EXPECT_EQ(G_LastError, 0);
    EXPECT_EQ(trace(), Lines{});
}

TEST(GetCertInfo, without_a_length_pointer_is_minus_401) {
    CanaryBuffer information(16);
    EXPECT_EQ(GetCertInfo("A1", 1, information.data(), nullptr), -401);
    EXPECT_EQ(G_LastError, -401);
    EXPECT_EQ(GetCertInfo("A1", 1, nullptr, nullptr), -401);
    EXPECT_TRUE(information.untouched());
    EXPECT_EQ(trace(), Lines{});
    EXPECT_TRUE(g_initFlag);
}

TEST(GetCertInfo, does_not_check_the_serial_number) {
    CanaryBuffer information(16);
    unsigned length = 16;
    EXPECT_EQ(GetCertInfo(nullptr, 1, information.data(), &length), 0);
    EXPECT_EQ(trace(), (Lines{"GetCertInfo_UOS(null, 1, pointer, &16)"}));
}

TEST(GetCertInfo, stores_and_returns_the_tokens_code_and_logs_nothing) {
    recorder().on("GetCertInfo_UOS").returns(0x7FFFFFFF);
    CanaryBuffer information(16);
    unsigned length = 16;
    EXPECT_EQ(GetCertInfo("A1", 1, information.data(), &length), 0x7FFFFFFF);
    EXPECT_EQ(G_LastError, 0x7FFFFFFF);
    EXPECT_FALSE(log_exists());
}

TEST(GetCertInfo, leaves_the_last_error_until_the_token_has_answered) {
    char block[4];
    unsigned length = 4;
    EXPECT_EQ(last_error_seen_by("GetCertInfo_UOS", [&] { GetCertInfo("A1", 1, block, &length); }),
              unrelated_code);
}

// ---- DelCertAndTempKey --------------------------------------------------------------------------

TEST(DelCertAndTempKey, hands_its_arguments_on_in_order) {
    const char* const serial = "A1";
    EXPECT_EQ(DelCertAndTempKey(serial, 0xFFFFFFFE, 0x80000000), 0);
    EXPECT_EQ(trace(), (Lines{"DelCertAndTempKey(\"A1\", 4294967294, 2147483648)"}));
    EXPECT_EQ(recorder().only("DelCertAndTempKey").at(0).address, serial);
    EXPECT_TRUE(g_initFlag);
}

TEST(DelCertAndTempKey, checks_no_argument) {
    EXPECT_EQ(DelCertAndTempKey(nullptr, 0, 0), 0);
    EXPECT_EQ(trace(), (Lines{"DelCertAndTempKey(null, 0, 0)"}));
}

TEST(DelCertAndTempKey, stores_and_returns_the_tokens_code_and_logs_nothing) {
    recorder().on("DelCertAndTempKey").returns(-404);
    EXPECT_EQ(DelCertAndTempKey("A1", 1, 2), -404);
    EXPECT_EQ(G_LastError, -404);
    EXPECT_FALSE(log_exists());
}

TEST(DelCertAndTempKey, leaves_the_last_error_until_the_token_has_answered) {
    EXPECT_EQ(last_error_seen_by("DelCertAndTempKey", [] { DelCertAndTempKey("A1", 1, 2); }),
              unrelated_code);
}

// ---- The obsolete ones --------------------------------------------------------------------------

TEST(ObsoleteExports, are_unsupported_also_once_the_library_is_bound) {
    Initialize();
    G_LastError = unrelated_code;
    EXPECT_EQ(RegisterCert(), -300);
    EXPECT_EQ(UnregisterCert(), -300);
    EXPECT_EQ(RepairDriver(), -300);
    EXPECT_EQ(G_LastError, unrelated_code);
    EXPECT_EQ(trace(), Lines{});
    EXPECT_FALSE(log_exists());
}

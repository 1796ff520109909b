// Version, ids, maker and serial number.
#include <climits>
#include <stdexcept>

#include "api_test.h"

namespace {

const std::string version = "9.2025.0731.3";
const std::string ids = "2E5A&0301";
const std::string maker = "Quillorn Corporation";
const std::string makerInChinese =
    "\xE5\xB2\x9A\xE5\xB2\xAB\xE8\xAF\x9A\xE7\xA7\x91\xE6\x8A\x80\xE8\x82\xA1\xE4\xBB\xBD"
    "\xE6\x9C\x89\xE9\x99\x90\xE5\x85\xAC\xE5\x8F\xB8";

using Query = int (*)(char*, unsigned*);

// Buffer of exactly the constant's size, a wrong capacity, an old error.
void ExpectConstant(Query query, const std::string& text) {
    CanaryBuffer buffer(text.size());
    unsigned length = 0;
    Initialize();
    G_LastError = unrelated_code;
    EXPECT_EQ(query(buffer.data(), &length), 0);
    EXPECT_TRUE(buffer.HoldsOnly(text)) << "no NUL, nothing beyond";
    EXPECT_EQ(length, text.size());
    EXPECT_EQ(G_LastError, 0);
    EXPECT_EQ(Trace(), Lines{});
}

// What stood in the log when the first entry point was looked up.
Lines LoggedBeforeBinding(Query query) {
    Lines seen{"never looked up"};
    bool first = true;
    TheRecorder().WhenLookedUp([&] {
        if (first) seen = LogLines();
        first = false;
    });
    unsigned length = 5;
    query(nullptr, &length);
    return seen;
}

}  // namespace

TEST(GetDllVersion, writes_thirteen_characters_without_NUL) {
    ExpectConstant(GetDllVersion, version);
}
TEST(GetDriverVersion, writes_thirteen_characters_without_NUL) {
    ExpectConstant(GetDriverVersion, version);
}
TEST(GetVidAndPid, writes_nine_characters_without_NUL) {
    ExpectConstant(GetVidAndPid, ids);
}

TEST(GetDllVersion, gives_a_text_in_a_zeroed_buffer) {
    CanaryBuffer buffer(14, '\0');
    unsigned length = 14;
    EXPECT_EQ(GetDllVersion(buffer.data(), &length), 0);
    EXPECT_EQ(buffer.Text(), version);
}

// The buffer is not a text: what follows it must not get into the log.
TEST(GetDllVersion, logs_beginning_text_and_end) {
    CanaryBuffer buffer(13);
    unsigned length = 0xDEADBEEF;
    GetDllVersion(buffer.data(), &length);
    EXPECT_EQ(LogLines(), (Lines{"GetDllVersion|Begin pnVersionLen = deadbeef",
                                 "GetDllVersion|pszVersion: 9.2025.0731.3",
                                 "GetDllVersion|End G_LastError: 00000000"}));
}

TEST(GetDriverVersion, logs_text_and_end_without_beginning) {
    CanaryBuffer buffer(13);
    unsigned length = 5;
    GetDriverVersion(buffer.data(), &length);
    EXPECT_EQ(LogLines(), (Lines{"GetDriverVersion|pszVersion: 9.2025.0731.3",
                                 "GetDriverVersion|End G_LastError: 00000000"}));
}

TEST(GetVidAndPid, logs_beginning_text_and_end) {
    CanaryBuffer buffer(9);
    unsigned length = 0x1F;
    GetVidAndPid(buffer.data(), &length);
    EXPECT_EQ(LogLines(), (Lines{"GetVidAndPid|Begin pnVidPidLen = 0000001f",
                                 "GetVidAndPid|pszVidPid: 2E5A&0301",
                                 "GetVidAndPid|End G_LastError: 00000000"}));
}

TEST(GetDllVersion, logs_no_text_for_a_probe) {
    unsigned length = 0;
    GetDllVersion(nullptr, &length);
    GetDriverVersion(nullptr, &length);
    GetVidAndPid(nullptr, &length);
    EXPECT_EQ(LogLines(), (Lines{"GetDllVersion|Begin pnVersionLen = 00000000",
                                 "GetDllVersion|End G_LastError: 00000000",
                                 "GetDriverVersion|End G_LastError: 00000000",
                                 "GetVidAndPid|Begin pnVidPidLen = 0000000d",
                                 "GetVidAndPid|End G_LastError: 00000000"}));
}

TEST(GetDllVersion, logs_its_beginning_before_it_initialises) {
    EXPECT_EQ(LoggedBeforeBinding(GetDllVersion),
              (Lines{"GetDllVersion|Begin pnVersionLen = 00000005"}));
}
TEST(GetVidAndPid, logs_its_beginning_before_it_initialises) {
    EXPECT_EQ(LoggedBeforeBinding(GetVidAndPid),
              (Lines{"GetVidAndPid|Begin pnVidPidLen = 00000005"}));
}
TEST(GetPrintNumber, logs_its_beginning_before_it_initialises) {
    EXPECT_EQ(LoggedBeforeBinding(GetPrintNumber),
              (Lines{"GetPrintNumber|Begin pnSNLen = 00000005"}));
}
TEST(GetDriverVersion, initialises_before_it_logs) {
    EXPECT_EQ(LoggedBeforeBinding(GetDriverVersion), Lines{});
}

// The failed binding's code does not stay.
TEST(GetDllVersion, clears_the_last_error_after_a_failed_first_use) {
    install::RemoveTokenLibrary();
    unsigned length = 0;
    EXPECT_EQ(GetDllVersion(nullptr, &length), 0);
    EXPECT_EQ(G_LastError, 0);
    EXPECT_EQ(LogLines().back(), "GetDllVersion|End G_LastError: 00000000");
}

// ---- Serial number ---------------------------------------------------------------------------

TEST(GetPrintNumber, asks_with_zeroed_buffers_and_writes_text_NUL_and_length) {
    TheRecorder().On("CheckDeviceEx").Writes(3, "KX20250731");
    CanaryBuffer buffer(20);
    unsigned length = 0;  // never compared
    EXPECT_EQ(GetPrintNumber(buffer.data(), &length), 0);
    EXPECT_EQ(Trace(), (Lines{"CheckDeviceEx(&0, zero[396], 1, zero[1024])"}));
    EXPECT_TRUE(buffer.HoldsOnly(std::string("KX20250731", 11)));
    EXPECT_EQ(length, 10U);
    EXPECT_EQ(G_LastError, 0);
    EXPECT_EQ(LogLines(),
              (Lines{"GetPrintNumber|Begin pnSNLen = 00000000", "GetPrintNumber|m_SN: KX20250731",
                     "GetPrintNumber|End G_LastError: 00000000"}));
}

TEST(GetPrintNumber, answers_a_probe_with_the_length_without_NUL) {
    TheRecorder().On("CheckDeviceEx").Writes(3, "KX20250731");
    unsigned length = 0x20;
    EXPECT_EQ(GetPrintNumber(nullptr, &length), 0);
    EXPECT_EQ(length, 10U);
    EXPECT_EQ(TheRecorder().Calls().size(), 1U);
    EXPECT_EQ(LogLines(), (Lines{"GetPrintNumber|Begin pnSNLen = 00000020",
                                 "GetPrintNumber|End G_LastError: 00000000"}));
}

TEST(GetPrintNumber, passes_a_failure_through_and_logs_the_callers_buffer) {
    TheRecorder().On("CheckDeviceEx").Returns(static_cast<int>(0xE0110001)).Writes(3, "KX1");
    char buffer[20] = "as it was";
    unsigned length = 20;
    EXPECT_EQ(GetPrintNumber(buffer, &length), static_cast<int>(0xE0110001));
    EXPECT_EQ(G_LastError, static_cast<int>(0xE0110001));
    EXPECT_STREQ(buffer, "as it was");
    EXPECT_EQ(length, 20U);
    EXPECT_EQ(LogLines(),
              (Lines{"GetPrintNumber|Begin pnSNLen = 00000014", "GetPrintNumber|m_SN: as it was",
                     "GetPrintNumber|End G_LastError: E0110001"}));
}

TEST(GetPrintNumber, logs_no_text_for_a_failed_probe) {
    TheRecorder().On("CheckDeviceEx").Returns(7);
    unsigned length = 20;
    EXPECT_EQ(GetPrintNumber(nullptr, &length), 7);
    EXPECT_EQ(length, 20U);
    EXPECT_EQ(LogLines(), (Lines{"GetPrintNumber|Begin pnSNLen = 00000014",
                                 "GetPrintNumber|End G_LastError: 00000007"}));
}

// A client whose length stands inside its buffer sees which of the two is written last.
TEST(GetPrintNumber, writes_the_length_after_the_text) {
    TheRecorder().On("CheckDeviceEx").Writes(3, "KX20250731");
    alignas(unsigned) char buffer[64] = {};
    auto* const length = reinterpret_cast<unsigned*>(buffer);
    EXPECT_EQ(GetPrintNumber(buffer, length), 0);
    EXPECT_EQ(*length, 10U);
    EXPECT_STREQ(buffer + sizeof *length, "250731");
}

TEST(GetPrintNumber, writes_one_NUL_for_an_empty_serial_number) {
    CanaryBuffer buffer(4);
    unsigned length = 4;
    EXPECT_EQ(GetPrintNumber(buffer.data(), &length), 0);
    EXPECT_TRUE(buffer.HoldsOnly(std::string(1, '\0')));
    EXPECT_EQ(length, 0U);
}

TEST(GetPrintNumber, gives_the_token_all_of_its_buffers) {
    TheRecorder()
        .On("CheckDeviceEx")
        .Writes(0, "\x01\x02\x03\x04")
        .Writes(1, std::string(396, 'r'))
        .Writes(3, std::string(1023, 's'));
    CanaryBuffer buffer(1024);
    unsigned length = 0;
    EXPECT_EQ(GetPrintNumber(buffer.data(), &length), 0);
    EXPECT_EQ(length, 1023U);
    EXPECT_TRUE(buffer.HoldsOnly(std::string(1023, 's') + '\0'));
}

TEST(GetPrintNumber, never_reads_beyond_a_serial_number_without_NUL) {
    TheRecorder()
        .On("CheckDeviceEx")
        .Writes(1, std::string(396, 'r'))
        .Writes(3, std::string(1024, 's'));
    unsigned length = 0;
    EXPECT_EQ(GetPrintNumber(nullptr, &length), 0);
    EXPECT_EQ(length, 1024U);
}

TEST(GetPrintNumber, lets_the_tokens_exception_pass) {
    TheRecorder().On("CheckDeviceEx").Does([](const auto&) { throw std::runtime_error("x"); });
    unsigned length = 20;
    EXPECT_THROW(GetPrintNumber(nullptr, &length), std::runtime_error);
    EXPECT_EQ(length, 20U);
}

// ---- Maker -----------------------------------------------------------------------------------

TEST(GetVendorInfo, writes_the_name_with_its_NUL_and_no_length) {
    for (const auto& [language, name] :
         {std::pair(0, makerInChinese), std::pair(1, makerInChinese), std::pair(2, maker)}) {
        CanaryBuffer buffer(name.size() + 1);
        unsigned length = 3;
        Initialize();
        G_LastError = unrelated_code;
        EXPECT_EQ(GetVendorInfo(language, buffer.data(), &length), 0);
        EXPECT_TRUE(buffer.HoldsOnly(name + '\0')) << language;
        EXPECT_EQ(length, 3U);
        EXPECT_EQ(G_LastError, 0);
    }
    EXPECT_FALSE(LogExists());
    EXPECT_EQ(Trace(), Lines{});
}

TEST(GetVendorInfo, needs_no_length_beside_a_buffer) {
    CanaryBuffer buffer(21);
    EXPECT_EQ(GetVendorInfo(2, buffer.data(), nullptr), 0);
    EXPECT_EQ(buffer.Text(), maker);
}

TEST(GetVendorInfo, answers_a_probe_with_the_length_without_NUL) {
    for (const auto& [language, expected] :
         {std::pair(0, 33U), std::pair(1, 33U), std::pair(2, 20U)}) {
        unsigned length = 0;
        EXPECT_EQ(GetVendorInfo(language, nullptr, &length), 0);
        EXPECT_EQ(length, expected);
    }
}

TEST(GetVendorInfo, refuses_other_languages_and_writes_nothing) {
    for (const int language : {3, -1, INT_MIN, INT_MAX}) {
        CanaryBuffer buffer(40);
        unsigned length = 40;
        G_LastError = 0;
        EXPECT_EQ(GetVendorInfo(language, buffer.data(), &length), -300);
        EXPECT_EQ(G_LastError, -300);
        EXPECT_TRUE(buffer.Untouched());
        EXPECT_EQ(GetVendorInfo(language, nullptr, &length), -300);
        EXPECT_EQ(length, 40U);
    }
}

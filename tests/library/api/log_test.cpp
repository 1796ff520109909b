// The diagnostic log: the shape of a record, its two writers, the size rule, failures.
#include <pthread.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <climits>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <thread>

#include "api_test.h"
#include "exports_cpp.h"

namespace {

constexpr std::uintmax_t size_limit = 104857600;

int LowBitsOfThread() {
    return static_cast<int>(
        reinterpret_cast<std::uintptr_t>(reinterpret_cast<void*>(pthread_self())));
}

// Holes, so that a file of the limit's size costs nothing.
void MakeLogOf(std::uintmax_t size) {
    { std::ofstream file(log_path); }
    std::filesystem::resize_file(log_path, size);
}

std::string TailOfLog(std::uintmax_t from) {
    std::ifstream file(log_path, std::ios::binary);
    file.seekg(static_cast<std::streamoff>(from));
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

// Only for records that are written: localtime makes the whole process look at the time zone anew.
bool IsLocalTimeSince(std::time_t before, const LogRecord& record) {
    for (std::time_t at = before - 1; at <= std::time(nullptr); ++at) {
        const std::tm local = *std::localtime(&at);
        if (record.day == local.tm_mday && record.hour == local.tm_hour &&
            record.minute == local.tm_min && record.second == local.tm_sec) {
            return true;
        }
    }
    return false;
}

}  // namespace

TEST(LogEntry, writes_two_lines_head_and_body) {
    LogEntry("Tag", "Begin");
    const std::string text = LogText();
    EXPECT_THAT(
        text, testing::MatchesRegex("\\[..,..:..:..\\....\\] Tag: \\(Process is [0-9]+, thread is "
                                    "-?[0-9]+\\)\r\n\t\\[Begin\\]\r\n"));
    ASSERT_EQ(LogRecords().size(), 1U);
}

TEST(LogEntry, tells_process_and_thread) {
    LogEntry("Tag", "x");
    int other = 0;
    std::thread([&other] {
        other = LowBitsOfThread();
        LogEntry("Tag", "y");
    }).join();
    const auto records = LogRecords();
    ASSERT_EQ(records.size(), 2U);
    EXPECT_EQ(records[0].process, getpid());
    EXPECT_EQ(records[0].thread, LowBitsOfThread());
    EXPECT_EQ(records[1].thread, other);
    EXPECT_NE(records[0].thread, records[1].thread);
}

TEST(LogEntry, tells_local_day_and_time_with_milliseconds) {
    setenv("TZ", "XYZ-5:30", 1);
    tzset();
    const std::time_t before = std::time(nullptr);
    LogEntry("Tag", "x");
    const LogRecord record = LogRecords().at(0);
    EXPECT_EQ(record.fraction.size(), 3U);
    EXPECT_TRUE(IsLocalTimeSince(before, record));
}

// As localtime itself does, which looks at the variable each time.
TEST(LogEntry, follows_a_time_zone_that_changes_between_records) {
    unsetenv("TZ");
    LogEntry("Tag", "x");
    const std::time_t before = std::time(nullptr);
    for (const char* const zone : {"XYZ-5:30", "ABC+7:45", "XYZ-5:30"}) {
        setenv("TZ", zone, 1);
        ForgetLog();
        LogEntry("Tag", "x");
        EXPECT_TRUE(IsLocalTimeSince(before, LogRecords().at(0))) << zone;
    }
}

TEST(LogEntry, returns_to_the_machines_time_zone_when_the_client_names_none) {
    const std::time_t before = std::time(nullptr);
    setenv("TZ", "ABC+7:45", 1);
    LogEntry("Tag", "x");
    unsetenv("TZ");
    LogEntry("Tag", "y");
    EXPECT_TRUE(IsLocalTimeSince(before, LogRecords().at(1)));
}

TEST(LogHex, tells_local_time_too) {
    const std::time_t before = std::time(nullptr);
    setenv("TZ", "ABC+7:45", 1);
    LogHex("Tag", "x", 1);
    EXPECT_TRUE(IsLocalTimeSince(before, LogRecords().at(0)));
}

// The log's descriptor is 0 then.
TEST(LogEntry, is_written_by_a_client_without_standard_input) {
    const int input = dup(STDIN_FILENO);
    close(STDIN_FILENO);
    LogEntry("Tag", "x");
    if (input >= 0) dup2(input, STDIN_FILENO);
    close(input);
    EXPECT_EQ(LogRecords().size(), 1U);
}

TEST(LogEntry, expands_its_format_as_printf_does) {
    LogEntry("Tag", "%s=%08X %d%% %-4s|%5.2f %lld", "key", 0xBEEF, -7, "ab", 1.5, LLONG_MIN);
    EXPECT_EQ(LogLines(), (Lines{"Tag|key=0000BEEF -7% ab  | 1.50 -9223372036854775808"}));
}

TEST(LogEntry, takes_no_directive_from_arguments_or_tag) {
    LogEntry("100%s%n", "%s", "%d%n");
    EXPECT_EQ(LogLines(), (Lines{"100%s%n|%d%n"}));
}

TEST(LogEntry, writes_an_empty_body_between_brackets) {
    LogEntry("Tag", "%s", "");
    EXPECT_THAT(LogText(), testing::EndsWith("\r\n\t[]\r\n"));
}

TEST(LogEntry, keeps_line_breaks_and_brackets_of_a_body) {
    LogEntry("Tag", "%s", "a\r\n\t[b]c");
    EXPECT_EQ(LogLines(), (Lines{"Tag|a\r\n\t[b]c"}));
}

TEST(LogEntry, writes_a_body_of_megabytes_whole) {
    const std::string huge(5000000, 'k');
    LogEntry("Tag", "%s", huge.c_str());
    const auto records = LogRecords();
    ASSERT_EQ(records.size(), 1U);
    EXPECT_TRUE(records[0].body == huge);
}

TEST(LogEntry, appends_records_and_closes_after_each) {
    LogEntry("One", "1");
    EXPECT_EQ(LogLines(), (Lines{"One|1"}));
    LogEntry("Two", "2");
    LogHex("Three", "\x33", 1);
    EXPECT_EQ(LogLines(), (Lines{"One|1", "Two|2", "Three|33"}));
    for (const auto& file : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code none;
        EXPECT_NE(std::filesystem::read_symlink(file, none), log_path);
    }
}

TEST(LogEntry, starts_a_file_that_was_removed_between_records) {
    LogEntry("One", "1");
    ForgetLog();
    LogEntry("Two", "2");
    EXPECT_EQ(LogLines(), (Lines{"Two|2"}));
}

TEST(LogEntry, makes_a_file_that_everybody_may_write_but_for_the_clients_mask) {
    for (const mode_t mask : {mode_t{0}, mode_t{027}}) {
        umask(mask);
        ForgetLog();
        LogEntry("Tag", "x");
        struct stat status {};
        ASSERT_EQ(stat(log_path, &status), 0);
        EXPECT_EQ(status.st_mode & 07777, 0666 & ~mask);
    }
}

TEST(LogHex, writes_two_upper_case_digits_for_each_byte) {
    const unsigned char bytes[] = {0x0A, 0xFF, 0x00, 0x7F, 0x80};
    LogHex("Tag", bytes, 2);
    LogHex("Tag", bytes, 5);
    EXPECT_EQ(LogLines(), (Lines{"Tag|0AFF", "Tag|0AFF007F80"}));
}

TEST(LogHex, with_length_zero_or_below_writes_an_empty_pair_of_brackets) {
    LogHex("Tag", "ab", 0);
    LogHex("Tag", "ab", -1);
    LogHex("Tag", nullptr, INT_MIN);
    EXPECT_EQ(LogLines(), (Lines{"Tag|", "Tag|", "Tag|"}));
    EXPECT_THAT(LogText(), testing::EndsWith(")\r\n\t[]\r\n"));
}

TEST(LogHex, writes_megabytes_whole) {
    const std::string huge(1500000, '\xC3');
    LogHex("Tag", huge.data(), static_cast<int>(huge.size()));
    const auto records = LogRecords();
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records[0].body.size(), 3000000U);
    EXPECT_EQ(records[0].body.find_first_not_of("C3"), std::string::npos);
}

// ---- The size rule ---------------------------------------------------------------------------

TEST(LogSize, of_exactly_the_limit_is_kept_and_appended_to) {
    MakeLogOf(size_limit);
    LogEntry("Tag", "x");
    const auto records = ParseLog(TailOfLog(size_limit));
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records[0].body, "x");
}

TEST(LogSize, one_byte_above_the_limit_starts_a_fresh_file) {
    MakeLogOf(size_limit + 1);
    LogEntry("Tag", "x");
    EXPECT_EQ(LogLines(), (Lines{"Tag|x"}));
}

TEST(LogSize, rule_holds_for_LogHex_too) {
    MakeLogOf(size_limit);
    LogHex("Tag", "x", 1);
    EXPECT_EQ(ParseLog(TailOfLog(size_limit)).at(0).body, "78");
    LogHex("Tag", "y", 1);
    EXPECT_EQ(LogLines(), (Lines{"Tag|79"}));
}

TEST(LogSize, beyond_32_bits_starts_a_fresh_file) {
    MakeLogOf((std::uintmax_t{1} << 32) + 5);
    LogEntry("Tag", "x");
    EXPECT_EQ(LogLines(), (Lines{"Tag|x"}));
}

TEST(LogSize, of_a_linked_file_counts_and_the_link_alone_is_removed) {
    MakeLogOf(size_limit + 1);
    std::filesystem::rename(log_path, "/tmp/elsewhere");
    std::filesystem::create_symlink("/tmp/elsewhere", log_path);
    LogEntry("Tag", "x");
    EXPECT_FALSE(std::filesystem::is_symlink(log_path));
    EXPECT_EQ(LogLines(), (Lines{"Tag|x"}));
    EXPECT_EQ(std::filesystem::file_size("/tmp/elsewhere"), size_limit + 1);
}

// ---- Failures are silent ---------------------------------------------------------------------

TEST(LogThatCannotBeOpened, is_skipped_without_effect) {
    std::filesystem::create_directory(log_path);
    G_LastError = unrelated_code;
    LogEntry("Tag", "%s", "x");
    LogHex("Tag", "x", 1);
    EXPECT_EQ(G_LastError, unrelated_code);
    EXPECT_TRUE(std::filesystem::is_directory(log_path));
}

TEST(LogThatCannotBeOpened, changes_no_exports_result) {
    std::filesystem::create_directory(log_path);
    unsigned length = 0;
    EXPECT_EQ(GetDllVersion(nullptr, &length), 0);
    EXPECT_EQ(length, 13U);
    TheRecorder().On("GMImportPriKey").Returns(0x77);
    EXPECT_EQ(ImportEncX509Cert("A1", "cert", "key"), 0x77);
    EXPECT_EQ(G_LastError, 0x77);
}

TEST(LogThatTakesNoByte, changes_no_exports_result) {
    std::filesystem::create_symlink("/dev/full", log_path);
    LogHex("Tag", "x", 1);
    LogEntry("Tag", "%s", std::string(100000, 'x').c_str());
    TheRecorder().On("GMImportPriKey").Returns(0x77);
    EXPECT_EQ(ImportEncX509Cert("A1", "cert", "key"), 0x77);
    EXPECT_EQ(G_LastError, 0x77);
}

TEST(LogEntry, leaves_the_last_error) {
    G_LastError = unrelated_code;
    LogEntry("Tag", "x");
    LogHex("Tag", "x", 1);
    EXPECT_EQ(G_LastError, unrelated_code);
    EXPECT_FALSE(g_initFlag);
}

TEST(LogEntry, leaks_nothing) {
    ExpectNoLeak([] {
        LogEntry("Tag", "%s", "x");
        LogHex("Tag", "x", 1);
    });
}

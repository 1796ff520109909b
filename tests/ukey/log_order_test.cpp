// Logs of every form and length: damaged, rewritten, endless; and calls in their order with as
// little kept in memory as may be.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>

#include "log/order.h"
#include "log/writers.h"
#include "names.h"

namespace ukey {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

std::string Text(const std::string& tag, const std::string& body, int thread = -7,
                 const std::string& end = "\r\n") {
    return "[07,12:03:04.056] " + tag + ": (Process is 41, thread is " + std::to_string(thread) +
           ")" + end + "\t[" + body + "]" + end;
}

// Tags and bodies, and behind them the bytes that belong to no record.
std::vector<std::string> Read(const std::string& log, std::size_t piece = 100000) {
    LogReader reader;
    std::vector<std::string> found;
    const auto take = [&](const std::vector<LogRecord>& records) {
        for (const LogRecord& record : records) found.push_back(record.tag + "=" + record.body);
    };
    for (std::size_t at = 0; at < log.size(); at += piece) take(reader.Feed(log.substr(at, piece)));
    take(reader.Finish());
    found.push_back(std::to_string(reader.strangeBytes()));
    return found;
}

TEST(LogForms, lines_may_end_with_LF_alone) {
    const std::string log = Text("A", "one", 1, "\n") + Text("B", "two\nlines", 1, "\n");
    for (std::size_t piece = 1; piece < 9; ++piece) {
        EXPECT_THAT(Read(log, piece), ElementsAre("A=one", "B=two\nlines", "0"));
    }
}

TEST(LogForms, of_both_kinds_may_stand_in_one_file) {
    EXPECT_THAT(Read(Text("A", "one", 1, "\n") + Text("B", "two") + Text("C", "", 1, "\n")),
                ElementsAre("A=one", "B=two", "C=", "0"));
}

TEST(LogForms, last_line_may_lack_its_line_break) {
    std::string log = Text("A", "one") + Text("B", "two");
    log.resize(log.size() - 2);
    EXPECT_THAT(Read(log), ElementsAre("A=one", "B=two", "0"));
    log.resize(log.size() - 1);  // now it lacks its bracket
    EXPECT_THAT(Read(log), ElementsAre("A=one", std::to_string(Text("B", "two").size() - 3)));
}

TEST(LogForms, record_that_a_full_disk_cut_off_takes_no_other_along) {
    const std::string whole = Text("A", "one");
    const std::string next = Text("B", "two");
    for (std::size_t size = 1; size < whole.size() - 3; ++size) {
        EXPECT_THAT(Read(whole.substr(0, size) + next), ElementsAre("B=two", std::to_string(size)))
            << size;
    }
}

TEST(LogForms, zeros_of_a_crashed_machine_take_no_record_along) {
    EXPECT_THAT(Read(Text("A", "one") + std::string(4096, '\0') + Text("B", "two")),
                ElementsAre("B=two", std::to_string(Text("A", "one").size() + 4096)));
    EXPECT_THAT(Read(std::string(3 << 20, '\0') + Text("B", "two")),
                ElementsAre("B=two", std::to_string(3 << 20)));
    EXPECT_THAT(Read(Text("A", std::string("x\0y", 3))),
                ElementsAre("A=" + std::string("x\0y", 3), "0"));
}

TEST(LogForms, mark_of_an_editor_in_front_is_passed_over) {
    EXPECT_THAT(Read("\xEF\xBB\xBF" + Text("A", "one")), ElementsAre("A=one", "0"));
}

TEST(LogForms, long_body_is_kept_to_a_limit_and_its_length_is_known) {
    const std::size_t size = LogReader::kLongestBody + 5000;
    for (const std::string& body : {std::string(size, 'x'), std::string(size / 2, 'x') + "\r\n" +
                                                                std::string(size / 2 - 2, 'y')}) {
        LogReader reader;
        std::vector<LogRecord> all;
        const std::string log = Text("A", body) + Text("B", "two");
        for (std::size_t at = 0; at < log.size(); at += 4096) {
            for (LogRecord& record : reader.Feed(log.substr(at, 4096))) all.push_back(record);
        }
        ASSERT_EQ(all.size(), 1U);
        const std::size_t most = all[0].body.size();
        EXPECT_LE(most, LogReader::kLongestBody);
        EXPECT_EQ(most + all[0].cut, size);
        EXPECT_EQ(reader.strangeBytes(), 0U);
        EXPECT_EQ(reader.Finish().size(), 1U);
    }
}

TEST(LogWriters, are_known_in_any_case_and_by_their_tags) {
    EXPECT_EQ(LoggedFunction("changepin"), "ChangePin");
    EXPECT_EQ(LoggedFunction("SKF_WaitForDevEvent"), "WaitForKeyEvent");
    EXPECT_EQ(LoggedFunction("Newer"), "Newer");
    try {
        LoggedFunction("VerifyPIN");
        FAIL() << "VerifyPIN logs nothing";
    } catch (const UsageError& error) {
        EXPECT_THAT(error.what(), HasSubstr("VerifyPIN writes nothing to the log"));
        EXPECT_THAT(error.what(), HasSubstr("ImportEncX509Cert"));
    }
}

class Order : public testing::Test {
protected:
    void SetUp() override {
        const int file = ::mkstemp(name_);
        ASSERT_GE(file, 0);
        ::close(file);
    }
    void TearDown() override { ::unlink(name_); }

    // "number thread code" of each call.
    std::vector<std::string> Calls(const std::string& log, const LogLimits& limits) {
        std::ofstream(name_, std::ios::binary) << log;
        const LogSource source(name_);
        std::vector<std::string> calls;
        LogOrder(source, true, limits).Read([&](const LogCall& call) {
            calls.push_back(std::to_string(call.number) + " " + std::to_string(call.thread) + " " +
                            (call.code ? std::to_string(*call.code) : "-") + " " +
                            std::to_string(call.records.size()));
        });
        return calls;
    }

private:
    char name_[32] = "/tmp/ukey-log-order-XXXXXX";
};

// Long calls of which some end, on threads 1 to 4, and short ones on thread 9.
std::string MixedLog() {
    std::string log;
    for (int round = 0; round < 40; ++round) {
        const int thread = round % 4 + 1;
        log += Text("ChangePin", "Begin", thread);
        for (int i = 0; i < 25; ++i) {
            log += Text("GetDllVersion", "Begin x", 9);
            log += Text("GetDllVersion", "End G_LastError: 0000000" + std::to_string(i % 7), 9);
        }
        if (round % 3 == 0) log += Text("ChangePin", "End G_LastError: 00000011", thread);
    }
    return log;
}

TEST_F(Order, is_the_same_however_little_is_kept) {
    const std::string log = MixedLog();
    const auto whole = Calls(log, {});
    ASSERT_EQ(whole.size(), 1040U);
    for (std::size_t i = 0; i < whole.size(); ++i) {
        EXPECT_THAT(whole[i], testing::StartsWith(std::to_string(i + 1) + " "));
    }
    EXPECT_EQ(whole[0], "1 1 17 2");
    EXPECT_EQ(whole[26], "27 2 - 1");
    for (const std::uint64_t window : {400U, 2000U, 20000U}) {
        for (const std::size_t ahead : {1U, 2000U}) {
            EXPECT_EQ(Calls(log, {window, ahead, LogPairing::kLimit}), whole)
                << window << " " << ahead;
        }
    }
}

TEST_F(Order, gives_up_the_oldest_call_when_too_many_are_open) {
    std::string log;
    for (int thread = 1; thread <= 50; ++thread) log += Text("ChangePin", "Begin", thread);
    log += Text("ChangePin", "End G_LastError: 00000000", 1);
    log += Text("ChangePin", "End G_LastError: 00000000", 50);
    LogLimits limits;
    EXPECT_EQ(Calls(log, limits).size(), 50U);
    EXPECT_EQ(Calls(log, limits)[0], "1 1 0 2");
    limits.pairing = 4000;
    const auto calls = Calls(log, limits);
    ASSERT_EQ(calls.size(), 51U);  // the end of the first is a call of its own
    EXPECT_EQ(calls[0], "1 1 - 1");
    EXPECT_EQ(calls[49], "50 50 0 2");
    EXPECT_EQ(calls[50], "51 1 0 1");
}

// Each is given up while the log goes on: were the oldest searched for, this would not end.
TEST_F(Order, of_very_many_calls_that_never_end_is_that_of_their_beginnings) {
    std::string log;
    for (int thread = 1; thread <= 60000; ++thread) log += Text("ChangePin", "Begin", thread);
    const auto calls = Calls(log, {});
    ASSERT_EQ(calls.size(), 60000U);
    EXPECT_EQ(calls.front(), "1 1 - 1");
    EXPECT_EQ(calls.back(), "60000 60000 - 1");
}

TEST_F(Order, counts_each_import_of_an_escrowed_key) {
    const std::string import =
        Text("CZRKUSBKey::ImportEncX509Cert  strPriKeyTemp:", "strPriKeyTemp:K");
    EXPECT_THAT(Calls(import + import + import, {}),
                ElementsAre("1 -7 - 1", "2 -7 - 1", "3 -7 - 1"));
}

}  // namespace
}  // namespace ukey

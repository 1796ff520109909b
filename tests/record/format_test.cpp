// The file of a recording: written by many, read back whole, cut and damaged in every way.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <fstream>
#include <random>
#include <set>
#include <sstream>
#include <thread>

#include "boundary/table.h"
#include "file/reader.h"
#include "file/writer.h"
#include "rounds.h"

namespace {

using namespace kesta::recorder;

class Format : public testing::Test {
protected:
    Format() {
        const int file = mkstemp(mPath);
        EXPECT_TRUE(Writer::Create(file));
        close(file);
        append(DescriptionRecord({{"full", false}, {"functions", DescribeFunctions()}}));
    }
    ~Format() override { unlink(mPath); }

    void append(const std::string& record) {
        Writer writer;
        ASSERT_TRUE(writer.Open(mPath));
        ASSERT_TRUE(Write(writer, record));
    }
    static bool Write(Writer& writer, const std::string& record) {
        return writer.append(reinterpret_cast<const unsigned char*>(record.data()), record.size());
    }
    static std::string Packed(const Json& record) {
        const auto bytes = Json::to_msgpack(record);
        return {bytes.begin(), bytes.end()};
    }
    // A call of Initialize, whose row has no parameters.
    static std::string Enter(std::uint64_t call) {
        return Packed(Json::array({1, call, 0, 1, 1, 5, 0, Json::array()}));
    }
    std::string Bytes() const {
        std::ifstream file(mPath, std::ios::binary);
        std::ostringstream all;
        all << file.rdbuf();
        return all.str();
    }

    static constexpr std::size_t kVerifyPin = NumberOf(Boundary::kExports, "VerifyPIN");

    // Calls of process n have the numbers behind n times this.
    static constexpr std::uint64_t kRoom = 1000000;

    [[noreturn]] void WriteUntilKilled(std::uint64_t n, std::atomic<std::uint64_t>& done) const {
        Writer writer;
        if (!writer.Open(mPath)) _exit(1);
        for (std::uint64_t i = 1; i <= 2000; ++i) {
            if (!Write(writer, Enter(n * kRoom + i))) _exit(2);
            done.store(i);
        }
        for (;;) pause();  // on a crowded machine the kill comes late
    }

    char mPath[32] = "format-test-XXXXXX";
};

TEST_F(Format, calls_come_back_with_what_was_written) {
    append(Enter(1));
    append(Packed(Json::array({2, 1, 9, 0, -101, -101, Json::array()})));
    const Recording recording = ReadRecording(mPath);
    ASSERT_EQ(recording.calls.size(), 1U);
    EXPECT_EQ(recording.FunctionOf(recording.calls[0]).name, "Initialize");
    EXPECT_EQ(recording.calls[0].result, -101);
    EXPECT_EQ(recording.calls[0].end, 9U);
    EXPECT_EQ(recording.damaged + recording.unfinished + recording.lost, 0U);
}

TEST_F(Format, records_of_many_threads_are_all_whole) {
    constexpr std::uint64_t kThreads = 4, kEach = 5000;
    Writer writer;
    ASSERT_TRUE(writer.Open(mPath));
    std::vector<std::thread> threads;
    for (std::uint64_t n = 0; n < kThreads; ++n) {
        threads.emplace_back([&, n] {
            for (std::uint64_t i = 0; i < kEach; ++i) Write(writer, Enter(n * kEach + i + 1));
        });
    }
    for (std::thread& thread : threads) thread.join();
    const Recording recording = ReadRecording(mPath);
    ASSERT_EQ(recording.calls.size(), kThreads * kEach);
    for (std::uint64_t i = 0; i < kThreads * kEach; ++i) {
        ASSERT_EQ(recording.calls[i].number, i + 1);
    }
}

// Each of a thousand processes is killed somewhere in its writing. What it had written is there,
// and of what it was writing at most one record is not.
TEST_F(Format, a_thousand_kills_lose_at_most_the_record_being_written) {
    constexpr std::uint64_t kKills = 1000;
    auto* const done = static_cast<std::atomic<std::uint64_t>*>(
        mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    std::mt19937 random(20240607);
    std::vector<std::uint64_t> written;
    for (std::uint64_t n = 0; n < kKills; ++n) {
        done->store(0);
        const pid_t child = fork();
        if (child == 0) WriteUntilKilled(n, *done);
        while (done->load() == 0) sched_yield();
        usleep(static_cast<useconds_t>(random() % 30));
        kill(child, SIGKILL);
        int status = 0;
        waitpid(child, &status, 0);
        ASSERT_TRUE(WIFSIGNALED(status)) << status;
        written.push_back(done->load());
    }
    munmap(done, 4096);
    const Recording recording = ReadRecording(mPath);
    std::set<std::uint64_t> numbers;
    for (const Call& call : recording.calls) numbers.insert(call.number);
    EXPECT_EQ(numbers.size(), recording.calls.size());
    std::uint64_t beyond = numbers.size();
    for (std::uint64_t n = 0; n < kKills; ++n) {
        for (std::uint64_t i = 1; i <= written[n]; ++i) {
            ASSERT_EQ(numbers.count(n * kRoom + i), 1U) << "process " << n << ", record " << i;
        }
        beyond -= written[n];
        EXPECT_EQ(numbers.count(n * kRoom + written[n] + 2), 0U);
    }
    EXPECT_LE(beyond + recording.unfinished, kKills);
    EXPECT_EQ(recording.damaged, 0U);
}

TEST_F(Format, a_cut_file_gives_what_stands_before_the_cut) {
    for (std::uint64_t call = 1; call <= 20; ++call) append(Enter(call));
    std::string whole = Bytes();
    whole.resize(whole.find_last_not_of('\0') + 1);
    std::size_t before = 0;
    for (std::size_t size = 0; size < whole.size(); ++size) {
        try {
            const Recording recording = ParseRecording(whole.substr(0, size));
            ASSERT_GE(recording.calls.size(), before);
            ASSERT_LE(recording.damaged, 1U);
            before = recording.calls.size();
        } catch (const BadRecording& bad) {
            ASSERT_EQ(before, 0U) << bad.what();
        }
    }
    EXPECT_EQ(before, 19U);
}

TEST_F(Format, damage_ends_in_an_answer) {
    for (std::uint64_t call = 1; call <= 20; ++call) append(Enter(call));
    std::string whole = Bytes();
    whole.resize(whole.find_last_not_of('\0') + 1);
    std::mt19937 random(7);
    for (int n = 0; n < Rounds(3000); ++n) {
        std::string changed = whole;
        changed[random() % changed.size()] = static_cast<char>(random());
        try {
            EXPECT_LE(ParseRecording(changed).calls.size(), 20U);
        } catch (const BadRecording&) {
        }
    }
}

TEST_F(Format, calls_keep_the_functions_that_they_were_recorded_with) {
    append(Enter(1));
    append(DescriptionRecord({{"full", false}, {"functions", {{"One", "token", Json::array()}}}}));
    const Recording recording = ReadRecording(mPath);
    EXPECT_EQ(recording.FunctionOf(recording.calls.at(0)).name, "Initialize");
    EXPECT_EQ(recording.functions.size(), kFunctionCount);
    EXPECT_EQ(recording.damaged, 1U);
}

// Followed to its end it would take all of the stack.
TEST_F(Format, a_record_of_a_million_levels_is_damaged) {
    append(std::string(1 << 20, '\x91'));
    append(Enter(1));
    const Recording recording = ReadRecording(mPath);
    EXPECT_EQ(recording.damaged, 1U);
    EXPECT_EQ(recording.calls.size(), 1U);
}

TEST_F(Format, values_that_no_recorder_writes_are_damaged) {
    const Json values[] = {"a text", 0.5, {{"text", "a map"}}, Json::array({{{"in", "a list"}}})};
    for (const Json& value : values) {
        append(Packed(Json::array({1, 1, 0, 1, 1, 5, kVerifyPin, Json::array({value})})));
    }
    append(Packed(Json::array({1, -1, 0, 1, 1, 5, 0, Json::array()})));
    const Recording recording = ReadRecording(mPath);
    EXPECT_EQ(recording.calls.size(), 0U);
    EXPECT_EQ(recording.damaged, std::size(values) + 1);
}

TEST_F(Format, a_key_counts_in_a_full_recording_alone) {
    Recording recording;
    recording.description = {{"key", Json::binary(std::vector<std::uint8_t>(1000, 7))}};
    EXPECT_EQ(recording.KeyBytes(), "");
    recording.full = true;
    EXPECT_EQ(recording.KeyBytes().size(), 1000U);
}

TEST_F(Format, what_is_no_recording_of_this_version_is_told_apart) {
    const auto reason = [](const std::string& text) -> std::string {
        try {
            ParseRecording(text);
        } catch (const BadRecording& bad) {
            return bad.what();
        }
        return "taken";
    };
    std::string other = Bytes();
    other[kVersionAt] = 2;
    EXPECT_EQ(reason(""), "this is no recording");
    EXPECT_EQ(reason("\x7f"
                     "ELF and so on, long enough to hold a head"),
              "this is no recording");
    EXPECT_EQ(reason(other),
              "this recording has version 2 of the format; this program reads version 1");
    EXPECT_EQ(reason(Bytes().substr(0, 100)), "this recording is cut within its head");
}

// Beyond the limit of a process's files the kernel would send a signal.
TEST_F(Format, a_writer_without_room_loses_records_and_nothing_else) {
    const pid_t child = fork();
    if (child == 0) {
        const rlimit limit = {std::size_t{3} << 18, std::size_t{3} << 18};
        setrlimit(RLIMIT_FSIZE, &limit);
        Writer writer;
        if (!writer.Open(mPath)) _exit(1);
        bool refused = false;
        for (int i = 1; i < 100000; ++i) {
            refused = !Write(writer, Enter(static_cast<std::uint64_t>(i)));
        }
        _exit(refused ? 0 : 2);
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    const Recording recording = ReadRecording(mPath);
    EXPECT_GT(recording.calls.size(), 10000U);
    EXPECT_EQ(recording.calls.size() + recording.lost, 99999U);
    EXPECT_EQ(recording.calls.back().number, recording.calls.size());
}

}  // namespace

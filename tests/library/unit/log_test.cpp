// What the log shows of threads and of a folder that cannot be written. The records' shape is
// tested through the shipped library.
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "commonfunction.h"

namespace {

constexpr const char* kLogFile = "/tmp/ValtoPinpad_KESTA.log";
constexpr std::size_t kStackSize = 1 << 20;

std::string LogText() {
    std::ostringstream text;
    text << std::ifstream(kLogFile, std::ios::binary).rdbuf();
    return text.str();
}

std::vector<std::string> LinesOf(const std::string& text) {
    std::vector<std::string> lines;
    for (std::size_t at = 0, end; (end = text.find("\r\n", at)) != std::string::npos;
         at = end + 2) {
        lines.push_back(text.substr(at, end - at));
    }
    return lines;
}

// These tests take /tmp for their own: never outside the private namespace.
class Log : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(access("/opt/.image", F_OK), 0) << "run this through tests/support/in-namespace";
        unlink(kLogFile);
    }
};

// A stack whose addresses have the given low 32 bits, so that a thread on it has such an id. Null
// when no place is free.
void* StackAt(std::uint64_t lowBits) {
    for (const std::uint64_t high : {0x7eab00000000u, 0x7ebb00000000u, 0x2b00000000u}) {
        void* const wanted = reinterpret_cast<void*>(high + lowBits);
        void* const got = mmap(wanted, kStackSize, PROT_READ | PROT_WRITE,
                               MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED_NOREPLACE, -1, 0);
        if (got == wanted) return got;
        if (got != MAP_FAILED) munmap(got, kStackSize);
    }
    return nullptr;
}

void* WriteOneRecord(void* id) {
    *static_cast<std::uint64_t*>(id) = static_cast<std::uint64_t>(pthread_self());
    LogEntry("Tag", "x");
    return nullptr;
}

// The id of a thread that ran on a stack and wrote one record.
std::uint64_t LogOnStack(void* stack) {
    std::uint64_t id = 0;
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstack(&attributes, stack, kStackSize);
    pthread_t thread;
    EXPECT_EQ(pthread_create(&thread, &attributes, WriteOneRecord, &id), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
    munmap(stack, kStackSize);
    return id;
}

TEST_F(Log, shows_the_low_half_of_a_thread_id_as_a_negative_number) {
    void* const stack = StackAt(0x90000000);
    ASSERT_NE(stack, nullptr);
    const std::uint64_t id = LogOnStack(stack);
    ASSERT_EQ(id & 0x80000000u, 0x80000000u);
    const long long number = static_cast<long long>(id & 0xffffffffu) - 0x100000000ll;
    EXPECT_NE(LogText().find(", thread is " + std::to_string(number) + ")\r\n"), std::string::npos)
        << LogText();
}

TEST_F(Log, shows_the_low_half_of_a_thread_id_as_a_positive_number) {
    void* const stack = StackAt(0x10000000);
    ASSERT_NE(stack, nullptr);
    const std::uint64_t id = LogOnStack(stack);
    const std::string number = std::to_string(id & 0xffffffffu);
    EXPECT_NE(LogText().find(", thread is " + number + ")\r\n"), std::string::npos) << LogText();
}

TEST_F(Log, keeps_records_of_many_threads_whole) {
    constexpr int kThreads = 4, kRecords = 250;
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([] {
            for (int n = 0; n < kRecords; ++n) LogEntry("Tag", "%s", std::string(200, 'x').c_str());
        });
    }
    for (std::thread& thread : threads) thread.join();
    const auto lines = LinesOf(LogText());
    ASSERT_EQ(lines.size(), 2u * kThreads * kRecords);
    for (std::size_t i = 0; i < lines.size(); i += 2) {
        ASSERT_NE(lines[i].find("] Tag: (Process is "), std::string::npos) << lines[i];
        ASSERT_EQ(lines[i + 1], "\t[" + std::string(200, 'x') + "]");
    }
}

TEST_F(Log, in_a_folder_that_cannot_be_written_is_not_begun) {
    struct stat before {};
    ASSERT_EQ(stat("/tmp", &before), 0);
    ASSERT_EQ(chmod("/tmp", 0555), 0);
    const pid_t child = fork();
    if (child == 0) {
        // The administrator may write everywhere.
        if (geteuid() == 0 && (setgid(65534) != 0 || setuid(65534) != 0)) _exit(2);
        LogEntry("Tag", "x");
        LogHex("Tag", "x", 1);
        _exit(access(kLogFile, F_OK) == 0 ? 1 : 0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    chmod("/tmp", before.st_mode & 07777);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0) << "1: the log was begun, 2: the user could not be changed";
}

TEST_F(Log, of_a_forked_process_shows_its_own_id) {
    const pid_t child = fork();
    if (child == 0) {
        LogEntry("Tag", "x");
        _exit(0);
    }
    waitpid(child, nullptr, 0);
    EXPECT_NE(LogText().find("(Process is " + std::to_string(child) + ","), std::string::npos);
}

}  // namespace

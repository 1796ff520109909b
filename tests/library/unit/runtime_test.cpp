// What the library makes of a runtime that fails it, and of library files that are damaged.
#include "runtime.h"

#include <dlfcn.h>
#include <elf.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <sstream>
#include <string>

#include "certificate_import.h"
#include "event_wait.h"
#include "library_file.h"

namespace {

constexpr const char* kLogFile = "/tmp/ValtoPinpad_KESTA.log";

std::string LogText() {
    std::ostringstream text;
    text << std::ifstream(kLogFile, std::ios::binary).rdbuf();
    return text.str();
}

std::size_t Count(const std::string& text, const std::string& part) {
    std::size_t count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
        ++count;
    }
    return count;
}

// These tests take /tmp for their own: never outside the private namespace.
class Runtime : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(access("/opt/.image", F_OK), 0) << "run this through tests/support/in-namespace";
        unlink(kLogFile);
        plan = {};
    }
    void TearDown() override { plan = {}; }

    runtime::Plan& plan = runtime::ThePlan();
};

using LogWithoutMemory = Runtime;
using LogFile = Runtime;
using LogHead = Runtime;
using LibraryFile = Runtime;
using Process = Runtime;

const std::string kLong(10000, 'x');

void ExpectOnlyTheNextRecord() {
    runtime::ThePlan() = {};
    LogEntry("Next", "whole");
    const std::string text = LogText();
    EXPECT_EQ(text.rfind('[', 1), 0U) << text;
    EXPECT_EQ(Count(text, "Process is"), 1U) << text;
    EXPECT_EQ(Count(text, "] Next: "), 1U) << text;
    EXPECT_EQ(Count(text, "\t[whole]\r\n"), 1U) << text;
}

TEST_F(LogWithoutMemory, leaves_a_record_of_a_long_text_out) {
    plan.refusedSize = 4096;
    LogEntry("Tag", "%s", kLong.c_str());
    ExpectOnlyTheNextRecord();
}

TEST_F(LogWithoutMemory, leaves_a_record_of_many_bytes_out) {
    plan.refusedSize = 4096;
    LogHex("Tag", kLong.data(), static_cast<int>(kLong.size()));
    ExpectOnlyTheNextRecord();
}

// Nothing is asked for again after the first refusal, however much there would be by then.
TEST_F(LogWithoutMemory, leaves_a_record_with_a_long_tag_out) {
    plan.refusedSize = 20000;
    LogEntry((kLong + kLong).c_str(), "%s", std::string(5000, 'y').c_str());
    ExpectOnlyTheNextRecord();
}

// A body that fills the buffer to its last byte leaves none for the bracket behind it.
TEST_F(LogWithoutMemory, leaves_a_record_without_room_for_its_end_out) {
    LogEntry("Tag", "%s", "");
    const std::size_t head = LogText().size() - std::strlen("]\r\n");
    unlink(kLogFile);
    plan.refusedSize = 4096;
    LogEntry("Tag", "%s", std::string(4096 - head - 1, 'x').c_str());
    ExpectOnlyTheNextRecord();
}

std::ptrdiff_t WipedWith(const std::string& part) {
    const std::vector<std::string>& wiped = runtime::ThePlan().wiped;
    return std::count_if(wiped.begin(), wiped.end(), [&part](const std::string& text) {
        return text.find(part) != std::string::npos;
    });
}

// It may be a key's: in the record's own buffer, and in the longer one that it was moved to.
TEST_F(LogFile, is_all_that_keeps_the_text_of_a_record) {
    const std::string part(20, 'x');
    LogEntry("Tag", "%s", part.c_str());
    EXPECT_EQ(WipedWith(part), 1);
    plan.wiped.clear();
    LogEntry("Tag", "%s", kLong.c_str());
    EXPECT_EQ(WipedWith(part), 2);
    EXPECT_EQ(WipedWith(kLong), 1);
}

TEST_F(LogWithoutMemory, keeps_no_text_in_memory_either) {
    plan.refusedSize = 4096;
    LogEntry("Tag", "%s", kLong.c_str());
    EXPECT_EQ(WipedWith(std::string(3000, 'x')), 1);
}

// As long as its buffer has room for the longest head beside the tag, and for what follows.
TEST_F(LogWithoutMemory, writes_a_record_that_needs_none) {
    plan.refusedSize = 4096;
    LogEntry(std::string(4096 - 128, 't').c_str(), "%s", "x");
    EXPECT_EQ(Count(LogText(), "\t[x]\r\n"), 1U);
    LogHex("Tag", kLong.data(), 1900);
    EXPECT_EQ(Count(LogText(), std::string(3800, '7')), 0U);
    EXPECT_EQ(Count(LogText(), "787878]\r\n"), 1U);
}

// A body that takes all of the buffer is moved to a longer one before it is cut.
TEST_F(LogFile, holds_a_body_of_any_length_whole) {
    LogEntry("Tag", "%s", "");
    const std::size_t room = 4096 - (LogText().size() - std::strlen("]\r\n"));
    for (std::size_t length = room - 5; length < room + 5; ++length) {
        unlink(kLogFile);
        LogEntry("Tag", "%s", std::string(length, 'x').c_str());
        EXPECT_EQ(Count(LogText(), "\t[" + std::string(length, 'x') + "]\r\n"), 1U) << length;
    }
}

TEST_F(LogFile, has_nothing_of_a_body_that_cannot_be_printed) {
    LogEntry("Tag", "%ls", L"\x1F511");
    EXPECT_EQ(Count(LogText(), "\t[]\r\n"), 1U) << LogText();
}

// A client may ask for local time in a zone of its own before the first record and between two.
TEST_F(LogHead, is_in_the_zone_that_is_named_when_it_is_written) {
    const time_t second = 1000000000;
    plan.now = {second, 0};
    const auto told = [] {
        unlink(kLogFile);
        LogEntry("Tag", "x");
        const std::string text = LogText();
        return text.size() > 6 ? text.substr(4, 2) : text;
    };
    const auto hour = [&second] {
        const std::string text = std::to_string(100 + std::localtime(&second)->tm_hour);
        return text.substr(1);
    };
    const std::string machines = hour();
    setenv("TZ", "ABC+7:45", 1);
    const std::string named = hour();
    ASSERT_NE(named, machines);
    unsetenv("TZ");
    EXPECT_EQ(told(), machines);
    EXPECT_EQ(told(), machines);
    setenv("TZ", "ABC+7:45", 1);
    EXPECT_EQ(told(), named);
}

TEST_F(LogHead, tells_whole_milliseconds) {
    const std::pair<int, const char*> kTold[] = {
        {0, ".000"}, {999, ".000"}, {1000, ".001"}, {999000, ".999"}, {999999, ".999"}};
    for (const auto& [microseconds, told] : kTold) {
        unlink(kLogFile);
        plan.now = {1000000000, microseconds};
        LogEntry("Tag", "x");
        EXPECT_EQ(Count(LogText(), told + std::string("] Tag: ")), 1U) << LogText();
    }
}

TEST_F(LogHead, tells_a_process_of_one_digit_by_that_alone) {
    plan.process = 7;
    LogEntry("Tag", "x");
    EXPECT_EQ(Count(LogText(), "(Process is 7, thread is "), 1U) << LogText();
}

TEST_F(LogFile, takes_the_rest_of_a_record_after_a_signal_or_a_part) {
    plan.writes = {-EINTR, 5, -EINTR, 1};
    LogEntry("Tag", "body");
    EXPECT_TRUE(plan.writes.empty());
    EXPECT_EQ(Count(LogText(), "\t[body]\r\n"), 1U) << LogText();
    EXPECT_EQ(LogText()[0], '[');
}

TEST_F(LogFile, is_given_up_by_a_record_that_it_does_not_take) {
    for (const int answer : {-ENOSPC, -EIO, 0}) {
        unlink(kLogFile);
        plan.writes = {3, answer, 4};
        LogEntry("Tag", "body");
        EXPECT_EQ(plan.writes.size(), 1U) << answer;
        EXPECT_EQ(LogText().size(), 3U) << answer;
    }
    // What an earlier call was ended by does not count.
    plan.writes = {-EINTR, 0, 4};
    LogEntry("Tag", "body");
    EXPECT_EQ(plan.writes.size(), 1U);
}

// A file of one page with a header and segments, and what is to become of it.
class ElfFile {
public:
    ElfFile() {
        std::memcpy(header.e_ident, ELFMAG, SELFMAG);
        header.e_ident[EI_CLASS] = ELFCLASS64;
        header.e_phentsize = sizeof(Elf64_Phdr);
        header.e_phoff = sizeof header;
        header.e_phnum = 2;
        for (Elf64_Phdr& segment : segments) {
            segment.p_type = PT_LOAD;
            segment.p_filesz = 100;
        }
    }

    // Whether the loader is asked to open it.
    bool IsTried(off_t size = kSize) const {
        constexpr const char* kPath = "/tmp/library.so";
        {
            std::ofstream file(kPath, std::ios::binary | std::ios::trunc);
            file.write(reinterpret_cast<const char*>(&header), sizeof header);
            file.write(reinterpret_cast<const char*>(segments), sizeof segments);
        }
        EXPECT_EQ(truncate(kPath, size), 0);
        return IsTried(kPath);
    }

    static bool IsTried(const char* path) {
        runtime::Plan& plan = runtime::ThePlan();
        plan.holdsLibraries = true;
        plan.opened.clear();
        EXPECT_EQ(kesta::OpenLibrary(path), nullptr);
        EXPECT_EQ(plan.opened.at(0), RTLD_LAZY | RTLD_NOLOAD);
        if (plan.opened.size() == 1) return false;
        EXPECT_EQ(plan.opened, (std::vector<int>{RTLD_LAZY | RTLD_NOLOAD, RTLD_LAZY}));
        return true;
    }

    static constexpr off_t kSize = 1000;
    Elf64_Ehdr header{};
    Elf64_Phdr segments[2]{};
};

TEST_F(LibraryFile, that_is_whole_is_for_the_loader) {
    ElfFile file;
    EXPECT_TRUE(file.IsTried());
    const auto page = static_cast<Elf64_Off>(sysconf(_SC_PAGESIZE));
    // Zeroes fill its last page up.
    file.segments[1].p_offset = page - 100;
    EXPECT_TRUE(file.IsTried());
    file.segments[1].p_offset = 0;
    file.segments[1].p_filesz = page;
    EXPECT_TRUE(file.IsTried());
    EXPECT_TRUE(file.IsTried(static_cast<off_t>(page)));
}

TEST_F(LibraryFile, that_ends_before_its_segments_do_is_not) {
    const auto page = static_cast<Elf64_Off>(sysconf(_SC_PAGESIZE));
    ElfFile file;
    file.segments[1].p_offset = page - 99;
    EXPECT_FALSE(file.IsTried());
    EXPECT_TRUE(file.IsTried(static_cast<off_t>(page) + 1));
    // The sum of both would be small again.
    file.segments[1].p_offset = ~Elf64_Off{0} - 50;
    EXPECT_FALSE(file.IsTried());
    ElfFile longer;
    longer.segments[0].p_filesz = page + 1;
    EXPECT_FALSE(longer.IsTried());
}

// The file's descriptor is 0 then.
TEST_F(LibraryFile, is_looked_at_for_a_client_without_standard_input) {
    ElfFile file;
    file.segments[1].p_offset = static_cast<Elf64_Off>(sysconf(_SC_PAGESIZE));
    const int input = dup(STDIN_FILENO);
    close(STDIN_FILENO);
    EXPECT_FALSE(file.IsTried());
    EXPECT_EQ(fcntl(STDIN_FILENO, F_GETFD), -1) << "it is closed again";
    dup2(input, STDIN_FILENO);
    close(input);
}

TEST_F(LibraryFile, that_ends_before_its_list_of_segments_does_is_not) {
    ElfFile file;
    constexpr off_t kEnd = sizeof file.header + sizeof file.segments;
    EXPECT_TRUE(file.IsTried(kEnd));
    EXPECT_FALSE(file.IsTried(kEnd - 1));
    file.header.e_phnum = 1;
    EXPECT_TRUE(file.IsTried(kEnd - 1));
    file.header.e_phoff = ElfFile::kSize;
    EXPECT_FALSE(file.IsTried());
}

TEST_F(LibraryFile, may_have_segments_that_take_nothing_of_it) {
    ElfFile file;
    file.segments[0].p_offset = file.segments[1].p_offset = Elf64_Off{1} << 30;
    file.segments[0].p_filesz = 0;
    file.segments[1].p_type = PT_NOTE;
    EXPECT_TRUE(file.IsTried());
    file.segments[1].p_type = PT_LOAD;
    EXPECT_FALSE(file.IsTried());
}

// Its segments would be missing.
TEST_F(LibraryFile, that_the_loader_refuses_is_the_loaders) {
    ElfFile missing;
    missing.header.e_phoff = 1 << 20;
    ASSERT_FALSE(missing.IsTried());
    EXPECT_TRUE(missing.IsTried(sizeof missing.header - 1));
    ElfFile file = missing;
    file.header.e_ident[EI_MAG3] = 'f';
    EXPECT_TRUE(file.IsTried());
    file = missing;
    file.header.e_ident[EI_CLASS] = ELFCLASS32;
    EXPECT_TRUE(file.IsTried());
    file = missing;
    file.header.e_phentsize = sizeof(Elf64_Phdr) + 1;
    EXPECT_TRUE(file.IsTried());
    EXPECT_TRUE(ElfFile::IsTried("/tmp"));
    EXPECT_TRUE(ElfFile::IsTried("/tmp/absent"));
    plan.statusFails = true;
    EXPECT_TRUE(missing.IsTried());
}

TEST_F(Process, that_cannot_say_where_the_library_is_does_without_pinning_it) {
    plan.addressFails = plan.holdsLibraries = true;
    kesta::StayLoaded();
    EXPECT_TRUE(plan.opened.empty());
}

// A key that was cut short would be a wrong one.
TEST_F(Process, ends_at_a_key_that_is_too_long) {
    CommonFunction table;
    table.m_hLibrary = &table;
    table.m_pGMImportPriKey = [](const char*, char*, std::uint32_t) { return 7; };
    const kesta::Token token(table);
    const auto import = [&](std::size_t length) {
        return kesta::ImportEncryption(token, "A1", "MIIC", std::string(length, '1').c_str());
    };
    EXPECT_EQ(import(kesta::limits::kKeyBuffer), 7);
    EXPECT_GE(WipedWith(std::string(kesta::limits::kKeyBuffer, '1')), 3)
        << "as it came, as it was handed on, and as it was logged";
    EXPECT_EXIT(import(kesta::limits::kKeyBuffer + 1), testing::ExitedWithCode(runtime::kAborted),
                "");
}

}  // namespace

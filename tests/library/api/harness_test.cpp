// The harness itself: what it must notice, it does notice.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "api_test.h"

namespace {

const std::string record = "[07,12:03:04.056] Tag: (Process is 1, thread is -2)\r\n\t[body]\r\n";

std::string Replaced(const std::string& part, const std::string& with) {
    std::string text = record;
    return text.replace(text.find(part), part.size(), with);
}

// What the shell says when it runs the launcher by hand.
int ExitCode(const std::string& command) {
    const int status = std::system((command + " >/tmp/said 2>&1").c_str());
    return WEXITSTATUS(status);
}

std::string Said() {
    std::ifstream file("/tmp/said");
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

}  // namespace

TEST(LogReader, takes_a_record_apart) {
    const auto records = ParseLog(record + record);
    ASSERT_EQ(records.size(), 2U);
    EXPECT_EQ(records[1].day, 7);
    EXPECT_EQ(records[1].hour * 10000 + records[1].minute * 100 + records[1].second, 120304);
    EXPECT_EQ(records[1].fraction, "056");
    EXPECT_EQ(records[1].tag, "Tag");
    EXPECT_EQ(records[1].process, 1);
    EXPECT_EQ(records[1].thread, -2);
    EXPECT_EQ(records[1].body, "body");
}

TEST(LogReader, refuses_misshapen_records) {
    for (const std::string& bad :
         {Replaced("\r\n\t", "\n\t"), Replaced("\t", " "), Replaced("]\r\n", "\r\n"),
          Replaced("\r\n\t[body]\r\n", "\r\n\t[body]\n"), Replaced(".056", ".56"),
          Replaced("07,", "7,"), Replaced("[07", "07"), Replaced("Tag: ", "Tag:"),
          Replaced("is 1", "is x"), Replaced(", thread", " thread"), "x" + record, record + "x",
          Replaced("04.", "04,")}) {
        EXPECT_THROW(ParseLog(bad), std::runtime_error) << bad;
    }
}

TEST(CanaryBuffer, notices_a_byte_on_either_side) {
    CanaryBuffer buffer(4);
    EXPECT_TRUE(buffer.Untouched());
    buffer.data()[4] = '\0';
    EXPECT_FALSE(buffer.GuardsIntact());
    CanaryBuffer other(4);
    other.data()[-1] = '\0';
    EXPECT_FALSE(other.GuardsIntact());
    EXPECT_FALSE(other.HoldsOnly(""));
}

TEST(CanaryBuffer, notices_a_byte_too_many_inside) {
    CanaryBuffer buffer(4);
    buffer.data()[0] = 'a';
    EXPECT_TRUE(buffer.HoldsOnly("a"));
    EXPECT_FALSE(buffer.Untouched());
    buffer.data()[1] = '\0';
    EXPECT_FALSE(buffer.HoldsOnly("a"));
}

TEST(Recorder, counts_requests_that_are_not_released) {
    char* const request = TheRecorder().NewRequest("text");
    EXPECT_EQ(TheRecorder().LiveRequests(), 1);
    delete[] request;
    EXPECT_EQ(TheRecorder().LiveRequests(), 0);
}

TEST(Recorder, refuses_a_single_call_that_was_none_or_two) {
    EXPECT_THROW(TheRecorder().Only("VerifyPIN"), std::logic_error);
    VerifyPIN("A1");
    EXPECT_EQ(TheRecorder().Only("VerifyPIN").Bytes(0), "A1");
    VerifyPIN("A1");
    EXPECT_THROW(TheRecorder().Only("VerifyPIN"), std::logic_error);
}

TEST(HeapUse, grows_with_a_leak) {
    static char* kept[2000];
    const std::size_t before = HeapInUse();
    for (auto& block : kept) block = new char[16];
    EXPECT_GT(HeapInUse(), before + 2000 * 8);
    for (auto& block : kept) delete[] block;
}

TEST(Namespace, hides_the_machines_tmp_and_opt) {
    // A build folder below /tmp stays visible, and nothing else there.
    const std::string here = std::filesystem::current_path();
    for (const auto& entry : std::filesystem::directory_iterator("/tmp")) {
        EXPECT_EQ((here + '/').rfind(entry.path().string() + '/', 0), 0u) << entry.path();
    }
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(install::directory)) {
        names.push_back(entry.path().filename());
    }
    EXPECT_THAT(names, testing::UnorderedElementsAre("libKestaZRK.so", "libR7Token_KESTA.so"));
}

TEST(Launcher, fails_and_names_the_package_when_bwrap_is_missing) {
    std::filesystem::create_directory("/tmp/path");
    for (const char* const tool : {"bash", "realpath"}) {
        std::filesystem::create_symlink(std::string("/usr/bin/") + tool,
                                        std::string("/tmp/path/") + tool);
    }
    EXPECT_EQ(ExitCode("PATH=/tmp/path bash " KESTA_LAUNCHER " /tmp /tmp true"), 1);
    EXPECT_THAT(Said(), testing::HasSubstr("bubblewrap"));
}

TEST(Launcher, refuses_folders_that_are_not_there) {
    EXPECT_EQ(ExitCode(KESTA_LAUNCHER " /tmp/absent /tmp true"), 1);
    EXPECT_THAT(Said(), testing::HasSubstr("/tmp/absent"));
    EXPECT_EQ(ExitCode(KESTA_LAUNCHER), 2);
    EXPECT_THAT(Said(), testing::HasSubstr("usage"));
    EXPECT_EQ(ExitCode(KESTA_LAUNCHER " --help"), 0);
}

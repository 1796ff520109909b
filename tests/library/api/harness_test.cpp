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

std::string replaced(const std::string& part, const std::string& with) {
    std::string text = record;
    return text.replace(text.find(part), part.size(), with);
}

// What the shell says when it runs the launcher by hand.
int exit_code(const std::string& command) {
    const int status = std::system((command + " >/tmp/said 2>&1").c_str());
    return WEXITSTATUS(status);
}

std::string said() {
    std::ifstream file("/tmp/said");
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

}  // namespace

TEST(LogReader, takes_a_record_apart) {
    const auto records = parse_log(record + record);
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
         {replaced("\r\n\t", "\n\t"), replaced("\t", " "), replaced("]\r\n", "\r\n"),
          replaced("\r\n\t[body]\r\n", "\r\n\t[body]\n"), replaced(".056", ".56"),
          replaced("07,", "7,"), replaced("[07", "07"), replaced("Tag: ", "Tag:"),
          replaced("is 1", "is x"), replaced(", thread", " thread"), "x" + record, record + "x",
          replaced("04.", "04,")}) {
        EXPECT_THROW(parse_log(bad), std::runtime_error) << bad;
    }
}

TEST(CanaryBuffer, notices_a_byte_on_either_side) {
    CanaryBuffer buffer(4);
    EXPECT_TRUE(buffer.untouched());
    buffer.data()[4] = '\0';
    EXPECT_FALSE(buffer.guards_intact());
    CanaryBuffer other(4);
    other.data()[-1] = '\0';
    EXPECT_FALSE(other.guards_intact());
    EXPECT_FALSE(other.holds_only(""));
}

TEST(CanaryBuffer, notices_a_byte_too_many_inside) {
    CanaryBuffer buffer(4);
    buffer.data()[0] = 'a';
    EXPECT_TRUE(buffer.holds_only("a"));
    EXPECT_FALSE(buffer.untouched());
    buffer.data()[1] = '\0';
    EXPECT_FALSE(buffer.holds_only("a"));
}

TEST(Recorder, counts_requests_that_are_not_released) {
    char* const request = recorder().new_request("text");
    EXPECT_EQ(recorder().live_requests(), 1);
    delete[] request;
    EXPECT_EQ(recorder().live_requests(), 0);
}

TEST(Recorder, refuses_a_single_call_that_was_none_or_two) {
    EXPECT_THROW(recorder().only("VerifyPIN"), std::logic_error);
    VerifyPIN("A1");
    EXPECT_EQ(recorder().only("VerifyPIN").bytes(0), "A1");
    VerifyPIN("A1");
    EXPECT_THROW(recorder().only("VerifyPIN"), std::logic_error);
}

TEST(HeapUse, grows_with_a_leak) {
    static char* kept[2000];
    const std::size_t before = heap_in_use();
    for (auto& block : kept) block = new char[16];
    EXPECT_GT(heap_in_use(), before + 2000 * 8);
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
    EXPECT_EQ(exit_code("PATH=/tmp/path bash " KESTA_LAUNCHER " /tmp /tmp true"), 1);
    EXPECT_THAT(said(), testing::HasSubstr("bubblewrap"));
}

TEST(Launcher, refuses_folders_that_are_not_there) {
    EXPECT_EQ(exit_code(KESTA_LAUNCHER " /tmp/absent /tmp true"), 1);
    EXPECT_THAT(said(), testing::HasSubstr("/tmp/absent"));
    EXPECT_EQ(exit_code(KESTA_LAUNCHER), 2);
    EXPECT_THAT(said(), testing::HasSubstr("usage"));
    EXPECT_EQ(exit_code(KESTA_LAUNCHER " --help"), 0);
}

// CheckDriverIntegrity and the lister of directories behind it.
#include <dirent.h>

#include <climits>
#include <filesystem>
#include <fstream>

#include "api_test.h"
#include "exports_cpp.h"

namespace fs = std::filesystem;

namespace {

const fs::path folder = "/tmp/listed";

Lines ReadDirectly(const fs::path& path) {
    Lines names;
    DIR* const directory = opendir(path.c_str());
    while (const dirent* const entry = readdir(directory)) names.emplace_back(entry->d_name);
    closedir(directory);
    return names;
}

}  // namespace

TEST(CheckDriverIntegrity, refuses_every_mode_but_1) {
    for (const int mode : {0, 2, 3, -1, 4, INT_MIN, INT_MAX}) {
        G_LastError = 0;
        EXPECT_EQ(CheckDriverIntegrity(mode), -300) << mode;
        EXPECT_EQ(G_LastError, -300);
    }
    EXPECT_EQ(Trace(), Lines{});
    EXPECT_FALSE(LogExists());
}

TEST(CheckDriverIntegrity, of_a_directory_without_the_companion_files_is_0) {
    Initialize();
    G_LastError = unrelated_code;
    EXPECT_EQ(CheckDriverIntegrity(1), 0);
    EXPECT_EQ(G_LastError, 0);
    EXPECT_EQ(Trace(), Lines{});
    EXPECT_FALSE(LogExists());
}

TEST(CheckDriverIntegrity, of_an_empty_directory_is_0) {
    for (const auto& entry : fs::directory_iterator(install::directory)) fs::remove(entry);
    EXPECT_EQ(CheckDriverIntegrity(1), 0);
    EXPECT_EQ(G_LastError, 0);
}

TEST(CheckDriverIntegrity, of_a_directory_with_all_companion_files_is_0) {
    for (const char* const name : {"ValtoPinpadDaemon_KESTA", "KeyWarden", "libR7Pinpad_KESTA",
                                   "ValtoMonitor_kesta", "libR7Token_KESTA"}) {
        std::ofstream(fs::path(install::directory) / name) << "x";
    }
    EXPECT_EQ(CheckDriverIntegrity(1), 0);
}

TEST(CheckDriverIntegrity, of_a_directory_with_hundreds_of_files_is_0) {
    for (int number = 0; number < 500; ++number) {
        std::ofstream(fs::path(install::directory) / ("file" + std::to_string(number))) << "x";
    }
    EXPECT_EQ(CheckDriverIntegrity(1), 0);
}

TEST(CheckDriverIntegrity, of_an_absent_directory_is_minus_300) {
    Initialize();
    fs::remove_all(install::directory);
    EXPECT_EQ(CheckDriverIntegrity(1), -300);
    EXPECT_EQ(G_LastError, -300);
}

TEST(CheckDriverIntegrity, leaks_nothing) {
    Initialize();
    ExpectNoLeak([] { CheckDriverIntegrity(1); });
    fs::remove_all(install::directory);
    ExpectNoLeak([] { CheckDriverIntegrity(1); });
}

// ---- The lister ------------------------------------------------------------------------------

TEST(find_dir_file, lists_everything_in_the_directorys_order) {
    fs::create_directories(folder / "subfolder");
    std::ofstream(folder / "file") << "x";
    std::ofstream(folder / ".hidden") << "x";
    std::ofstream(folder / "blank \xE5\xB2\x9A") << "x";
    fs::create_symlink("nowhere", folder / "dangling");
    Lines names;
    CommonFunction lister;
    EXPECT_EQ(lister.find_dir_file(folder.c_str(), names), 0);
    EXPECT_EQ(names, ReadDirectly(folder));
    EXPECT_THAT(names, testing::UnorderedElementsAre(".", "..", "subfolder", "file", ".hidden",
                                                     "blank \xE5\xB2\x9A", "dangling"));
}

TEST(find_dir_file, appends_to_what_is_there) {
    fs::create_directories(folder);
    Lines names{"first"};
    CommonFunction lister;
    EXPECT_EQ(lister.find_dir_file(folder.c_str(), names), 0);
    EXPECT_EQ(names.size(), 3U);
    EXPECT_EQ(names.front(), "first");
}

TEST(find_dir_file, takes_a_path_with_a_trailing_slash) {
    Lines names;
    CommonFunction lister;
    EXPECT_EQ(lister.find_dir_file("/opt/apps/com.zrk.uoskesta/files/bin/", names), 0);
    EXPECT_THAT(names,
                testing::UnorderedElementsAre(".", "..", "libKestaZRK.so", "libR7Token_KESTA.so"));
}

TEST(find_dir_file, reports_an_absent_directory_and_lists_nothing) {
    Lines names{"first"};
    CommonFunction lister;
    EXPECT_EQ(lister.find_dir_file("/tmp/absent", names), -1);
    EXPECT_EQ(names, (Lines{"first"}));
}

TEST(find_dir_file, leaves_no_directory_open) {
    const auto openFiles = [] {
        return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
    };
    const auto before = openFiles();
    CommonFunction lister;
    for (int round = 0; round < 10; ++round) {
        Lines names;
        lister.find_dir_file("/tmp", names);
        lister.find_dir_file("/tmp/absent", names);
    }
    EXPECT_EQ(openFiles(), before);
}

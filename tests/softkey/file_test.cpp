// The files of a state, and the folder that they are in.
#include "softkey/store/file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "outcome.h"
#include "softkey/misbehaviour/misbehaviour.h"
#include "softkey/store/home.h"
#include "system_calls.h"
#include "temporary_folder.h"

using namespace softkey;

namespace {

class FileTest : public testing::Test {
protected:
    ~FileTest() override { SystemCalls::Reset(); }

    std::string Path(const std::string& name = "file") const { return folder_.File(name); }
    Outcome Unreachable(const std::string& path, int error) const {
        return {kStateUnreachable, path + ": " + std::strerror(error)};
    }

    const TemporaryFolder folder_;
};

TEST_F(FileTest, what_the_system_refuses_for_want_of_room_is_told_apart) {
    for (const int error : {ENOSPC, EDQUOT, EFBIG, EACCES, EIO, 0}) {
        const bool full = error == ENOSPC || error == EDQUOT || error == EFBIG;
        const auto failed = OutcomeOf([error] {
            errno = error;
            FailOnFile("the/path");
        });
        EXPECT_EQ(failed.first, full ? kStateFull : kStateUnreachable) << error;
        EXPECT_EQ(failed.second, std::string("the/path: ") + std::strerror(error));
    }
}

TEST_F(FileTest, reading_and_writing_go_on_until_all_is_done) {
    SystemCalls& calls = SystemCalls::Instance();
    for (const std::size_t most : {SIZE_MAX, std::size_t{1}, std::size_t{3}}) {
        for (const bool interrupts : {false, true}) {
            std::filesystem::remove(Path());
            const File file(Path(), O_RDWR | O_CREAT);
            calls.interrupts = interrupts;
            calls.most = most;
            file.WriteAt(0, "??abcdef", 8);
            file.WriteAt(0, "__", 2);
            file.WriteAt(8, nullptr, 0);
            file.Sync();
            std::string text(6, '?');
            EXPECT_EQ(file.ReadAt(2, text.data(), 6), 6U);
            EXPECT_EQ(text, "abcdef");
            EXPECT_EQ(file.ReadAt(7, text.data(), 6), 1U) << "there is no more";
            EXPECT_EQ(text, "fbcdef");
            EXPECT_EQ(file.ReadAt(8, text.data(), 6), 0U);
            const Bytes all = file.ReadAll();
            EXPECT_EQ(std::string(all.begin(), all.end()), "__abcdef");
            EXPECT_EQ(file.ReadSome(0, text.data(), 6), std::min<std::size_t>(6, calls.most));
            SystemCalls::Reset();
        }
    }
}

TEST_F(FileTest, a_sync_reaches_the_system) {
    const File file(Path(), O_RDWR | O_CREAT);
    file.Sync();
    EXPECT_EQ(SystemCalls::Instance().changes, std::vector<std::string>{"fdatasync file"});
}

TEST_F(FileTest, a_plan_is_on_disk_before_it_takes_the_place_of_another) {
    const std::string first = R"({"limits": {"pairs": 1}})", second = R"({"limits": {"pairs": 2}})";
    SetMisbehaviour(folder_.Path(), first);
    const std::vector<std::string> steps = {"pwrite misbehaviour.json.new",
                                            "fdatasync misbehaviour.json.new",
                                            "rename misbehaviour.json.new"};
    EXPECT_EQ(SystemCalls::Instance().changes, steps);
    for (const std::string& step : steps) {
        SystemCalls::Instance().fails = step;
        SystemCalls::Instance().error = EIO;
        EXPECT_THROW(SetMisbehaviour(folder_.Path(), second), Failure) << step;
        EXPECT_EQ(MisbehaviourPlan(folder_.Path()), first) << step;
    }
}

TEST_F(FileTest, is_read_whole_up_to_its_largest_size) {
    folder_.Write("file", "1234");
    const File file(Path(), O_RDONLY);
    EXPECT_EQ(file.ReadAll(4).size(), 4U);
    EXPECT_EQ(file.ReadAll(5).size(), 4U);
    const auto tooLarge = std::make_pair(kStateDamaged, Path() + ": larger than it can be");
    EXPECT_EQ(OutcomeOf([&] { file.ReadAll(3); }), tooLarge);
    std::filesystem::resize_file(Path(), (64 << 20) + 1);
    EXPECT_EQ(OutcomeOf([&] { file.ReadAll(); }), tooLarge);
    EXPECT_EQ(File::kLargest, 64 << 20);
}

TEST_F(FileTest, is_opened_for_this_process_alone_and_keeps_nobody_waiting) {
    const File file(Path(), O_RDWR | O_CREAT);
    ASSERT_TRUE(file.IsOpen());
    EXPECT_NE(fcntl(file.Descriptor(), F_GETFD) & FD_CLOEXEC, 0);
    EXPECT_NE(fcntl(file.Descriptor(), F_GETFL) & O_NONBLOCK, 0);
    EXPECT_EQ(fcntl(file.Descriptor(), F_GETFL) & O_ACCMODE, O_RDWR);
    EXPECT_EQ(file.Status().st_mode & 0777U, 0600U);
}

TEST_F(FileTest, is_read_through_a_link_and_not_made_through_one) {
    folder_.Write("file", "text");
    std::filesystem::create_symlink(Path(), Path("link"));
    EXPECT_EQ(File(Path("link"), O_RDONLY).ReadAll().size(), 4U);
    EXPECT_FALSE(File(Path("link"), O_WRONLY | O_CREAT).IsOpen());
}

int LowestFreeDescriptor() {
    const int free = dup(STDERR_FILENO);
    close(free);
    return free;
}

TEST_F(FileTest, takes_the_place_of_no_closed_stream_and_the_next_descriptor_otherwise) {
    close(STDERR_FILENO + 1);  // whoever started this may have left it open
    const int free = LowestFreeDescriptor();
    ASSERT_EQ(free, STDERR_FILENO + 1);
    folder_.Write("file", "text");
    EXPECT_EQ(File(Path(), O_RDONLY).Descriptor(), free);
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        const int kept = fcntl(stream, F_DUPFD, 100);
        close(stream);
        {
            const File file(Path(), O_RDONLY);
            EXPECT_EQ(file.Descriptor(), free) << stream;
            EXPECT_NE(fcntl(file.Descriptor(), F_GETFD) & FD_CLOEXEC, 0);
            EXPECT_EQ(fcntl(stream, F_GETFD), -1) << "it has two";
        }
        EXPECT_EQ(fcntl(free, F_GETFD), -1) << "it stays open";
        dup2(kept, stream);
        close(kept);
    }
}

TEST_F(FileTest, what_is_not_there_or_not_allowed_is_told_with_its_name) {
    EXPECT_EQ(OutcomeOf([&] { File(Path("none"), O_RDONLY).Required(); }),
              Unreachable(Path("none"), ENOENT));
    folder_.Write("file", "text");
    const File readable(Path(), O_RDONLY);
    EXPECT_EQ(&readable.Required(), &readable);
    const File writable(Path(), O_WRONLY);
    char byte = 0;
    const auto refused = Unreachable(Path(), EBADF);
    EXPECT_EQ(OutcomeOf([&] { readable.WriteAt(0, "x", 1); }), refused);
    EXPECT_EQ(OutcomeOf([&] { readable.TryLock(0); }), refused);
    EXPECT_EQ(OutcomeOf([&] { writable.ReadAt(0, &byte, 1); }), refused);
    EXPECT_EQ(OutcomeOf([&] { writable.ReadSome(0, &byte, 1); }), refused);
    EXPECT_EQ(OutcomeOf([&] { readable.Clear(); }), Unreachable(Path(), EINVAL));
    const File closed(Path("none"), O_RDONLY);
    EXPECT_EQ(OutcomeOf([&] { closed.Status(); }), Unreachable(Path("none"), EBADF));
    EXPECT_EQ(OutcomeOf([&] { closed.Sync(); }), Unreachable(Path("none"), EBADF));
    EXPECT_EQ(OutcomeOf([&] { closed.SetChanged({}); }), Unreachable(Path("none"), EBADF));
}

TEST_F(FileTest, is_cleared_to_nothing_and_changed_when_it_is_told) {
    folder_.Write("file", "text");
    const File file(Path(), O_RDWR);
    file.SetChanged({1234567890, 987654321});
    EXPECT_EQ(file.Status().st_mtim.tv_sec, 1234567890);
    EXPECT_EQ(file.Status().st_mtim.tv_nsec, 987654321);
    file.Clear();
    EXPECT_EQ(file.Status().st_size, 0);
}

TEST_F(FileTest, a_lock_is_one_byte_of_one_opening) {
    const File first(Path(), O_RDWR | O_CREAT);
    const File second(Path(), O_RDWR);
    EXPECT_TRUE(first.TryLock(5));
    EXPECT_TRUE(first.TryLock(5)) << "it is its own";
    EXPECT_FALSE(second.TryLock(5));
    EXPECT_TRUE(second.TryLock(4));
    EXPECT_TRUE(second.TryLock(6));
    first.Unlock(5);
    EXPECT_TRUE(second.TryLock(5));
    EXPECT_FALSE(first.TryLock(4)) << "unlocking one lets go of no other";
}

// The folder.

TEST_F(FileTest, the_state_is_where_the_first_of_three_variables_says) {
    const ScopedVariable home("KESTA_SOFTKEY_HOME", "/a/home");
    const ScopedVariable data("XDG_DATA_HOME", "/the/data");
    const ScopedVariable person("HOME", "/a/person");
    EXPECT_EQ(StateHome(), "/a/home");
    for (const char* const unset : {static_cast<const char*>(nullptr), ""}) {
        const ScopedVariable noHome("KESTA_SOFTKEY_HOME", unset);
        EXPECT_EQ(StateHome(), "/the/data/kesta-softkey");
        const ScopedVariable noData("XDG_DATA_HOME", unset);
        EXPECT_EQ(StateHome(), "/a/person/.local/share/kesta-softkey");
        const ScopedVariable nobody("HOME", unset);
        EXPECT_EQ(OutcomeOf([] { StateHome(); }).first, kStateUnreachable);
    }
}

TEST_F(FileTest, a_folder_is_made_with_those_above_it) {
    for (const char* const name : {"a/b/c", "a/b/c", "d/e/", "f//g", "h"}) {
        MakeHome(Path(name));
        EXPECT_TRUE(IsUsableHome(Path(name))) << name;
        EXPECT_TRUE(IsWritable(Path(name))) << name;
    }
    for (const char* const name : {"a", "a/b", "a/b/c", "d/e", "f"}) {
        EXPECT_EQ(std::filesystem::status(Path(name)).permissions(),
                  std::filesystem::perms::owner_all);
    }
}

TEST_F(FileTest, a_folder_without_any_above_it_is_made_where_the_process_works) {
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(folder_.Path());
    EXPECT_EQ(OutcomeOf([] { MakeHome("home"); }), Outcome(kOk, ""));
    std::filesystem::current_path(before);
    EXPECT_TRUE(IsUsableHome(Path("home")));
}

TEST_F(FileTest, a_folder_that_cannot_be_made_is_named) {
    const std::string tooLong(300, 'x');
    for (const std::string& path : {tooLong, "/" + tooLong, Path(tooLong)}) {
        EXPECT_EQ(OutcomeOf([&] { MakeHome(path); }), Unreachable(path, ENAMETOOLONG));
        EXPECT_FALSE(IsWritable(path));
    }
    folder_.Write("file", "");
    EXPECT_EQ(OutcomeOf([&] { MakeHome(Path("file/below")); }),
              Unreachable(Path("file/below"), ENOTDIR));
}

TEST_F(FileTest, a_place_is_usable_missing_or_refused) {
    folder_.Write("file", "");
    std::filesystem::create_symlink("loop", Path("loop"));
    EXPECT_FALSE(IsUsableHome(Path("none")));
    EXPECT_FALSE(IsUsableHome(Path("file/below")));
    EXPECT_EQ(OutcomeOf([&] { IsUsableHome(Path("loop")); }), Unreachable(Path("loop"), ELOOP));
    EXPECT_EQ(OutcomeOf([&] { IsUsableHome(Path("file")); }),
              std::make_pair(kStateUnreachable, Path("file") + ": not a folder"));
    EXPECT_EQ(OutcomeOf([&] { MakeHome(Path("file")); }).first, kStateUnreachable);
    MakeHome(Path("home"));
    for (const auto& [mode, refused] :
         std::initializer_list<std::pair<unsigned, bool>>{{0700, false},
                                                          {0711, false},
                                                          {0500, false},
                                                          {0740, true},
                                                          {0720, true},
                                                          {0704, true},
                                                          {0702, true}}) {
        std::filesystem::permissions(Path("home"), std::filesystem::perms(mode));
        const Outcome outcome = OutcomeOf([&] { EXPECT_TRUE(IsUsableHome(Path("home"))); });
        EXPECT_EQ(outcome.first, refused ? kStateUnreachable : kOk) << std::oct << mode;
        EXPECT_EQ(outcome.second.find(Path("home") + ": others may") == 0, refused);
    }
}

}  // namespace

// The files of a state: what is one, what is damaged, and the steps in which one takes another's
// place.
#include "softkey/store/state_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "outcome.h"
#include "softkey/store/places.h"
#include "system_calls.h"
#include "temporary_folder.h"

using namespace softkey;

namespace {

using Found = StateFile::Found;

Bytes BytesOf(const std::string& text) {
    return {text.begin(), text.end()};
}

std::string TextOf(const Guard& guard) {
    const Guard::Text text = guard.Write();
    return {text.begin(), text.end()};
}

class StateFileTest : public testing::Test {
protected:
    StateFileTest() { MakeHome(); }
    ~StateFileTest() override { SystemCalls::Reset(); }

    void MakeHome() const {
        std::filesystem::create_directories(home_);
        std::filesystem::permissions(home_, std::filesystem::perms::owner_all);
    }
    void Establish(const std::string& image) {
        StateFile::Establish(home_, [&image](Found) { return BytesOf(image); });
    }
    std::string Load() {
        const Bytes image = StateFile(home_).Load();
        return {image.begin(), image.end()};
    }
    void Replace(const std::string& image) {
        StateFile file(home_);
        file.BeginChange();
        file.Load();
        file.Replace(BytesOf(image));
    }
    Outcome Look() const {
        return OutcomeOf([this] { StateFile::Look(home_); });
    }
    void Put(const std::string& name, const std::string& text) const {
        folder_.Write("home/" + name, text);
    }
    std::string Get(const std::string& name) const { return folder_.Read("home/" + name); }
    // As if it had been left alone for a while.
    static void LetTimePass() {
        struct timespec now {};
        clock_gettime(CLOCK_REALTIME, &now);
        now.tv_sec += 5;
        SystemCalls::Instance().now = now;
    }
    static SystemCalls& Calls() { return SystemCalls::Instance(); }

    const TemporaryFolder folder_;
    const std::string home_ = folder_.File("home");
};

TEST_F(StateFileTest, an_empty_folder_and_empty_files_are_no_state) {
    EXPECT_EQ(StateFile::Look(home_), Found::kNothing);
    for (const char* const name : {"softkey.db", "softkey.db-wal", "softkey.guard"}) Put(name, "");
    EXPECT_EQ(StateFile::Look(home_), Found::kNothing);
    Put("softkey.db", "x");
    EXPECT_EQ(StateFile::Look(home_), Found::kOld);
    std::filesystem::remove(home_ + "/softkey.guard");
    EXPECT_EQ(StateFile::Look(home_), Found::kOld);
    Put("softkey.db-wal", "x");
    EXPECT_EQ(StateFile::Look(home_), Found::kOld);
    for (const bool there : {true, false}) {
        Put("softkey.db", "");
        if (!there) std::filesystem::remove(home_ + "/softkey.db");
        EXPECT_EQ(Look(),
                  Outcome(kStateDamaged, home_ + "/softkey.db: missing or empty beside its log"));
    }
}

TEST_F(StateFileTest, a_file_that_cannot_be_seen_is_not_one_that_is_not_there) {
    for (const char* const name : {"softkey.db-wal", "softkey.db", "softkey.guard"}) {
        std::filesystem::create_symlink(name, home_ + "/" + name);
        EXPECT_EQ(Look(),
                  Outcome(kStateUnreachable, home_ + "/" + name + ": " + std::strerror(ELOOP)));
    }
}

TEST_F(StateFileTest, a_first_state_counts_when_it_is_finished_and_any_other_at_once) {
    Guard guard = Guard::Make();
    guard.after = {1, guard.DigestOf(BytesOf("image"))};
    Put("softkey.guard", TextOf(guard));
    EXPECT_EQ(StateFile::Look(home_), Found::kNothing);
    Put("softkey.db", "other");
    EXPECT_EQ(StateFile::Look(home_), Found::kOld) << "what the guard was to take over";
    Put("softkey.db", "image");
    EXPECT_EQ(StateFile::Look(home_), Found::kGuarded);
    Put("softkey.db", "other");
    std::string spoilt = TextOf(guard);
    spoilt.back() ^= 1;
    guard.before.number = 1;
    for (const std::string& text : {TextOf(guard), spoilt, std::string("short"), spoilt + "x"}) {
        Put("softkey.guard", text);
        EXPECT_EQ(StateFile::Look(home_), Found::kGuarded);
    }
}

TEST_F(StateFileTest, is_made_once_and_what_was_there_goes) {
    Put("softkey.db-wal", "log");
    Put("softkey.db-shm", "index");
    Put("softkey.db", "old");
    StateFile::Establish(home_, [](Found found) {
        EXPECT_EQ(found, Found::kOld);
        return BytesOf("image");
    });
    StateFile::Establish(home_, [](Found) {
        ADD_FAILURE() << "it is there";
        return BytesOf("another");
    });
    EXPECT_EQ(Load(), "image");
    EXPECT_EQ(Get("softkey.db"), "image");
    std::size_t files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(home_)) {
        EXPECT_EQ(entry.status().permissions(), std::filesystem::perms(0600));
        ++files;
    }
    EXPECT_EQ(files, 2U) << "softkey.db and softkey.guard";
}

TEST_F(StateFileTest, the_log_of_an_earlier_version_goes_after_its_index) {
    std::filesystem::create_directory(home_ + "/softkey.db-shm");
    Put("softkey.db-wal", "log");
    Put("softkey.db", "old");
    Establish("image");
    EXPECT_EQ(Get("softkey.db-wal"), "log");
    const StateFile file(home_);
    file.DropOldLog();
    EXPECT_EQ(Get("softkey.db-wal"), "log");
    std::filesystem::remove(home_ + "/softkey.db-shm");
    file.DropOldLog();
    EXPECT_FALSE(std::filesystem::exists(home_ + "/softkey.db-wal"));
    for (const char* const name : {"softkey.db-shm", "softkey.db-wal"}) Put(name, "left");
    errno = 0;
    file.DropOldLog();
    EXPECT_FALSE(std::filesystem::exists(home_ + "/softkey.db-wal"));
    Put("softkey.db-shm", "nothing's");
    file.DropOldLog();
    EXPECT_TRUE(std::filesystem::exists(home_ + "/softkey.db-shm"))
        << "without a log nothing is done";
}

TEST_F(StateFileTest, numbers_begin_with_one_and_grow_by_one) {
    Establish("first");
    StateFile file(home_);
    EXPECT_EQ(file.Number(), 0U);
    EXPECT_FALSE(file.IsCurrent());
    EXPECT_FALSE(file.IsUnchanged());
    file.Load();
    EXPECT_EQ(file.Number(), 1U);
    file.BeginChange();
    file.Replace(BytesOf("second"));
    EXPECT_EQ(file.Number(), 2U);
    file.EndChange();
    EXPECT_EQ(Load(), "second");
    Replace("third");
    EXPECT_FALSE(file.IsUnchanged());
    file.Load();
    EXPECT_EQ(file.Number(), 3U);
}

// Each of them is on the disk before the next is done.
TEST_F(StateFileTest, a_change_is_made_in_steps_that_survive_a_crash_between_any_two) {
    const std::vector<std::string> steps = {"pwrite softkey.db.new", "fdatasync softkey.db.new",
                                            "pwrite softkey.guard",  "fdatasync softkey.guard",
                                            "rename softkey.db.new", "fdatasync home",
                                            "pwrite softkey.guard"};
    Establish("first");
    EXPECT_EQ(Calls().changes, steps);
    Calls().changes.clear();
    Replace("second");
    EXPECT_EQ(Calls().changes, steps);
}

TEST_F(StateFileTest, a_change_that_fails_at_any_step_leaves_a_state_and_nothing_else) {
    const char* const steps[] = {"pwrite softkey.db.new", "fdatasync softkey.db.new",
                                 "pwrite softkey.guard",  "fdatasync softkey.guard",
                                 "rename softkey.db.new", "fdatasync home"};
    Establish("0");
    std::string present = "0";
    for (const char* const step : steps) {
        for (const char* const next : steps) {
            StateFile file(home_);
            file.Load();
            file.BeginChange();
            for (const char* const failing : {step, next}) {
                Calls().fails = failing;
                Calls().error = ENOSPC;
                // Once the file has taken its place the change is made, whatever fails behind.
                const bool took = std::string(failing) == "fdatasync home";
                EXPECT_EQ(OutcomeOf([&] { file.Replace(BytesOf(present + failing)); }).first,
                          took ? kOk : kStateFull)
                    << failing;
                EXPECT_EQ(file.Number(), 0U) << "nobody can say which it is";
                EXPECT_FALSE(file.IsCurrent());
                EXPECT_FALSE(std::filesystem::exists(home_ + "/softkey.db.new"));
                if (took) present += failing;
                const Bytes image = file.Load();
                EXPECT_EQ(std::string(image.begin(), image.end()), present) << step << ", " << next;
            }
            file.EndChange();
        }
    }
    Replace("last");
    EXPECT_EQ(Load(), "last");
}

TEST_F(StateFileTest, a_file_that_was_left_behind_is_written_over_as_a_whole) {
    Establish("first");
    Put("softkey.db.new", std::string(100, 'x'));
    Replace("second");
    EXPECT_EQ(Get("softkey.db"), "second");
}

TEST_F(StateFileTest, the_state_before_the_last_change_is_none_any_more) {
    Establish("first");
    Replace("second");
    Put("softkey.db", "first");
    EXPECT_EQ(OutcomeOf([this] { Load(); }).first, kStateDamaged);
    Put("softkey.db", "second");
    EXPECT_EQ(Load(), "second");
}

TEST_F(StateFileTest, says_what_is_damaged) {
    Establish("image");
    const std::string guard = Get("softkey.guard");
    const std::string database = home_ + "/softkey.db";
    StateFile file(home_);
    LetTimePass();
    file.Load();
    const auto damage = [&] { return OutcomeOf([&] { file.Load(); }); };
    Put("softkey.db", "spoil");
    EXPECT_EQ(damage(), Outcome(kStateDamaged,
                                database + ": not what was stored last; it was changed, cut short, "
                                           "or put back from an earlier time"));
    EXPECT_EQ(file.Number(), 0U);
    EXPECT_FALSE(file.IsUnchanged());
    EXPECT_FALSE(file.IsCurrent());
    Put("softkey.db", "");
    EXPECT_EQ(damage(), Outcome(kStateDamaged, database + ": empty"));
    std::filesystem::remove(database);
    EXPECT_EQ(damage(), Outcome(kStateDamaged, database + ": missing beside softkey.guard"));
    Put("softkey.db", "image");
    for (const std::string& spoilt : {guard + "x", guard.substr(1), std::string()}) {
        Put("softkey.guard", spoilt);
        EXPECT_EQ(damage(), Outcome(kStateDamaged, home_ + "/softkey.guard: damaged"));
    }
    Put("softkey.guard", guard);
    EXPECT_EQ(damage(), Outcome(kOk, ""));
}

TEST_F(StateFileTest, is_current_until_either_file_changes) {
    Establish("image");
    LetTimePass();
    StateFile file(home_);
    file.Load();
    EXPECT_TRUE(file.IsCurrent());
    EXPECT_TRUE(file.IsUnchanged());
    for (const char* const name : {"softkey.db", "softkey.guard"}) {
        std::filesystem::last_write_time(home_ + "/" + name,
                                         std::filesystem::file_time_type::clock::now());
        EXPECT_FALSE(file.IsCurrent()) << name;
        EXPECT_TRUE(file.IsUnchanged()) << "it is the same text";
        LetTimePass();
        file.Load();
        EXPECT_TRUE(file.IsCurrent()) << name;
    }
    file.BeginChange();
    file.Replace(BytesOf("of its own"));
    EXPECT_TRUE(file.IsCurrent());
    EXPECT_TRUE(file.IsUnchanged());
    file.EndChange();
    Replace("of another");
    EXPECT_FALSE(file.IsCurrent());
    EXPECT_FALSE(file.IsUnchanged());
}

TEST_F(StateFileTest, the_time_of_a_change_stands_at_both_files) {
    Establish("first");
    Calls().now = {1234567890, 123456789};
    Replace("second");
    for (const char* const name : {"/softkey.db", "/softkey.guard"}) {
        struct stat status {};
        ASSERT_EQ(stat((home_ + name).c_str(), &status), 0);
        EXPECT_EQ(status.st_mtim.tv_sec, 1234567890) << name;
        EXPECT_EQ(status.st_mtim.tv_nsec, 123456789) << name;
    }
}

TEST_F(StateFileTest, a_folder_is_unchanged_until_a_file_comes_or_goes) {
    Establish("image");
    LetTimePass();
    StateFile file(home_);
    EXPECT_FALSE(file.IsFolderUnchanged()) << "it was never asked";
    EXPECT_TRUE(file.IsFolderUnchanged());
    Put("another", "");
    EXPECT_FALSE(file.IsFolderUnchanged());
    EXPECT_TRUE(file.IsFolderUnchanged());
}

TEST_F(StateFileTest, a_change_that_comes_between_guard_and_database_is_followed) {
    Establish("first");
    StateFile file(home_);
    Calls().afterRead = [this] { Replace("second"); };
    const Bytes image = file.Load();
    EXPECT_EQ(std::string(image.begin(), image.end()), "second");
    EXPECT_EQ(file.Number(), 2U);
}

TEST_F(StateFileTest, another_in_its_place_is_told) {
    Establish("image");
    StateFile file(home_);
    EXPECT_FALSE(file.StillThere()) << "it was not seen yet";
    file.Load();
    EXPECT_TRUE(file.StillThere());
    std::filesystem::rename(home_ + "/softkey.guard", home_ + "/aside");
    EXPECT_FALSE(file.StillThere());
    std::filesystem::copy_file(home_ + "/aside", home_ + "/softkey.guard");
    EXPECT_FALSE(file.StillThere());
    std::filesystem::rename(home_ + "/aside", home_ + "/softkey.guard");
    EXPECT_TRUE(file.StillThere());
}

TEST_F(StateFileTest, a_child_changes_by_an_opening_of_its_own) {
    Establish("image");
    StateFile file(home_);
    const auto guard = file.GuardFile();
    EXPECT_EQ(file.GuardFile(), guard);
    ASSERT_TRUE(guard->TryLock(Lock::kWriting));
    const pid_t child = fork();
    if (child == 0) {
        const auto own = file.GuardFile();
        _exit(own == file.GuardFile() && !own->TryLock(Lock::kWriting) ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(file.GuardFile(), guard);
}

TEST_F(StateFileTest, what_is_no_state_or_no_folder_is_not_opened) {
    EXPECT_EQ(OutcomeOf([this] { StateFile file(home_); }),
              Outcome(kStateUnreachable, home_ + "/softkey.guard: " + std::strerror(ENOENT)));
    EXPECT_EQ(OutcomeOf([this] { StateFile file(home_ + "/none"); }),
              Outcome(kStateUnreachable, home_ + "/none: " + std::strerror(ENOENT)));
}

TEST_F(StateFileTest, holds_at_most_what_can_be_read_again) {
    Establish("image");
    StateFile file(home_);
    file.Load();
    file.BeginChange();
    EXPECT_EQ(OutcomeOf([&] { file.Replace(Bytes((64 << 20) + 1)); }),
              Outcome(kStateFull, home_ + "/softkey.db: larger than it can be"));
    EXPECT_EQ(Load(), "image");
    EXPECT_EQ(OutcomeOf([&] {
                  file.Load();
                  file.Replace(Bytes(64 << 20));
              }).first,
              kOk);
    EXPECT_EQ(file.Load().size(), std::size_t{64} << 20U);
}

}  // namespace

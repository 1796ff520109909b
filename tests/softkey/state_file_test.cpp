// What makes a change of the state whole: the guard, the stamps, the lock, and the order of steps.
#include "softkey/store/state_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "outcome.h"
#include "softkey/store/database.h"
#include "softkey/store/keys.h"
#include "softkey/store/places.h"
#include "softkey/store/schema.h"
#include "softkey/store/store.h"
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

Guard::Text GuardText(const std::string& text) {
    Guard::Text bytes{};
    std::copy_n(text.begin(), bytes.size(), bytes.begin());
    return bytes;
}

// With the digest that the key within makes of it.
std::string Signed(std::string text) {
    HMAC(EVP_sha256(), text.data() + 8, 32, reinterpret_cast<const unsigned char*>(text.data()),
         120, reinterpret_cast<unsigned char*>(text.data() + 120), nullptr);
    return text;
}

TEST(GuardTest, is_written_as_it_is_described) {
    Guard guard = Guard::Make();
    guard.before = {0x0102030405060708, {'b'}};
    guard.after = {9, {'a'}};
    const std::string text = TextOf(guard);
    ASSERT_EQ(text.size(), 152U);
    EXPECT_EQ(text.substr(0, 8), "SKGUARD2");
    EXPECT_NE(text.substr(8, 32), TextOf(Guard::Make()).substr(8, 32)) << "a key of its own";
    std::uint64_t number = 0;
    std::memcpy(&number, text.data() + 40, 8);
    EXPECT_EQ(number, 0x0102030405060708U);
    EXPECT_EQ(text.substr(48, 32), "b" + std::string(31, '\0'));
    std::memcpy(&number, text.data() + 80, 8);
    EXPECT_EQ(number, 9U);
    EXPECT_EQ(text.substr(88, 32), "a" + std::string(31, '\0'));
    EXPECT_EQ(text, Signed(text));
}

TEST(GuardTest, is_read_as_it_was_written_and_no_byte_of_it_may_differ) {
    Guard guard = Guard::Make();
    guard.before = {3, {'b'}};
    guard.after = {4, {'a'}};
    const std::string text = TextOf(guard);
    const auto read = Guard::Read(GuardText(text));
    ASSERT_TRUE(read);
    EXPECT_EQ(TextOf(*read), text);
    for (std::size_t at = 0; at < text.size(); ++at) {
        std::string other = text;
        other[at] ^= 1;
        EXPECT_FALSE(Guard::Read(GuardText(other))) << at;
    }
    for (std::size_t at = 0; at < 8; ++at) {
        std::string other = text;
        other[at] ^= 1;
        EXPECT_FALSE(Guard::Read(GuardText(Signed(other)))) << "another kind of file";
    }
}

TEST(GuardTest, knows_two_states_and_the_later_one_first) {
    Guard guard = Guard::Make();
    EXPECT_EQ(guard.Find(BytesOf("x")), nullptr);
    guard.before = {1, guard.DigestOf(BytesOf("one"))};
    guard.after = {2, guard.DigestOf(BytesOf("two"))};
    ASSERT_NE(guard.Find(BytesOf("one")), nullptr);
    EXPECT_EQ(guard.Find(BytesOf("one"))->number, 1U);
    EXPECT_EQ(guard.Find(BytesOf("two"))->number, 2U);
    EXPECT_EQ(guard.Find(BytesOf("three")), nullptr);
    EXPECT_EQ(guard.Find({}), nullptr);
    guard.before = {1, guard.after.digest};
    EXPECT_EQ(guard.Find(BytesOf("two"))->number, 2U);
}

// Stamps.

class StampTest : public testing::Test {
protected:
    ~StampTest() override { SystemCalls::Reset(); }

    static struct stat Status() {
        struct stat status {};
        status.st_size = 7;
        status.st_dev = 8;
        status.st_ino = 9;
        status.st_mtim = {100, 200};
        status.st_ctim = {1000, 500000000};
        return status;
    }
    static void SetNow(time_t seconds, long nanoseconds) {
        SystemCalls::Instance().now = {seconds, nanoseconds};
    }
};

TEST_F(StampTest, of_a_file_that_was_changed_within_a_step_of_the_clock_never_holds) {
    struct Case {
        time_t seconds;
        long nanoseconds;
        bool holds;
    };
    for (const Case& now :
         {Case{1000, 500000000, false}, Case{1000, 510999999, false}, Case{1000, 511000000, true},
          Case{1001, 0, true}, Case{1000, 0, false}, Case{1001, 400000000, true},
          Case{999, 900000000, false}, Case{1002, 0, true}}) {
        SetNow(now.seconds, now.nanoseconds);
        Stamp stamp;
        EXPECT_FALSE(stamp.Holds(Status())) << "before anything was taken";
        stamp.Take(Status());
        EXPECT_EQ(stamp.Holds(Status()), now.holds) << now.seconds << " " << now.nanoseconds;
    }
}

TEST_F(StampTest, holds_until_anything_differs) {
    SetNow(2000, 0);
    Stamp stamp;
    stamp.Take(Status());
    const std::function<void(struct stat&)> differences[] = {[](struct stat& now) { ++now.st_size; },
                                                             [](struct stat& now) { ++now.st_dev; },
                                                             [](struct stat& now) { ++now.st_ino; },
                                                             [](struct stat& now) { ++now.st_mtim.tv_sec; },
                                                             [](struct stat& now) { ++now.st_mtim.tv_nsec; },
                                                             [](struct stat& now) { ++now.st_ctim.tv_sec; },
                                                             [](struct stat& now) { ++now.st_ctim.tv_nsec; }};
    for (const auto& differ : differences) {
        struct stat now = Status();
        differ(now);
        EXPECT_FALSE(stamp.Holds(now));
        EXPECT_TRUE(stamp.Holds(Status()));
    }
}

TEST_F(StampTest, of_a_file_that_was_just_written_is_completed_by_the_first_look) {
    SetNow(1000, 500000000);
    Stamp stamp;
    stamp.Expect(7, {100, 200});
    struct stat another = Status();
    ++another.st_mtim.tv_nsec;
    EXPECT_FALSE(stamp.Holds(another));
    EXPECT_TRUE(stamp.Holds(Status()));
    another = Status();
    ++another.st_ino;
    EXPECT_FALSE(stamp.Holds(another)) << "the file was seen before";
    EXPECT_TRUE(stamp.Holds(Status()));
}

TEST_F(StampTest, is_looked_at_by_name_too) {
    const TemporaryFolder folder;
    folder.Write("file", "text");
    struct stat status {};
    ASSERT_EQ(stat(folder.File("file").c_str(), &status), 0);
    SetNow(status.st_ctim.tv_sec + 9, 0);
    Stamp stamp;
    stamp.Take(status);
    EXPECT_TRUE(stamp.Holds(AT_FDCWD, folder.File("file").c_str()));
    const int opened = open(folder.Path().c_str(), O_RDONLY);
    EXPECT_TRUE(stamp.Holds(opened, "file"));
    EXPECT_FALSE(stamp.Holds(opened, "none"));
    close(opened);
}

TEST(LockTest, who_waits_longer_asks_more_often) {
    const std::pair<int, int> pauses[] = {{0, 8000},   {249, 8000}, {250, 4000}, {500, 2000},
                                          {1499, 250}, {1500, 125}, {60000, 125}};
    for (const auto& [waited, pause] : pauses) {
        EXPECT_EQ(Lock::Pause(std::chrono::milliseconds(waited)).count(), pause) << waited;
    }
}

class WaitTest : public testing::Test {
protected:
    WaitTest() {
        holder_.WriteAt(0, std::string(600, 'x').data(), 600);
        holder_.TryLock(Lock::kWriting);
        SystemCalls::Instance().now = {1000, 0};
        SystemCalls::Instance().tick = 1;
    }
    ~WaitTest() override { SystemCalls::Reset(); }

    // How often it asked before it gave up, once a second.
    int Asks() {
        EXPECT_EQ(OutcomeOf([this] { const Lock lock(folder_.Path(), Lock::kWriting); }),
                  Outcome(kStateBusy, folder_.Path() + ": another process holds the state"));
        const SystemCalls& calls = SystemCalls::Instance();
        EXPECT_EQ(calls.rests.size(), static_cast<std::size_t>(calls.reads - 1))
            << "it never rests";
        return calls.reads;
    }

    const TemporaryFolder folder_;
    const File holder_{folder_.File("softkey.guard"), O_RDWR | O_CREAT};
};

TEST_F(WaitTest, for_one_who_does_nothing_ends_after_five_seconds) {
    EXPECT_EQ(Asks(), 7);
}

TEST_F(WaitTest, in_a_queue_that_moves_ends_after_a_minute) {
    std::function<void()> move = [&] {
        const auto read = static_cast<char>(SystemCalls::Instance().reads);
        holder_.WriteAt(0, &read, 1);
        SystemCalls::Instance().afterRead = move;
    };
    SystemCalls::Instance().afterRead = move;
    EXPECT_EQ(Asks(), 61);
}

TEST_F(WaitTest, ends_when_the_lock_is_let_go) {
    SystemCalls::Instance().afterRead = [&] { holder_.Unlock(Lock::kWriting); };
    const Lock lock(folder_.Path(), Lock::kWriting);
    EXPECT_EQ(SystemCalls::Instance().reads, 1);
    EXPECT_FALSE(holder_.TryLock(Lock::kWriting));
    EXPECT_TRUE(holder_.TryLock(Lock::OfPin(0))) << "each key has its own";
    EXPECT_EQ(Lock::OfPin(7), Lock::OfPin(0) + 7);
    EXPECT_GT(Lock::OfPin(0), File::kLargest) << "behind whatever is in the file";
}

TEST_F(WaitTest, needs_a_file_and_makes_it_for_the_first_state_alone) {
    const TemporaryFolder empty;
    EXPECT_EQ(OutcomeOf([&] { const Lock lock(empty.Path(), Lock::kWriting); }).first,
              kStateUnreachable);
    {
        const Lock lock(empty.Path(), Lock::kWriting, GuardFile::kMadeWhenMissing);
        lock.file().WriteAt(0, "x", 1);
    }
    EXPECT_EQ(empty.Read("softkey.guard"), "x");
    EXPECT_TRUE(File(empty.File("softkey.guard"), O_RDWR).TryLock(Lock::kWriting));
}

// The files of a state.

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
                EXPECT_EQ(OutcomeOf([&] { file.Replace(BytesOf(present + failing)); }).first,
                          kStateFull)
                    << failing;
                EXPECT_EQ(file.Number(), 0U) << "nobody can say which it is";
                EXPECT_FALSE(file.IsCurrent());
                EXPECT_FALSE(std::filesystem::exists(home_ + "/softkey.db.new"));
                const bool took = std::string(failing) == "fdatasync home";
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

// The store above it.

TEST_F(StateFileTest, a_state_of_a_version_that_is_not_known_is_damaged) {
    for (const std::int64_t version : {std::int64_t{1}, kSchemaVersion + 1}) {
        std::filesystem::remove_all(home_);
        MakeHome();
        StateFile::Establish(home_, [version](Found) {
            Database db(FreshImage());
            db.Execute(("PRAGMA user_version = " + std::to_string(version)).c_str());
            return db.Image();
        });
        EXPECT_EQ(OutcomeOf([this] { Store::Open(home_); }),
                  Outcome(kStateDamaged, home_ + "/softkey.db: schema version " +
                                             std::to_string(version) + " is not known"));
    }
}

}  // namespace

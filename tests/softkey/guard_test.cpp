// What makes a change of the state whole: the guard, the stamps and the lock.
#include "softkey/store/guard.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/provider.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "outcome.h"
#include "softkey/store/lock.h"
#include "softkey/store/stamp.h"
#include "system_calls.h"
#include "temporary_folder.h"

using namespace softkey;

namespace {

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

// As where OpenSSL is set up to have no digests.
TEST(GuardTest, tells_when_there_is_no_digest_of_the_state) {
    const Guard guard = Guard::Make();
    OSSL_LIB_CTX* const none = OSSL_LIB_CTX_new();
    OSSL_PROVIDER* const nothing = OSSL_PROVIDER_load(none, "null");
    OSSL_LIB_CTX* const before = OSSL_LIB_CTX_set0_default(none);
    EXPECT_EQ(OutcomeOf([&] { guard.DigestOf({1}); }),
              Outcome(kCryptoFailed, "the digest of the state"));
    OSSL_LIB_CTX_set0_default(before);
    OSSL_PROVIDER_unload(nothing);
    OSSL_LIB_CTX_free(none);
}

// A thread may still sign when the process ends: OpenSSL stays as it is, whatever began with it.
TEST(GuardTest, leaves_OpenSSL_in_use_to_the_end_of_the_process) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";  // in a process that begins with it
    const auto end = [] {
        OPENSSL_atexit([] { _exit(1); });
        std::exit(0);
    };
    EXPECT_EXIT((Guard::Make(), end()), testing::ExitedWithCode(0), "");
    EXPECT_EXIT((Guard().DigestOf({1}), end()), testing::ExitedWithCode(0), "");
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
    EXPECT_EQ(
        OutcomeOf([&] { const Lock lock(empty.Path(), Lock::kWriting); }),
        Outcome(kStateUnreachable, empty.File("softkey.guard") + ": " + std::strerror(ENOENT)));
    {
        const Lock lock(empty.Path(), Lock::kWriting, GuardFile::kMadeWhenMissing);
        lock.file().WriteAt(0, "x", 1);
    }
    EXPECT_EQ(empty.Read("softkey.guard"), "x");
    EXPECT_TRUE(File(empty.File("softkey.guard"), O_RDWR).TryLock(Lock::kWriting));
}

}  // namespace

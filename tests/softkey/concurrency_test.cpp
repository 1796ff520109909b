// Several threads and several processes at once.
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <thread>

#include "softkey/store/damage.h"
#include "softkey/store/keys.h"
#include "softkey/store/lock.h"
#include "softkey/store/objects.h"
#include "softkey/store/pins.h"
#include "token_fixture.h"

using namespace softkey;

namespace {

class ConcurrencyTest : public TokenTest {
protected:
    ConcurrencyTest() { CreateKey(); }
};

TEST_F(ConcurrencyTest, threads_sign_write_and_ask_side_by_side) {
    ASSERT_EQ(Request(1, 2, 3).code, kOk);
    constexpr int kRounds = 30;
    std::atomic<int> failures{0};
    const auto repeat = [&failures](auto act) {
        return std::thread([&failures, act] {
            for (int i = 0; i < kRounds; ++i) failures += act() ? 0 : 1;
        });
    };
    std::vector<std::thread> threads;
    const std::string hash(64, 'a');
    threads.push_back(repeat([&] { return SignHash(hash).code == kOk; }));
    threads.push_back(repeat([&] { return SignHash(hash).code == kOk; }));
    threads.push_back(repeat([&] { return CriticalSign("text").code == kOk; }));
    threads.push_back(repeat([&] { return token.SetData("0123456789", 0, "v") == kOk; }));
    threads.push_back(repeat([&] {
        char label[512];
        std::string serial = kSerial;
        return token.GetLabel(serial.data(), label) == kOk;
    }));
    threads.push_back(repeat([&] {
        token.UOS_SetLanguage("", "en");
        return token.X_ErrorConvert_UOS(kPinWrong) != nullptr;
    }));
    threads.push_back(repeat([&] { return token.VerifyPIN(kSerial) == kOk; }));
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(failures, 0);
    token.UOS_SetLanguage("", "zh_CN");
}

TEST_F(ConcurrencyTest, a_key_that_comes_and_goes_ends_signatures_cleanly) {
    ASSERT_EQ(Request(1, 2, 3).code, kOk);
    std::atomic<bool> stop{false};
    std::atomic<int> well{0};
    std::atomic<int> refused{0};
    // Pulls the key out as soon as it has signed, and puts it back as soon as that was noticed.
    std::thread mover([&] {
        auto store = OpenStore();
        const auto await = [&stop](const std::atomic<int>& count, int more) {
            while (!stop && count < more) std::this_thread::sleep_for(std::chrono::milliseconds(1));
        };
        while (!stop) {
            await(well, well + 1);
            const int seen = refused;
            KeyTable(*store).SetInserted(kSerial, false);
            await(refused, seen + 1);
            KeyTable(*store).SetInserted(kSerial, true);
        }
    });
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while ((well < 20 || refused < 10) && std::chrono::steady_clock::now() < deadline) {
        const int code = SignHash(std::string(64, 'a')).code;
        EXPECT_TRUE(code == kOk || code == kKeyAbsent || code == kKeyRemoved) << code;
        ++(code == kOk ? well : refused);
    }
    stop = true;
    mover.join();
    EXPECT_GE(well, 20);
    EXPECT_GE(refused, 10);
    EXPECT_EQ(KeyTable(*OpenStore()).Find(kSerial)->insertions % 2, 1);
}

// Runs the work in so many processes at once; how many of them it went well in.
int WentWell(int processes, const std::function<bool(int)>& work) {
    int start[2];
    if (pipe(start) != 0) return -1;
    std::vector<pid_t> children;
    for (int i = 0; i < processes; ++i) {
        const pid_t child = fork();
        if (child == 0) {
            char byte = 0;
            close(start[1]);
            static_cast<void>(!read(start[0], &byte, 1));  // its end says that all are there
            _exit(work(i) ? 0 : 1);
        }
        children.push_back(child);
    }
    close(start[0]);
    close(start[1]);
    int well = 0;
    for (const pid_t child : children) {
        int status = -1;
        waitpid(child, &status, 0);
        well += status == 0 ? 1 : 0;
    }
    return well;
}

TEST_F(ConcurrencyTest, of_fifty_processes_that_write_at_once_none_is_told_that_the_key_is_busy) {
    EXPECT_EQ(WentWell(50,
                       [&](int i) {
                           const auto number = static_cast<std::uint32_t>(i);
                           return token.SetData("0123456789", number, "v") == kOk;
                       }),
              50);
    EXPECT_EQ(ObjectTable(*OpenStore()).Of(kSerial).size(), 50U);
}

// More than there are tries: a try that is under way takes none from the right PIN.
TEST_F(ConcurrencyTest, processes_that_verify_the_right_pin_at_once_are_all_right) {
    EXPECT_EQ(WentWell(8, [&](int) { return token.VerifyPIN(kSerial) == kOk; }), 8);
    EXPECT_EQ(TriesLeft(), kMaxTries);
}

// Two clients and the command at once: nothing is lost, nothing deadlocks.
TEST_F(ConcurrencyTest, processes_work_side_by_side) {
    constexpr int kRounds = 20;
    std::vector<pid_t> children;
    for (std::uint32_t client = 1; client <= 2; ++client) {
        const pid_t child = fork();
        if (child == 0) {
            int failures = 0;
            for (int i = 0; i < kRounds; ++i) {
                failures += token.SetData("0123456789", client, std::to_string(i).c_str()) != kOk;
                failures += Request(1, 2, 3).code != kOk;
                failures += SignHash(std::string(64, 'a')).code != kOk;
            }
            _exit(failures);
        }
        children.push_back(child);
    }
    auto store = OpenStore();
    for (int i = 0; i < kRounds; ++i) {
        const std::string serial = "KS-" + std::to_string(i);
        NewKey key;  // never inserted: the clients name no key
        key.serial = serial;
        key.inserted = false;
        softkey::CreateKey(*store, key, kPin);
        KeyTable(*store).Delete(serial);
        KeyTable(*store).SetLabel(kSerial, serial);
    }
    for (const pid_t child : children) {
        int status = 0;
        waitpid(child, &status, 0);
        EXPECT_EQ(status, 0);
    }
    EXPECT_EQ(ObjectTable(*store).Get(kSerial, "0123456789", 1), std::to_string(kRounds - 1));
    EXPECT_EQ(ObjectTable(*store).Get(kSerial, "0123456789", 2), std::to_string(kRounds - 1));
    EXPECT_EQ(KeyTable(*store).All().size(), 1U);
    EXPECT_EQ(FindDamage(Home()), std::vector<std::string>());
}

// The other key is asked often, so that the first thread waits by then.
TEST_F(ConcurrencyTest, a_pin_that_waits_its_turn_holds_up_no_other_key) {
    CreateKey("KS2", "MEDIA2");
    const auto slot = KeyTable(*OpenStore()).Find(kSerial)->slot;
    const File other(Home() + "/softkey.guard", O_RDWR);
    ASSERT_TRUE(other.TryLock(Lock::OfPin(slot)));
    std::atomic<int> code{-1};
    std::thread first([&] { code = token.VerifyPIN(kSerial); });
    for (int i = 0; i < 20; ++i) EXPECT_EQ(token.VerifyPIN("KS2"), kOk);
    EXPECT_EQ(code, -1) << "it still waits";
    other.Unlock(Lock::OfPin(slot));
    first.join();
    EXPECT_EQ(code, kOk);
}

// The try is counted before the look and the change is made during it, unless that was too quick.
TEST_F(ConcurrencyTest, a_pin_that_is_changed_while_it_is_looked_at_unlocks_nothing) {
    const std::string serial = "KS0000000002";
    const auto store = OpenStore();
    NewKey slow;
    slow.serial = serial;
    slow.pinCost = {32768, 8, 1};
    softkey::CreateKey(*store, slow, kPin);
    int code = kOk;
    for (int i = 0; i < 50 && code == kOk; ++i) {
        std::atomic<bool> ended{false};
        std::thread client([&] {
            code = token.VerifyPIN(serial.c_str());
            ended = true;
        });
        while (!ended && TriesLeft(serial) == kMaxTries) std::this_thread::yield();
        PinTable(*store).EndVerifications(serial);
        client.join();
    }
    EXPECT_EQ(code, kPinRequired);
}

}  // namespace

// The PIN's life: tries, lock, change, cache, initialisation.
#include <openssl/err.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <filesystem>

#include "softkey/store/keys.h"
#include "softkey/store/objects.h"
#include "softkey/store/pairs.h"
#include "softkey/store/pins.h"
#include "temporary_folder.h"
#include "token_fixture.h"

using namespace softkey;

namespace {

class PinTest : public TokenTest {
protected:
    PinTest() { CreateKey(); }

    std::array<std::uint8_t, 8> Info() {
        std::array<std::uint8_t, 8> info{};
        std::uint32_t length = 8;
        EXPECT_EQ(token.GetPinInfo(kSerial, info.data(), &length), kOk);
        EXPECT_EQ(length, 8U);
        return info;
    }
    bool Unlocked() { return Info()[3] == 1; }
    void Lock() {
        SetPin("000000");
        for (int i = 0; i < kMaxTries; ++i) token.VerifyPIN(kSerial);
    }
};

TEST_F(PinTest, the_right_pin_unlocks_the_key) {
    EXPECT_FALSE(Unlocked());
    EXPECT_EQ(token.VerifyPIN(kSerial), kOk);
    EXPECT_TRUE(Unlocked());
}

TEST_F(PinTest, an_empty_serial_number_means_the_one_key) {
    EXPECT_EQ(token.VerifyPIN(""), kOk);
    EXPECT_EQ(token.VerifyPIN(nullptr), kOk);
}

TEST_F(PinTest, each_wrong_pin_costs_a_try_and_the_right_one_gives_them_back) {
    SetPin("000000");
    EXPECT_EQ(token.VerifyPIN(kSerial), kPinWrong);
    EXPECT_EQ(token.VerifyPIN(kSerial), kPinWrong);
    EXPECT_EQ(TriesLeft(), kMaxTries - 2);
    SetPin(kPin);
    EXPECT_EQ(token.VerifyPIN(kSerial), kOk);
    EXPECT_EQ(TriesLeft(), kMaxTries);
}

TEST_F(PinTest, the_sixth_wrong_pin_locks_the_key) {
    SetPin("000000");
    for (int i = 0; i < kMaxTries - 1; ++i) ASSERT_EQ(token.VerifyPIN(kSerial), kPinWrong);
    EXPECT_EQ(token.VerifyPIN(kSerial), kPinLocked);
    SetPin(kPin);
    EXPECT_EQ(token.VerifyPIN(kSerial), kPinLocked);
    EXPECT_EQ(Info()[2], 1);
}

TEST_F(PinTest, the_last_try_may_still_be_right) {
    SetPin("000000");
    for (int i = 0; i < kMaxTries - 1; ++i) ASSERT_EQ(token.VerifyPIN(kSerial), kPinWrong);
    SetPin(kPin);
    EXPECT_EQ(token.VerifyPIN(kSerial), kOk);
    EXPECT_EQ(TriesLeft(), kMaxTries);
}

TEST_F(PinTest, the_desk_lifts_the_lock_and_the_pin_stays) {
    Lock();
    UnlockKey(*OpenStore(), kSerial);
    SetPin(kPin);
    EXPECT_EQ(token.VerifyPIN(kSerial), kOk);
}

TEST_F(PinTest, a_pin_of_impossible_length_costs_no_try) {
    SetPin("12345");
    EXPECT_EQ(token.VerifyPIN(kSerial), kPinLength);
    SetPin("12345678901234567");
    EXPECT_EQ(token.VerifyPIN(kSerial), kPinLength);
    EXPECT_EQ(TriesLeft(), kMaxTries);
}

TEST_F(PinTest, without_a_pin_the_entry_is_cancelled_and_costs_no_try) {
    SetPin(nullptr);
    EXPECT_EQ(token.VerifyPIN(kSerial), kPinCancelled);
    EXPECT_EQ(TriesLeft(), kMaxTries);
}

TEST_F(PinTest, a_verified_pin_does_not_count_in_another_process) {
    ASSERT_EQ(token.VerifyPIN(kSerial), kOk);
    const pid_t child = fork();
    if (child == 0) {
        std::array<std::uint8_t, 8> info{};
        std::uint32_t length = 8;
        const bool told = token.GetPinInfo(kSerial, info.data(), &length) == kOk;
        _exit(told && info[3] == 0 ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(Unlocked());
}

TEST_F(PinTest, pulling_the_key_out_locks_it) {
    ASSERT_EQ(token.VerifyPIN(kSerial), kOk);
    KeyTable(*OpenStore()).SetInserted(kSerial, false);
    KeyTable(*OpenStore()).SetInserted(kSerial, true);
    EXPECT_FALSE(Unlocked());
}

TEST_F(PinTest, removing_the_pin_locks_the_key) {
    ASSERT_EQ(token.VerifyPIN(kSerial), kOk);
    EXPECT_EQ(token.GM_RemoveUserPin(), kOk);
    EXPECT_FALSE(Unlocked());
    EXPECT_EQ(token.GM_RemoveUserPin(), kOk);
}

TEST_F(PinTest, verification_asks_each_time_unless_caching_is_on) {
    ASSERT_EQ(token.VerifyPIN(kSerial), kOk);
    SetPin("000000");
    EXPECT_EQ(token.VerifyPIN(kSerial), kPinWrong);
    SetPin(kPin);
    ASSERT_EQ(token.SetCachePinFlag(kSerial, 1), kOk);
    ASSERT_EQ(token.VerifyPIN(kSerial), kOk);
    SetPin("000000");
    EXPECT_EQ(token.VerifyPIN(kSerial), kOk);
    EXPECT_EQ(TriesLeft(), kMaxTries);
    EXPECT_EQ(Info()[4], 1);
}

TEST_F(PinTest, switching_caching_off_forgets_the_pin) {
    ASSERT_EQ(token.SetCachePinFlag(kSerial, 1), kOk);
    ASSERT_EQ(token.VerifyPIN(kSerial), kOk);
    EXPECT_EQ(token.SetCachePinFlag(kSerial, 0), kOk);
    EXPECT_FALSE(Unlocked());
    EXPECT_EQ(token.SetCachePinFlag(kSerial, 2), kBadArgument);
    EXPECT_EQ(token.SetCachePinFlag("KS-UNKNOWN", 1), kKeyAbsent);
}

TEST_F(PinTest, a_pin_given_as_text_is_verified_and_cached) {
    SetPin(nullptr);
    char pin[] = "123456";
    char wrong[] = "654321";
    EXPECT_EQ(token.VerifyAndCachePin(kSerial, wrong), kPinWrong);
    EXPECT_EQ(token.VerifyAndCachePin(kSerial, pin), kOk);
    EXPECT_EQ(token.VerifyPIN(kSerial), kOk);
    EXPECT_EQ(token.VerifyAndCachePin(kSerial, nullptr), kPinCancelled);
}

TEST_F(PinTest, the_information_is_eight_bytes) {
    const std::array<std::uint8_t, 8> expected{6, 6, 0, 0, 0, 6, 16, 0};
    EXPECT_EQ(Info(), expected);
    SetPin("000000");
    token.VerifyPIN(kSerial);
    EXPECT_EQ(Info()[0], 5);
}

TEST_F(PinTest, the_information_needs_eight_bytes_of_room) {
    std::array<std::uint8_t, 8> info{};
    std::uint32_t length = 7;
    EXPECT_EQ(token.GetPinInfo(kSerial, info.data(), &length), kBufferTooSmall);
    EXPECT_EQ(length, 8U);
    EXPECT_EQ(token.GetPinInfo(kSerial, info.data(), nullptr), kBadArgument);
    EXPECT_EQ(token.GetPinInfo("KS-UNKNOWN", info.data(), &length), kKeyAbsent);
}

TEST_F(PinTest, a_changed_pin_counts_and_the_old_one_does_not) {
    SetNewPin("abcdef");
    ASSERT_EQ(token.ChangePin(kSerial), kOk);
    EXPECT_TRUE(Unlocked());
    EXPECT_EQ(token.VerifyPIN(kSerial), kPinWrong);
    SetPin("abcdef");
    EXPECT_EQ(token.VerifyPIN(kSerial), kOk);
}

TEST_F(PinTest, a_change_keeps_the_private_keys) {
    ASSERT_EQ(Request(1, 2, 3).code, kOk);
    const std::string hash(64, 'a');
    SetNewPin("abcdef");
    ASSERT_EQ(token.ChangePin(kSerial), kOk);
    EXPECT_EQ(SignHash(hash).code, kOk);
    token.GM_RemoveUserPin();
    SetPin("abcdef");
    EXPECT_EQ(SignHash(hash).code, kOk);
}

TEST_F(PinTest, a_change_asks_for_the_old_pin_even_of_an_unlocked_key) {
    ASSERT_EQ(token.VerifyPIN(kSerial), kOk);
    SetPin("000000");
    SetNewPin("abcdef");
    EXPECT_EQ(token.ChangePin(kSerial), kPinWrong);
    SetPin(kPin);
    EXPECT_EQ(token.VerifyPIN(kSerial), kOk);
}

TEST_F(PinTest, a_new_pin_of_impossible_length_changes_nothing) {
    SetNewPin("12345");
    EXPECT_EQ(token.ChangePin(kSerial), kPinLength);
    SetNewPin("12345678901234567");
    EXPECT_EQ(token.ChangePin(kSerial), kPinLength);
    EXPECT_EQ(token.VerifyPIN(kSerial), kOk);
}

TEST_F(PinTest, a_change_by_another_process_locks_the_key_here) {
    ASSERT_EQ(token.VerifyPIN(kSerial), kOk);
    const pid_t child = fork();
    if (child == 0) {
        SetNewPin("abcdef");
        _exit(token.ChangePin(kSerial) == kOk ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    ASSERT_EQ(status, 0);
    EXPECT_FALSE(Unlocked());
}

TEST_F(PinTest, initialisation_erases_the_key_gives_it_a_new_pin_and_lifts_the_lock) {
    Enrol(1, 2, 3);
    ASSERT_EQ(token.SetData("data-object", 0, "value"), kOk);
    Lock();
    SetNewPin("abcdef");
    ASSERT_EQ(token.CustInitCard(kSerial, 0, nullptr, 0), kOk);
    EXPECT_TRUE(PairTable(*OpenStore()).Of(kSerial).empty());
    EXPECT_TRUE(ObjectTable(*OpenStore()).Of(kSerial).empty());
    EXPECT_EQ(TriesLeft(), kMaxTries);
    EXPECT_TRUE(Unlocked());
    token.GM_RemoveUserPin();
    SetPin("abcdef");
    EXPECT_EQ(Request(1, 2, 3).code, kOk);
}

TEST_F(PinTest, initialisation_takes_the_new_pin_as_text) {
    char pin[] = "abcdef";
    char tooShort[] = "abc";
    EXPECT_EQ(token.CustInitCard(kSerial, 0, tooShort, 0), kPinLength);
    ASSERT_EQ(token.CustInitCard(kSerial, 0, pin, 0), kOk);
    SetPin("abcdef");
    EXPECT_EQ(token.VerifyPIN(kSerial), kOk);
}

TEST_F(PinTest, an_initialisation_without_a_new_pin_changes_nothing) {
    Enrol(1, 2, 3);
    EXPECT_EQ(token.CustInitCard(kSerial, 0, nullptr, 0), kPinCancelled);
    EXPECT_EQ(Certificate(1).code, kOk);
}

TEST_F(PinTest, initialisation_with_1_keeps_the_pin_and_leaves_the_key_unlocked) {
    Enrol(1, 2, 3);
    token.GM_RemoveUserPin();
    ASSERT_EQ(token.CustInitCard(kSerial, 1, nullptr, 0), kOk);
    EXPECT_TRUE(PairTable(*OpenStore()).Of(kSerial).empty());
    SetPin(nullptr);
    EXPECT_EQ(Request(1, 2, 3).code, kOk);
}

TEST_F(PinTest, initialisation_with_1_refuses_a_wrong_pin_and_erases_nothing) {
    Enrol(1, 2, 3);
    token.GM_RemoveUserPin();
    SetPin("000000");
    EXPECT_EQ(token.CustInitCard(kSerial, 1, nullptr, 0), kPinWrong);
    EXPECT_EQ(Certificate(1).code, kOk);
    EXPECT_EQ(token.CustInitCard(kSerial, 2, nullptr, 0), kBadArgument);
}

// A process that dies while it looks at a PIN has used up the try. The look is made to last
// seconds.
TEST_F(PinTest, a_try_is_counted_before_the_pin_is_looked_at) {
    auto store = OpenStore();
    PinSeal seal = PinTable(*store).Seal(kSerial);
    seal.kdf = Kdf::kPbkdf2;
    seal.cost = 10000000;
    PinTable(*store).SetSeal(kSerial, seal);
    const pid_t child = fork();
    if (child == 0) _exit(token.VerifyPIN(kSerial) == kPinWrong ? 0 : 1);
    for (int i = 0; i < 1000 && KeyTable(*store).Find(kSerial)->triesLeft == kMaxTries; ++i)
        usleep(10000);
    EXPECT_EQ(KeyTable(*store).Find(kSerial)->triesLeft, kMaxTries - 1);
    usleep(300000);
    EXPECT_EQ(waitpid(child, nullptr, WNOHANG), 0) << "it had looked before it counted";
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    EXPECT_EQ(KeyTable(*store).Find(kSerial)->triesLeft, kMaxTries - 1);
}

TEST_F(PinTest, a_wrong_pin_ends_what_the_right_one_began) {
    ASSERT_EQ(token.VerifyPIN(kSerial), kOk);
    SetPin("000000");
    ASSERT_EQ(token.VerifyPIN(kSerial), kPinWrong);
    EXPECT_FALSE(Unlocked());
}

TEST_F(PinTest, a_locked_key_asks_nobody) {
    Lock();
    SetPin(nullptr);
    EXPECT_EQ(token.VerifyPIN(kSerial), kPinLocked);
    EXPECT_EQ(token.ChangePin(kSerial), kPinLocked);
}

// Sixteen characters of four bytes each.
TEST_F(PinTest, the_longest_pin_has_64_bytes) {
    std::string longest;
    for (int i = 0; i < 16; ++i) longest += "\xF0\xA0\x80\x80";
    std::string longer = longest + "1", another = longest;
    another.back() = '\x81';
    EXPECT_EQ(token.CustInitCard(kSerial, 0, longer.data(), 0), kPinLength);
    ASSERT_EQ(token.CustInitCard(kSerial, 0, longest.data(), 0), kOk);
    EXPECT_EQ(token.VerifyAndCachePin(kSerial, longer.data()), kPinLength);
    EXPECT_EQ(token.VerifyAndCachePin(kSerial, another.data()), kPinWrong);
    EXPECT_EQ(token.VerifyAndCachePin(kSerial, longest.data()), kOk);
    EXPECT_EQ(token.CustInitCard(kSerial, 1, longer.data(), 0), kPinLength);
    EXPECT_EQ(token.CustInitCard(kSerial, 1, another.data(), 0), kPinWrong);
    EXPECT_EQ(token.CustInitCard(kSerial, 1, longest.data(), 0), kOk);
}

TEST_F(PinTest, arguments_without_a_meaning_are_refused) {
    char pin[] = "123456";
    EXPECT_EQ(token.CustInitCard(kSerial, 0, pin, 1), kBadArgument);
    EXPECT_EQ(token.CustInitCard(kSerial, 1, pin, 1), kBadArgument);
    EXPECT_EQ(token.CustInitCard(kSerial, 2, pin, 0), kBadArgument);
    EXPECT_EQ(token.SetCachePinFlag(kSerial, -1), kBadArgument);
    EXPECT_EQ(TriesLeft(), kMaxTries);
}

TEST_F(PinTest, a_verification_without_a_cache_flag_is_not_cached) {
    ASSERT_EQ(token.VerifyPIN(kSerial), kOk);
    EXPECT_EQ(Info()[4], 0);
    char pin[] = "123456";
    ASSERT_EQ(token.VerifyAndCachePin(kSerial, pin), kOk);
    EXPECT_EQ(Info()[4], 1);
    std::uint32_t length = 0;
    EXPECT_EQ(token.GetPinInfo(kSerial, nullptr, &length), kOk);
    EXPECT_EQ(length, 8U);
}

TEST_F(PinTest, a_child_verifies_for_itself_once) {
    ASSERT_EQ(token.VerifyPIN(kSerial), kOk);
    const pid_t child = fork();
    if (child == 0) {
        const bool locked = !Unlocked();
        const bool right = token.VerifyPIN(kSerial) == kOk;
        _exit(locked && right && Unlocked() && Request(1, 2, 3).code == kOk && Unlocked() ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
}

TEST_F(PinTest, the_prompt_tells_of_a_wrong_pin_until_the_right_one) {
    EXPECT_EQ(token.SetLabel(kSerial, "of payroll"), kOk);
    SetPin(nullptr);
    Write("pinentry",
          "#!/bin/bash\necho OK\nwhile read -r line; do echo \"$line\" >>asked;"
          " [[ $line == GETPIN ]] && echo \"D $(<pin)\"; echo OK; done\n");
    chmod(Path("pinentry").c_str(), 0700);
    const ScopedVariable path("PATH", (Path("") + ":/usr/bin:/bin").c_str());
    std::filesystem::current_path(Path(""));
    const auto tellsWhen = [this](const char* pin, int code) {
        Write("pin", pin);
        Write("asked", "");
        EXPECT_EQ(token.VerifyPIN(kSerial), code);
        EXPECT_NE(Read("asked").find(std::string("of payroll ") + kSerial), std::string::npos);
        return Read("asked").find("SETERROR") != std::string::npos;
    };
    EXPECT_FALSE(tellsWhen("000000", kPinWrong));
    EXPECT_TRUE(tellsWhen("000000", kPinWrong));
    EXPECT_TRUE(tellsWhen(kPin, kOk));
    EXPECT_FALSE(tellsWhen(kPin, kOk));
    std::filesystem::current_path("/");
}

// A client may leave anything in OpenSSL's queue of errors.
TEST_F(PinTest, an_error_of_the_clients_own_is_not_taken_for_one_of_the_key) {
    SetPin("000000");
    ERR_raise(ERR_LIB_CRYPTO, ERR_R_MALLOC_FAILURE);
    EXPECT_EQ(token.VerifyPIN(kSerial), kPinWrong);
    ERR_clear_error();
}

}  // namespace

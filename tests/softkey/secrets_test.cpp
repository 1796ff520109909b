// Where secrets are, and where they are not any more.
#include <dlfcn.h>
#include <openssl/evp.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>

#include "kesta/event_library.h"
#include "softkey/crypto/key_pair.h"
#include "softkey/crypto/vault.h"
#include "softkey/store/keys.h"
#include "softkey/store/pairs.h"
#include "softkey/store/pins.h"
#include "token_fixture.h"

using namespace softkey;

namespace {

// The event library, as a client's library that waits has it.
struct EventLibrary {
    EventLibrary() {
        void* const library = dlopen(EVENT_LIBRARY, RTLD_LAZY);
        const auto begin =
            reinterpret_cast<int (*)(std::uint32_t*)>(dlsym(library, "ValtoT_ContextInit"));
        wait = reinterpret_cast<decltype(wait)>(dlsym(library, "ValtoT_WaitForEvent"));
        std::uint32_t context = 0;
        EXPECT_EQ(begin(&context), kOk);
    }
    int (*wait)(std::uint32_t, std::uint32_t, VALTO_EVENT_INFO*, std::uint32_t*) = nullptr;
};

class SecretsTest : public TokenTest {
protected:
    SecretsTest() { CreateKey(); }

    // A secret that a child process computes and hands over inverted, so that this process never
    // holds what it searches for.
    template <typename Secret>
    std::string Inverted(Secret secret) const {
        int ends[2];
        if (pipe(ends) != 0) return {};
        const pid_t child = fork();
        if (child == 0) {
            std::string bytes = secret();
            for (char& byte : bytes) byte = static_cast<char>(~byte);
            _exit(write(ends[1], bytes.data(), bytes.size()) > 0 ? 0 : 1);
        }
        close(ends[1]);
        char buffer[64];
        const ssize_t size = read(ends[0], buffer, sizeof buffer);
        close(ends[0]);
        waitpid(child, nullptr, 0);
        return size > 0 ? std::string(buffer, static_cast<std::size_t>(size)) : std::string();
    }

    MasterKey Master() const {
        return *OpenMaster(PinTable(*OpenStore()).Seal(kSerial), kPin, kSerial);
    }
    std::string InvertedMaster() const {
        return Inverted([this] {
            const MasterKey master = Master();
            return std::string(reinterpret_cast<const char*>(master.data()), MasterKey::kSize);
        });
    }

    // The last bytes of a private number, which computing keeps together.
    std::string PrivateNumber(const char* name = "priv", std::size_t size = 32) const {
        const auto store = OpenStore();
        const PairRecord pair = PairTable(*store).Of(kSerial).at(0);
        const PKeyPtr key =
            OpenPrivate(pair, PairTable(*store).WrappedPrivate(pair.id), kSerial, Master());
        BIGNUM* number = nullptr;
        EVP_PKEY_get_bn_param(key.get(), name, &number);
        std::string bytes(256, '\0');
        BN_bn2binpad(number, reinterpret_cast<unsigned char*>(bytes.data()), 256);
        BN_clear_free(number);
        return bytes.substr(bytes.size() - size);
    }

    // How often the bytes whose inverse this is stand in memory that can be written.
    enum class Pages { kAll, kInCoreFiles };
    static int Found(const std::string& inverted, Pages pages = Pages::kAll) {
        std::ifstream maps("/proc/self/smaps");
        std::ifstream memory("/proc/self/mem", std::ios::binary);
        int found = 0;
        unsigned long from = 0, to = 0;
        char mode[5] = {};
        for (std::string line; std::getline(maps, line);) {
            unsigned long begin = 0, end = 0;
            if (std::sscanf(line.c_str(), "%lx-%lx %4s", &begin, &end, mode) == 3) {
                from = begin;
                to = end;
            }
            if (line.rfind("VmFlags:", 0) != 0) continue;  // the last line of each
            if (mode[0] != 'r' || mode[1] != 'w') continue;
            // "dd": not to be dumped.
            if (pages == Pages::kInCoreFiles && line.find(" dd") != std::string::npos) continue;
            // AddressSanitizer's own map of the memory; nothing else here is as large.
            if (to - from > 1UL << 32U) continue;
            std::string bytes(to - from, '\0');
            memory.clear();
            memory.seekg(static_cast<std::streamoff>(from));
            memory.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
            for (char& byte : bytes) byte = static_cast<char>(~byte);
            for (std::size_t at = bytes.find(inverted); at != std::string::npos;
                 at = bytes.find(inverted, at + 1)) {
                ++found;
            }
            // What was searched must not be searched again as an own copy.
            std::fill(bytes.begin(), bytes.end(), '\0');
        }
        return found;
    }

    bool AnyFileHolds(const Bytes& bytes) const {
        const std::string part(bytes.begin(), bytes.end());
        for (const auto& entry : std::filesystem::directory_iterator(Home())) {
            if (Read("home/" + entry.path().filename().string()).find(part) != std::string::npos) {
                return true;
            }
        }
        return false;
    }
};

TEST_F(SecretsTest, a_removed_key_leaves_no_master_key_behind) {
    const std::string master = InvertedMaster();
    ASSERT_EQ(master.size(), MasterKey::kSize);
    ASSERT_EQ(Request(1, 2, 3).code, kOk);
    ASSERT_EQ(SignHash(std::string(64, 'a')).code, kOk);
    ASSERT_GT(Found(master), 0) << "the search finds nothing at all";
    KeyTable(*OpenStore()).SetInserted(kSerial, false);
    token.X_ErrorConvert_UOS(0);
    EXPECT_EQ(Found(master), 0);
}

// A client that only waits for events calls no entry point of the token library.
TEST_F(SecretsTest, what_sees_the_removal_first_has_the_master_key_dropped) {
    const EventLibrary events;
    const std::string master = InvertedMaster();
    ASSERT_EQ(token.VerifyPIN(kSerial), kOk);
    ASSERT_GT(Found(master), 0) << "the search finds nothing at all";
    KeyTable(*OpenStore()).SetInserted(kSerial, false);
    VALTO_EVENT_INFO event{};
    EXPECT_EQ(events.wait(0, 0, &event, nullptr), kOk);
    EXPECT_EQ(Found(master), 0);
}

TEST_F(SecretsTest, a_removed_key_leaves_no_private_number_behind) {
    ASSERT_EQ(Request(1, 2, 3).code, kOk);
    const std::string number = Inverted([this] { return PrivateNumber(); });
    ASSERT_EQ(number.size(), 32U);
    const std::string limbs(number.rbegin(), number.rend());  // as the library computes with it
    token.GM_RemoveUserPin();
    EXPECT_EQ(Found(number) + Found(limbs), 0) << "the request left it behind";
    ASSERT_EQ(SignHash(std::string(64, 'a')).code, kOk);
    ASSERT_GT(Found(number) + Found(limbs), 0) << "the search finds nothing at all";
    KeyTable(*OpenStore()).SetInserted(kSerial, false);
    token.X_ErrorConvert_UOS(0);
    EXPECT_EQ(Found(number), 0);
    EXPECT_EQ(Found(limbs), 0);
}

// d, and the primes, from which anyone has the rest.
TEST_F(SecretsTest,
       a_removed_key_leaves_no_rsa_number_behind_and_none_strays_from_the_secure_heap) {
    ASSERT_EQ(Request(1, 1, 2).code, kOk);
    std::vector<std::string> secrets;
    for (const char* name : {"d", "rsa-factor1", "rsa-factor2"}) {
        const std::string number = Inverted([&] { return PrivateNumber(name, 48); });
        ASSERT_EQ(number.size(), 48U);
        secrets.push_back(number);
        secrets.emplace_back(number.rbegin(), number.rend());
    }
    const auto found = [&secrets](Pages pages) {
        int sum = 0;
        for (const std::string& secret : secrets) sum += Found(secret, pages);
        return sum;
    };
    token.GM_RemoveUserPin();
    EXPECT_EQ(found(Pages::kAll), 0) << "the request left it behind";
    ASSERT_EQ(SignHash(std::string(64, 'a'), 1, 2).code, kOk);
    ASSERT_GT(found(Pages::kAll), 0) << "the search finds nothing at all";
    EXPECT_EQ(found(Pages::kInCoreFiles), 0);
    KeyTable(*OpenStore()).SetInserted(kSerial, false);
    token.X_ErrorConvert_UOS(0);
    EXPECT_EQ(found(Pages::kAll), 0);
}

TEST_F(SecretsTest, a_change_of_the_pin_makes_a_new_master_key_and_the_old_seal_is_nowhere) {
    ASSERT_EQ(Request(1, 2, 3).code, kOk);
    const Bytes seal = PinTable(*OpenStore()).Seal(kSerial).sealed;
    const std::int64_t pair = PairTable(*OpenStore()).Of(kSerial).at(0).id;
    const Bytes wrapped = PairTable(*OpenStore()).WrappedPrivate(pair);
    const std::string master = InvertedMaster();
    ASSERT_TRUE(AnyFileHolds(seal));
    SetNewPin("abcdef");
    ASSERT_EQ(token.ChangePin(kSerial), kOk);
    EXPECT_FALSE(AnyFileHolds(seal));
    EXPECT_FALSE(AnyFileHolds(wrapped));
    EXPECT_EQ(SignHash(std::string(64, 'a')).code, kOk);
    SetPin("abcdef");
    EXPECT_NE(
        Inverted([this] {
            const auto opened = OpenMaster(PinTable(*OpenStore()).Seal(kSerial), "abcdef", kSerial);
            return std::string(reinterpret_cast<const char*>(opened->data()), MasterKey::kSize);
        }),
        master);
    EXPECT_EQ(token.VerifyPIN(kSerial), kOk);
}

// The program makes the new PIN up, so that this process sees it only as the key does.
TEST_F(SecretsTest, a_pin_from_pinentry_is_nowhere_in_memory_afterwards) {
    Write("pin", kPin);
    Write("pinentry", R"sh(#!/bin/bash
cd "${0%/*}" && echo OK
while read -r line; do
    case $line in
    SETREPEAT*) head -c 8 /dev/urandom | od -An -tx1 | tr -d ' \n' >pin; echo OK ;;
    GETPIN) echo "S PIN_REPEATED"; echo "D $(<pin)"; echo OK ;;
    *) echo OK ;;
    esac
done
)sh");
    Succeed("chmod 700 pinentry");
    const std::string path = std::getenv("PATH");
    setenv("PATH", (Path(".") + ":" + path).c_str(), 1);
    SetPin(nullptr);
    SetNewPin("");
    EXPECT_EQ(token.ChangePin(kSerial), kOk);
    EXPECT_EQ(token.VerifyPIN(kSerial), kOk);
    setenv("PATH", path.c_str(), 1);
    const std::string pin = Inverted([this] { return Read("pin"); });
    ASSERT_EQ(pin.size(), 16U);
    EXPECT_EQ(Found(pin.substr(4)), 0);  // another line may have taken the place of its beginning
}

TEST_F(SecretsTest, what_is_deleted_or_erased_is_in_no_file) {
    ASSERT_EQ(Request(1, 2, 3).code, kOk);
    const std::int64_t pair = PairTable(*OpenStore()).Of(kSerial).at(0).id;
    const Bytes wrapped = PairTable(*OpenStore()).WrappedPrivate(pair);
    ASSERT_TRUE(AnyFileHolds(wrapped));
    ASSERT_EQ(token.DelCertAndTempKey(kSerial, 0, 0), kOk);
    EXPECT_FALSE(AnyFileHolds(wrapped));
    const Bytes seal = PinTable(*OpenStore()).Seal(kSerial).sealed;
    KeyTable(*OpenStore()).Delete(kSerial);
    EXPECT_FALSE(AnyFileHolds(seal));
}

TEST_F(SecretsTest, the_length_of_a_pin_counts_characters) {
    const char* const six =
        "\xE5\xAF\x86\xE7\xA0\x81\xE5\xAF\x86\xE7\xA0\x81\xE5\xAF\x86\xE7\xA0\x81";
    SetNewPin("\xE5\xAF\x86\xE7\xA0\x81");  // two characters, six bytes
    EXPECT_EQ(token.ChangePin(kSerial), kPinLength);
    SetNewPin(six);
    ASSERT_EQ(token.ChangePin(kSerial), kOk);
    SetPin(six);
    EXPECT_EQ(token.VerifyPIN(kSerial), kOk);
}

// A seal of an earlier version opens, and is made anew with the first right PIN.
TEST_F(SecretsTest, a_seal_of_an_earlier_version_is_moved_on) {
    PinSeal old = PinTable(*OpenStore()).Seal(kSerial);
    const MasterKey master = Master();
    MasterKey derived;
    ASSERT_EQ(PKCS5_PBKDF2_HMAC(kPin, -1, old.salt.data(), static_cast<int>(old.salt.size()), 20000,
                                EVP_sha256(), MasterKey::kSize, derived.data()),
              1);
    old.kdf = Kdf::kPbkdf2;
    old.cost = 20000;
    old.sealed = Wrap(derived, master.data(), MasterKey::kSize, kSerial);
    PinTable(*OpenStore()).SetSeal(kSerial, old);
    SetPin("000000");
    EXPECT_EQ(token.VerifyPIN(kSerial), kPinWrong);
    EXPECT_EQ(PinTable(*OpenStore()).Seal(kSerial).kdf, Kdf::kPbkdf2);
    SetPin(kPin);
    EXPECT_EQ(token.VerifyPIN(kSerial), kOk);
    EXPECT_EQ(PinTable(*OpenStore()).Seal(kSerial).kdf, Kdf::kScrypt);
    EXPECT_EQ(token.VerifyPIN(kSerial), kOk);
    EXPECT_FALSE(AnyFileHolds(old.sealed));
}

// More verifications than tries, all at once: each takes its turn.
TEST_F(SecretsTest, the_right_pin_is_right_however_many_verify_it_at_once) {
    std::atomic<int> right{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&] {
            for (int k = 0; k < 5; ++k) right += token.VerifyPIN(kSerial) == kOk ? 1 : 0;
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(right, 40);
    EXPECT_EQ(TriesLeft(), kMaxTries);
}

TEST_F(SecretsTest, a_child_of_a_busy_process_can_use_the_key) {
    ASSERT_EQ(Request(1, 2, 3).code, kOk);
    const EventLibrary events;
    const char* const wanted = std::getenv("KESTA_TEST_FORKS");
    const int forks = wanted != nullptr ? std::atoi(wanted) : 200;
    std::atomic<bool> done{false};
    std::vector<std::thread> threads;
    threads.emplace_back([&] {
        VALTO_EVENT_INFO event{};
        while (!done) events.wait(0, 0, &event, nullptr);
    });
    for (int i = 0; i < 2; ++i) {
        threads.emplace_back([&] {
            while (!done) SignHash(std::string(64, 'a'));
        });
    }
    int good = 0;
    for (int i = 0; i < forks; ++i) {
        const pid_t child = fork();
        if (child == 0) {
            alarm(20);
            const bool works =
                token.VerifyPIN(kSerial) == kOk && SignHash(std::string(64, 'a')).code == kOk;
            _exit(works ? 0 : 1);
        }
        int status = -1;
        waitpid(child, &status, 0);
        good += status == 0 ? 1 : 0;
    }
    done = true;
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(good, forks);
}

}  // namespace

// Processes that are killed in mid-operation: what they leave behind is the state before or after
// the operation, never between. Seeded, so that a failure can be had again.
#include <openssl/x509.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <random>
#include <set>

#include "softkey/crypto/base64.h"
#include "softkey/crypto/certificate.h"
#include "softkey/crypto/envelope.h"
#include "softkey/crypto/key_pair.h"
#include "softkey/store/damage.h"
#include "softkey/store/events.h"
#include "softkey/store/keys.h"
#include "softkey/store/objects.h"
#include "softkey/store/pairs.h"
#include "softkey/store/pins.h"
#include "token_fixture.h"

using namespace softkey;

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::microseconds;

long FromEnvironment(const char* name, long usual) {
    const char* const given = std::getenv(name);
    return given == nullptr ? usual : std::strtol(given, nullptr, 10);
}

// KESTA_SEED and KESTA_KILLS: what ./prove kills draws by, and how many kills there are.
const auto kSeed = static_cast<unsigned>(FromEnvironment("KESTA_SEED", 20250731));
const int kKills = static_cast<int>(FromEnvironment("KESTA_KILLS", 200));
constexpr const char* kOtherPin = "abcdef";
// So many pairs without a certificate a key keeps of each role; a newer one takes the oldest's
// place.
constexpr int kWaitingPairs = 8;

// Everything that an operation may change, but the tries.
struct State {
    std::set<std::string> keys;
    std::string label;
    std::int64_t events = 0;
    std::map<std::int64_t, PairRecord> pairs;
    std::map<std::string, std::string> data;
    Bytes seal;

    int Count(Role role) const {
        return static_cast<int>(std::count_if(pairs.begin(), pairs.end(), [role](const auto& pair) {
            return pair.second.role == role;
        }));
    }
    int Waiting(Role role) const {
        return static_cast<int>(std::count_if(pairs.begin(), pairs.end(), [role](const auto& pair) {
            return pair.second.role == role && pair.second.certificate.empty();
        }));
    }
};

State Look(Store& store) {
    State state;
    for (const KeyRecord& key : KeyTable(store).All()) {
        state.keys.insert(key.serial);
        if (key.serial == kSerial) state.label = key.label;
    }
    state.events = EventLog(store).LastNumber();
    for (const PairRecord& pair : PairTable(store).Of(kSerial)) state.pairs[pair.id] = pair;
    for (const DataObject& object : ObjectTable(store).Of(kSerial)) {
        state.data[object.name] = object.value;
    }
    state.seal = PinTable(store).Seal(kSerial).sealed;
    return state;
}

bool Same(const PairRecord& a, const PairRecord& b) {
    return a.id == b.id && a.role == b.role && a.publicKey == b.publicKey &&
           a.certificate == b.certificate;
}

bool Same(const State& a, const State& b) {
    return a.keys == b.keys && a.label == b.label && a.events == b.events && a.data == b.data &&
           a.seal == b.seal &&
           std::equal(a.pairs.begin(), a.pairs.end(), b.pairs.begin(), b.pairs.end(),
                      [](const auto& x, const auto& y) { return Same(x.second, y.second); });
}

int NewPairs(const State& before, const State& after) {
    int count = 0;
    for (const auto& [id, pair] : after.pairs) count += before.pairs.count(id) == 0 ? 1 : 0;
    return count;
}

// A certificate over a public key, signed by nobody in particular: the key looks at the key alone.
std::string CertificateOver(const Bytes& publicKey) {
    static const PKeyPtr authority = GeneratePair(Algorithm::kRsa);
    const PKeyPtr key = ParsePublicKey(publicKey);
    const X509Ptr certificate(X509_new());
    ASN1_INTEGER_set(X509_get_serialNumber(certificate.get()), 1);
    X509_gmtime_adj(X509_getm_notBefore(certificate.get()), 0);
    X509_gmtime_adj(X509_getm_notAfter(certificate.get()), 1000);
    X509_set_pubkey(certificate.get(), key.get());
    X509_sign(certificate.get(), authority.get(), EVP_sha256());
    return ToBase64(CertificateDer(certificate.get()));
}

const PairRecord* Newest(const State& state, Role role) {
    for (auto pair = state.pairs.rbegin(); pair != state.pairs.rend(); ++pair) {
        if (pair->second.role == role) return &pair->second;
    }
    return nullptr;
}

// An operation made ready for one run: what to do, and what the state is when it was done.
struct Prepared {
    const char* name;
    std::function<int()> run;
    std::function<bool(const State& before, const State& after)> done;
};

class KillTest : public TokenTest {
protected:
    KillTest() : random_(kSeed) { CreateKey(); }

    Prepared PrepareKeyCreation() {
        const std::string serial = "KS-" + std::to_string(++serials_);
        return {"new key",
                [this, serial] {
                    CreateKey(serial, "M" + serial);
                    return 0;
                },
                [serial](const State& before, const State& after) {
                    return after.keys.size() == before.keys.size() + 1 &&
                           after.keys.count(serial) == 1 && after.events == before.events + 1;
                }};
    }
    Prepared PrepareRequest() {
        return {"request", [this] { return PairedRequest().code; },
                [](const State& before, const State& after) {
                    const auto one_more = [&](Role role) {
                        return after.Waiting(role) ==
                               std::min(before.Waiting(role) + 1, kWaitingPairs);
                    };
                    return NewPairs(before, after) == 2 && one_more(Role::kSigning) &&
                           one_more(Role::kTemporary);
                }};
    }
    Prepared PrepareCertificate(const PairRecord& pair) {
        const std::string text = CertificateOver(pair.publicKey);
        return {"certificate", [this, text] { return WriteCertificate(text); },
                [pair](const State&, const State& after) {
                    int certified = 0;
                    for (const auto& [id, other] : after.pairs) {
                        certified += other.role == pair.role && !other.certificate.empty() ? 1 : 0;
                    }
                    return certified == 1 && !after.pairs.at(pair.id).certificate.empty() &&
                           (pair.role == Role::kSigning || after.Count(Role::kTemporary) == 0);
                }};
    }
    Prepared PrepareEnvelope(const PairRecord& temporary) {
        const PKeyPtr recipient = ParsePublicKey(temporary.publicKey);
        const PKeyPtr pair = GeneratePair(Algorithm::kSm2);
        const std::string text = ToBase64(SealEnvelope(recipient.get(), pair.get()));
        return {"envelope", [this, text] { return ImportKey(text); },
                [](const State& before, const State& after) {
                    return NewPairs(before, after) == 1 && after.Count(Role::kEncryption) == 1 &&
                           after.Count(Role::kTemporary) == before.Count(Role::kTemporary);
                }};
    }
    Prepared PreparePinChange() {
        return {"PIN change",
                [this] {
                    SetNewPin(pin_ == kPin ? kOtherPin : kPin);
                    return token.ChangePin(kSerial);
                },
                [](const State& before, const State& after) { return before.seal != after.seal; }};
    }
    Prepared PrepareData() {
        const std::string value(200, static_cast<char>('a' + random_() % 26));
        return {"data", [this, value] { return token.SetData("data-object", 0, value.c_str()); },
                [value](const State&, const State& after) {
                    return after.data.at("data-object") == value;
                }};
    }
    Prepared PrepareLabel() {
        const std::string label = "label-" + std::to_string(random_());
        return {"label", [this, label] { return token.SetLabel(kSerial, label.c_str()); },
                [label](const State&, const State& after) { return after.label == label; }};
    }
    Prepared PrepareDeletion(Role role) {
        const auto type = static_cast<std::uint32_t>(role);
        return {"deletion", [this, type] { return token.DelCertAndTempKey(kSerial, type, 0); },
                [role](const State& before, const State& after) {
                    return after.Count(role) < before.Count(role) && after.data == before.data;
                }};
    }
    Prepared PrepareInitialisation() {
        return {"initialisation", [this] { return token.CustInitCard(kSerial, 1, nullptr, 0); },
                [](const State&, const State& after) {
                    return after.pairs.empty() && after.data.empty();
                }};
    }
    // One that makes sense in this state.
    Prepared Prepare(const State& state) {
        const PairRecord* const temporary = Newest(state, Role::kTemporary);
        const PairRecord* const encryption = Newest(state, Role::kEncryption);
        const PairRecord* const signing = Newest(state, Role::kSigning);
        switch (random_() % 10) {
            case 0:
                return PrepareKeyCreation();
            case 1:
                return PreparePinChange();
            case 2:
                return PrepareInitialisation();
            case 3:
                if (signing != nullptr) return PrepareCertificate(*signing);
                break;
            case 4:
                if (encryption != nullptr) return PrepareCertificate(*encryption);
                [[fallthrough]];
            case 5:
                if (temporary != nullptr) return PrepareEnvelope(*temporary);
                break;
            case 6:
                return PrepareData();
            case 7:
                return PrepareLabel();
            case 8:
                if (signing != nullptr) return PrepareDeletion(Role::kSigning);
                break;
            default:
                break;
        }
        return PrepareRequest();
    }

    // Runs the operation in a process of its own, the PIN verified, and kills it after the delay.
    // Whether it came to its end before.
    bool RunAndKill(const Prepared& operation, microseconds delay) {
        int ready[2];
        if (pipe(ready) != 0) std::abort();
        const pid_t child = fork();
        if (child == 0) {
            const bool verified = token.VerifyPIN(kSerial) == kOk;
            if (write(ready[1], "r", 1) != 1 || !verified) _exit(3);
            _exit(operation.run() & 0xFF);
        }
        close(ready[1]);
        char byte = 0;
        EXPECT_EQ(read(ready[0], &byte, 1), 1);
        close(ready[0]);
        usleep(static_cast<useconds_t>(delay.count()));
        kill(child, SIGKILL);
        int status = 0;
        waitpid(child, &status, 0);
        const bool ended = WIFEXITED(status);
        EXPECT_TRUE(!ended || WEXITSTATUS(status) == 0)
            << "code 0x5B" << std::hex << WEXITSTATUS(status);
        return ended;
    }

    // The PIN is the old or the new one, and every private key still opens.
    void CheckSecrets(Store& store) {
        auto master = OpenMaster(PinTable(store).Seal(kSerial), pin_, kSerial);
        if (!master) {
            pin_ = pin_ == kPin ? kOtherPin : kPin;
            master = OpenMaster(PinTable(store).Seal(kSerial), pin_, kSerial);
        }
        ASSERT_TRUE(master) << "no PIN opens the key";
        for (const PairRecord& pair : PairTable(store).Of(kSerial)) {
            EXPECT_NO_THROW(
                OpenPrivate(pair, PairTable(store).WrappedPrivate(pair.id), kSerial, *master));
        }
        SetPin(pin_.c_str());
    }

    // How long to wait before the kill: up to a longest wait that follows the machine, so that
    // about half of the kills come before the end of what they interrupt.
    microseconds NextDelay() {
        return microseconds(
            static_cast<long>(longest_ * (static_cast<double>(random_() % 1000) / 1000)));
    }
    void LearnFrom(bool tooLate) { longest_ *= tooLate ? 0.85 : 1.15; }

    double longest_ = 4000;
    std::mt19937 random_;
    std::string pin_ = kPin;
    int serials_ = 0;
};

TEST_F(KillTest, a_killed_process_leaves_the_state_before_or_after_never_between) {
    auto store = OpenStore();
    std::map<std::string, int> kills;
    int killed = 0;
    int undone = 0;
    int done = 0;
    for (int i = 0; killed < kKills && i < kKills * 4 && !HasFailure(); ++i) {
        SCOPED_TRACE("operation " + std::to_string(i) + " of seed " + std::to_string(kSeed));
        const State before = Look(*store);
        const Prepared operation = Prepare(before);
        const bool ended = RunAndKill(operation, NextDelay());
        const State after = Look(*store);
        const bool same = Same(before, after);
        LearnFrom(!same);
        EXPECT_TRUE(same || operation.done(before, after))
            << operation.name << ", something between";
        EXPECT_TRUE(!ended || operation.done(before, after)) << "it ended and was not done";
        EXPECT_EQ(FindDamage(Home()), std::vector<std::string>());
        EXPECT_GE(TriesLeft(), kMaxTries - 1);
        CheckSecrets(*store);
        PinTable(*store).ResetTries(kSerial);
        // Data objects go to the one key that is present.
        for (const std::string& serial : after.keys) {
            if (serial != kSerial) KeyTable(*store).Delete(serial);
        }
        if (ended) continue;
        ++killed;
        ++kills[operation.name];
        undone += same ? 1 : 0;
        done += same ? 0 : 1;
    }
    EXPECT_EQ(killed, kKills);
    // A test whose kills come always too early or too late would show nothing.
    EXPECT_GE(undone, kKills / 20);
    EXPECT_GE(done, kKills / 20);
    std::printf("%d killed in mid-operation; %d not done, %d done\n", killed, undone, done);
    for (const auto& [name, count] : kills) std::printf("  %5d  %s\n", count, name.c_str());
}

// Killed at any moment of a check, the process has used up its try: the tries only ever fall until
// the right PIN is seen.
TEST_F(KillTest, a_kill_during_a_pin_check_gives_no_free_try) {
    auto store = OpenStore();
    SetPin("000000");
    int killed = 0;
    int counted = 0;
    for (int i = 0; killed < kKills / 4 && i < kKills; ++i) {
        const int before = TriesLeft();
        const pid_t child = fork();
        if (child == 0) _exit(token.VerifyPIN(kSerial) == kPinWrong ? 0 : 1);
        usleep(static_cast<useconds_t>(NextDelay().count()));
        kill(child, SIGKILL);
        int status = 0;
        waitpid(child, &status, 0);
        const int after = TriesLeft();
        ASSERT_TRUE(after == before || after == before - 1);
        ASSERT_TRUE(!WIFEXITED(status) || after == before - 1) << "it looked without counting";
        LearnFrom(after < before);
        PinTable(*store).ResetTries(kSerial);
        if (WIFEXITED(status)) continue;
        ++killed;
        counted += before - after;
    }
    EXPECT_EQ(killed, kKills / 4);
    EXPECT_GT(counted, 2);
    EXPECT_LT(counted, killed);
}

}  // namespace

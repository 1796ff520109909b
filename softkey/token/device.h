// What this process knows of the keys: its connection to their state, and which of them it has
// unlocked. A verified PIN counts for this process alone, until the key is pulled out, the PIN is
// changed or forgotten, or the process ends. Master key and private keys are then gone from memory
// with the next call of any entry point, and as soon as the event library sees the removal.
#ifndef SOFTKEY_TOKEN_DEVICE_H
#define SOFTKEY_TOKEN_DEVICE_H

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "softkey/crypto/openssl_context.h"
#include "softkey/crypto/openssl_types.h"
#include "softkey/crypto/signature.h"
#include "softkey/crypto/vault.h"
#include "softkey/store/records.h"
#include "softkey/store/store.h"
#include "softkey/token/room.h"

namespace softkey {

// A private key that was opened.
struct OpenedPair {
    explicit OpenedPair(PKeyPtr opened) : pair(std::move(opened)), signer(pair.get()) {}

    PKeyPtr pair;
    Signer signer;
    const OSSL_LIB_CTX* context = OpensslInUse();
};
using SharedPair = std::shared_ptr<const OpenedPair>;

// An unlocked key: its master key and the private keys that were needed so far.
struct Unlocked {
    MasterKey master;
    std::int64_t pinVersion = 0;
    std::map<std::int64_t, SharedPair> opened;  // by the pair's id
};

struct KeyUse {
    std::int64_t insertions = 0;  // of the key when it was unlocked
    std::int64_t pinVersion = 0;
    std::shared_ptr<Unlocked> unlocked;
    bool caching = false;
    bool wrongBefore = false;
    std::string warning;  // for the screen, with the next critical signature
};

// The process-wide state. It is never destroyed: a thread may be inside when the process ends.
struct Device {
    std::mutex mutex;
    std::unique_ptr<Store> store;
    bool current = false;                 // the last look at the state succeeded
    bool planned = true;                  // a plan of misbehaviour is in force
    std::optional<std::int64_t> version;  // of the state that these are from
    std::vector<KeyRecord> keys;
    std::map<std::string, std::vector<PairRecord>> pairs;
    std::map<std::string, KeyUse> uses;

    static Device& Instance();
};

// A stretch of work on the device, one thread at a time and short: nobody asks a person, derives
// a key or signs within. What it shows is current as of the look before it, or of the last Refresh.
class LockedDevice {
public:
    // Asking what has changed costs two system calls. Each entry point asks when it begins, with
    // kFresh; what stands within works on what the beginning saw, unless it waited meanwhile.
    enum class Look { kFresh, kAsBefore };

    explicit LockedDevice(Look look = Look::kAsBefore);

    Store& store();  // kKeyAbsent when no key was ever made
    void Refresh();
    // Asks the folder, and for the plan's file only when the folder has changed.
    bool IsMisbehaving();
    bool IsKnownToMisbehave() const { return device_.planned; }  // asked last

    // The key that a serial number names; null and the empty text name the only key that is
    // present. kKeyAbsent, kSeveralKeys.
    KeyRecord Resolve(const char* serial) const;
    const std::vector<KeyRecord>& Keys() const { return device_.keys; }
    // The key as it is now; kKeyRemoved when it was pulled out since the record was taken, if only
    // for a moment.
    const KeyRecord& RequireStillThere(const KeyRecord& key) const;
    const std::vector<PairRecord>& Pairs(const KeyRecord& key);

    KeyUse& UseOf(const KeyRecord& key) { return device_.uses[key.serial]; }
    // Null when the PIN must be verified first.
    std::shared_ptr<Unlocked> UnlockedOf(const KeyRecord& key);
    void SetUnlocked(const KeyRecord& key, const MasterKey& master);
    // kPinRequired when the PIN was changed since the key was unlocked: what was made
    // under its master key must not be stored any more.
    void RequireUnlocked(const KeyRecord& key, const Unlocked& unlocked) const;
    void ForgetPins();

    SharedPair OpenPair(const KeyRecord& key, const PairRecord& pair, Unlocked& unlocked);

private:
    void FollowHome();
    void TakeOver();
    void ForgetWhatEnded();

    Device& device_;
    std::lock_guard<std::mutex> lock_;
    std::optional<Store::Held> held_;
};

// The same as LockedDevice::Resolve, with a lock that ends before the answer is used: one that
// lived to the end of the caller's expression would lock out what else stands there.
KeyRecord KeyOf(const char* serial);

// A change to one key, made whole or not at all, and not made when the key is gone or when the
// change would make it hold more than the limits allow: kStateFull.
class Change {
public:
    explicit Change(const KeyRecord& key, const Limits& limits = {})
        : transaction_(device_.store()) {
        device_.Refresh();
        device_.RequireStillThere(key);
        if (limits.Any()) room_.emplace(device_.store(), key.serial, limits);
    }
    LockedDevice& device() { return device_; }
    Store& store() { return device_.store(); }
    void Commit() {
        if (room_) room_->Require();
        transaction_.Commit();
    }

private:
    LockedDevice device_;
    Transaction transaction_;
    std::optional<Room> room_;
};

}  // namespace softkey

#endif

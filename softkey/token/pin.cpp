#include "softkey/token/pin.h"

#include <exception>
#include <mutex>
#include <optional>

#include "softkey/crypto/key_pair.h"
#include "softkey/pin/pinentry.h"
#include "softkey/pin/secret_text.h"
#include "softkey/store/keys.h"
#include "softkey/store/lock.h"
#include "softkey/store/pairs.h"
#include "softkey/store/pins.h"
#include "softkey/token/fork_gate.h"
#include "softkey/token/locale.h"

namespace softkey {
namespace {

void RequireOk(Code code) {
    if (code != kOk) throw Failure(code);
}

PinContext ContextOf(const KeyRecord& key) {
    PinContext context;
    context.serial = key.serial;
    context.label = key.label;
    context.triesLeft = key.triesLeft;
    context.language = currentLanguage;
    LockedDevice device;
    context.wrongBefore = device.UseOf(key).wrongBefore;
    return context;
}

void RequireSamePin(const LockedDevice& device, const KeyRecord& key) {
    if (device.RequireStillThere(key).pinVersion != key.pinVersion) throw Failure(kPinRequired);
}

struct Attempt {
    PinSeal seal;
    int triesLeft = 0;
};

Attempt CountTry(const KeyRecord& key) {
    Change change(key);
    RequireSamePin(change.device(), key);
    Attempt attempt{PinTable(change.store()).Seal(key.serial),
                    PinTable(change.store()).TakeTry(key.serial)};
    change.Commit();
    return attempt;
}

// A seal of an earlier version is made anew: the right PIN is at hand now and never stored.
std::shared_ptr<Unlocked> Accept(const KeyRecord& key, const PinSeal& seal, const MasterKey& master,
                                 std::string_view pin) {
    std::optional<PinSeal> better;
    if (seal.kdf != Kdf::kScrypt) better = SealMaster(master, pin, key.serial);
    Change change(key);
    RequireSamePin(change.device(), key);
    PinTable pins(change.store());
    if (better) pins.SetSeal(key.serial, *better);
    pins.ResetTries(key.serial);
    change.Commit();
    change.device().SetUnlocked(key, master);
    return change.device().UseOf(key).unlocked;
}

void Reject(const KeyRecord& key) {
    LockedDevice device;
    device.UseOf(key).wrongBefore = true;
    device.UseOf(key).unlocked.reset();  // a wrong PIN ends what an earlier right one began
}

void TakeNewPin(const KeyRecord& key, SecretText& pin) {
    const PinContext context = ContextOf(key);
    {
        const Pausing pausing;
        RequireOk(AskNewPin(context, pin));
    }
    CheckPinLength(pin.View());
}

// After a change of the PIN the process that made it stays unlocked. Where that fails it is asked
// for the new one: the change is made, and must not be taken for one that failed.
void KeepUnlocked(const KeyRecord& key, const MasterKey& master) {
    try {
        LockedDevice device(LockedDevice::Look::kFresh);
        device.SetUnlocked(device.Resolve(key.serial.c_str()), master);
    } catch (const std::exception&) {
    }
}

// Seals all that is on a key under another master key, so that the earlier PIN, and whatever was
// copied with its seal, opens nothing that is made from now on.
void ChangeMaster(Store& store, const std::string& serial, const MasterKey& from,
                  const MasterKey& to) {
    PairTable pairs(store);
    for (const PairRecord& pair : pairs.Of(serial)) {
        pairs.SetWrappedPrivate(pair.id,
                                WrapAnew(pair, pairs.WrappedPrivate(pair.id), serial, from, to));
    }
}

PinCost PresentCost(const KeyRecord& key) {
    return CostOf(PinTable(LockedDevice().store()).Seal(key.serial));
}

void ReplaceSeal(Store& store, const std::string& serial, const PinSeal& seal) {
    PinTable pins(store);
    pins.SetSeal(serial, seal);
    pins.EndVerifications(serial);
}

// One verification at a time on each key, among all processes: a try that is under way must not
// lock out the right PIN. Threads exclude each other by an opening of their own; the first does
// with that of the store.
class Turn {
public:
    Turn() : isFirst_(TheFirst(), std::try_to_lock) {
        LockedDevice device;
        home_ = device.store().home();
        if (isFirst_) guard_ = device.store().GuardFile();
    }
    Lock Take(const KeyRecord& key) const {
        const off_t place = Lock::OfPin(key.slot);
        return guard_ ? Lock(home_, place, guard_) : Lock(home_, place);
    }

private:
    static std::mutex& TheFirst() {
        static std::mutex* const mutex = new std::mutex;
        return *mutex;
    }

    std::unique_lock<std::mutex> isFirst_;
    std::string home_;
    std::shared_ptr<const File> guard_;
};

}  // namespace

std::shared_ptr<Unlocked> VerifyPin(const KeyRecord& key, std::string_view pin) {
    // Refused before it reaches the key, so it costs no try.
    CheckPinLength(pin);
    const Turn turn;
    const Lock lock = turn.Take(key);
    const Attempt attempt = CountTry(key);
    const std::optional<MasterKey> master = OpenMaster(attempt.seal, pin, key.serial);
    if (master) return Accept(key, attempt.seal, *master, pin);
    Reject(key);
    throw Failure(attempt.triesLeft == 0 ? kPinLocked : kPinWrong);
}

std::shared_ptr<Unlocked> AskAndVerifyPin(const KeyRecord& key, const Midway& midway) {
    if (key.triesLeft == 0) throw Failure(kPinLocked);
    SecretText pin;
    const PinContext context = ContextOf(key);
    {
        const Pausing pausing;
        RequireOk(AskPresentPin(context, pin));
    }
    midway();
    return VerifyPin(key, pin.View());
}

std::shared_ptr<Unlocked> RequirePin(const KeyRecord& key) {
    {
        LockedDevice device;
        if (std::shared_ptr<Unlocked> unlocked = device.UnlockedOf(key)) return unlocked;
    }
    return AskAndVerifyPin(key);
}

void ChangePinOf(const KeyRecord& key, const Midway& midway) {
    const std::shared_ptr<Unlocked> unlocked = AskAndVerifyPin(key);
    SecretText pin;
    TakeNewPin(key, pin);
    midway();
    const MasterKey master = MasterKey::Random();
    const PinSeal seal = SealMaster(master, pin.View(), key.serial, PresentCost(key));
    {
        Change change(key);
        RequireSamePin(change.device(), key);
        ChangeMaster(change.store(), key.serial, unlocked->master, master);
        ReplaceSeal(change.store(), key.serial, seal);
        change.Commit();
    }
    KeepUnlocked(key, master);
}

void InitialiseWithNewPin(const KeyRecord& key, const char* text, const Midway& midway) {
    SecretText pin;
    if (text == nullptr) {
        TakeNewPin(key, pin);
    } else {
        CheckPinLength(text);
        pin.Assign(text);
    }
    midway();
    const MasterKey master = MasterKey::Random();
    const PinSeal seal = SealMaster(master, pin.View(), key.serial, PresentCost(key));
    {
        Change change(key);
        KeyTable(change.store()).Erase(key.serial);
        ReplaceSeal(change.store(), key.serial, seal);
        change.Commit();
    }
    KeepUnlocked(key, master);
}

}  // namespace softkey

#include "softkey/token/pin.h"

#include <cstring>
#include <optional>

#include "softkey/pin/pinentry.h"
#include "softkey/pin/secret_text.h"
#include "softkey/store/keys.h"
#include "softkey/store/pins.h"
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
    LockedDevice device(LockedDevice::Look::kAsBefore);
    context.wrongBefore = device.UseOf(key).wrongBefore;
    return context;
}

// The key as it is now, still the same insertion and the same PIN.
KeyRecord Unchanged(const LockedDevice& device, const KeyRecord& key) {
    device.RequireStillThere(key);
    KeyRecord now = device.Resolve(key.serial.c_str());
    if (now.pinVersion != key.pinVersion) throw Failure(kPinRequired, key.serial);
    return now;
}

struct Attempt {
    PinSeal seal;
    int triesLeft = 0;
};

Attempt CountTry(const KeyRecord& key) {
    Change change(key);
    Unchanged(change.device(), key);
    Attempt attempt{PinTable(change.store()).Seal(key.serial),
                    PinTable(change.store()).TakeTry(key.serial)};
    change.Commit();
    return attempt;
}

std::shared_ptr<Unlocked> Accept(const KeyRecord& key, const MasterKey& master) {
    Change change(key);
    Unchanged(change.device(), key);
    PinTable(change.store()).ResetTries(key.serial);
    change.Commit();
    change.device().SetUnlocked(key, master);
    return change.device().UseOf(key).unlocked;
}

void TakeNewPin(const KeyRecord& key, SecretText& pin) {
    RequireOk(AskNewPin(ContextOf(key), pin));
    CheckPinLength(pin.View());
}

// After a change of the PIN the process that made it stays unlocked.
void KeepUnlocked(const KeyRecord& key, const MasterKey& master) {
    LockedDevice device;
    device.SetUnlocked(device.Resolve(key.serial.c_str()), master);
}

}  // namespace

std::shared_ptr<Unlocked> VerifyPin(const KeyRecord& key, std::string_view pin) {
    // Refused before it reaches the key, so it costs no try.
    CheckPinLength(pin);
    const Attempt attempt = CountTry(key);
    const std::optional<MasterKey> master = OpenMaster(attempt.seal, pin, key.serial);
    if (master) return Accept(key, *master);
    LockedDevice device;
    device.UseOf(key).wrongBefore = true;
    device.UseOf(key).unlocked.reset();  // a wrong PIN ends what an earlier right one began
    throw Failure(attempt.triesLeft == 0 ? kPinLocked : kPinWrong, key.serial);
}

std::shared_ptr<Unlocked> AskAndVerifyPin(const KeyRecord& key) {
    if (key.triesLeft == 0) throw Failure(kPinLocked, key.serial);
    SecretText pin;
    RequireOk(AskPresentPin(ContextOf(key), pin));
    return VerifyPin(key, pin.View());
}

std::shared_ptr<Unlocked> RequirePin(const KeyRecord& key) {
    {
        LockedDevice device;
        if (std::shared_ptr<Unlocked> unlocked = device.UnlockedOf(key)) return unlocked;
    }
    return AskAndVerifyPin(key);
}

void ChangePinOf(const KeyRecord& key) {
    const std::shared_ptr<Unlocked> unlocked = AskAndVerifyPin(key);
    SecretText pin;
    TakeNewPin(key, pin);
    const PinSeal seal = SealMaster(unlocked->master, pin.View(), key.serial);
    {
        Change change(key);
        Unchanged(change.device(), key);
        PinTable(change.store()).SetSeal(key.serial, seal);
        change.Commit();
    }
    KeepUnlocked(key, unlocked->master);
}

void InitialiseWithNewPin(const KeyRecord& key, const char* text) {
    SecretText pin;
    if (text == nullptr) {
        TakeNewPin(key, pin);
    } else {
        // One character more than allowed is enough to see that it is too long.
        pin.Append(text, strnlen(text, kMaxPinLength + 1));
        CheckPinLength(pin.View());
    }
    const MasterKey master = MasterKey::Random();
    const PinSeal seal = SealMaster(master, pin.View(), key.serial);
    {
        Change change(key);
        KeyTable(change.store()).Erase(key.serial);
        PinTable(change.store()).SetSeal(key.serial, seal);
        change.Commit();
    }
    KeepUnlocked(key, master);
}

}  // namespace softkey

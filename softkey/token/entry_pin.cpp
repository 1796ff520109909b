// Entry points around the PIN.
#include <array>

#include "softkey/result.h"
#include "softkey/store/keys.h"
#include "softkey/token/call.h"
#include "softkey/token/device.h"
#include "softkey/token/entry_points.h"
#include "softkey/token/pin.h"

namespace softkey {
namespace {

constexpr std::size_t kPinInfoSize = 8;

void SetCaching(const KeyRecord& key, bool caching) {
    LockedDevice device;
    KeyUse& use = device.UseOf(key);
    use.caching = caching;
    if (!caching) use.unlocked.reset();
}

// With caching on, a PIN that was verified before counts again.
bool HasCachedPin(const KeyRecord& key) {
    LockedDevice device;
    return device.UseOf(key).caching && device.UnlockedOf(key) != nullptr;
}

std::array<char, kPinInfoSize> PinInfo(const KeyRecord& key) {
    LockedDevice device;
    const bool unlocked = device.UnlockedOf(key) != nullptr;
    return {static_cast<char>(key.triesLeft),
            static_cast<char>(key.maxTries),
            static_cast<char>(key.triesLeft == 0 ? 1 : 0),
            static_cast<char>(unlocked ? 1 : 0),
            static_cast<char>(device.UseOf(key).caching ? 1 : 0),
            static_cast<char>(kMinPinLength),
            static_cast<char>(kMaxPinLength),
            0};
}

// Erases the key and keeps its PIN, which is asked for unless a text gives it.
void InitialiseWithPresentPin(Call& call, const KeyRecord& key, const char* pin) {
    if (pin == nullptr) {
        RequirePin(key);
    } else {
        VerifyPin(key, pin);
    }
    call.Midway(key);
    Change change(key);
    KeyTable(change.store()).Erase(key.serial);
    change.Commit();
}

}  // namespace
}  // namespace softkey

using namespace softkey;

int VerifyPIN(const char* serial) {
    return Enter({"VerifyPIN", serial}, [=](Call& call) {
        const KeyRecord key = KeyOf(serial);
        if (!HasCachedPin(key)) AskAndVerifyPin(key, [&] { call.Midway(key); });
    });
}

// argument2 is the PIN as a text; null asks the person.
int VerifyAndCachePin(const char* serial, void* argument2) {
    return Enter({"VerifyAndCachePin", serial}, [=](Call& call) {
        const KeyRecord key = KeyOf(serial);
        const char* const pin = static_cast<const char*>(argument2);
        if (pin == nullptr) {
            AskAndVerifyPin(key, [&] { call.Midway(key); });
        } else {
            call.Midway(key);
            VerifyPin(key, pin);
        }
        LockedDevice device;
        device.UseOf(key).caching = true;
    });
}

int GM_RemoveUserPin() {
    return Enter({"GM_RemoveUserPin"}, [](Call&) { LockedDevice().ForgetPins(); });
}

int SetCachePinFlag(const char* serial, std::int32_t flag) {
    return Enter({"SetCachePinFlag", serial}, [=](Call& call) {
        if (flag != 0 && flag != 1) throw Failure(kBadArgument);
        SetCaching(call.LookAt(serial), flag == 1);
    });
}

// pinInfo: tries left, tries at most, locked, verified in this process, caching, shortest PIN,
// longest PIN, zero; one byte each.
int GetPinInfo(const char* serial, void* pinInfo, std::uint32_t* length) {
    return Enter({"GetPinInfo", serial, length}, [=](Call& call) {
        if (IsProbe(kPinInfoSize, pinInfo, length)) return;
        const auto info = PinInfo(call.LookAt(serial));
        call.WriteBytes({info.data(), info.size()}, pinInfo, length);
    });
}

int ChangePin(const char* serial) {
    return Enter({"ChangePin", serial}, [=](Call& call) {
        const KeyRecord key = KeyOf(serial);
        ChangePinOf(key, [&] { call.Midway(key); });
    });
}

// argument2 0 gives the key a new PIN and lifts its lock, 1 keeps the PIN. argument3 is that PIN as
// a text; null asks the person.
int CustInitCard(const char* serial, std::uint32_t argument2, void* argument3,
                 std::uint32_t argument4) {
    return Enter({"CustInitCard", serial}, [=](Call& call) {
        if (argument2 > 1 || argument4 != 0) throw Failure(kBadArgument);
        const KeyRecord key = KeyOf(serial);
        const char* const pin = static_cast<const char*>(argument3);
        if (argument2 == 1) {
            InitialiseWithPresentPin(call, key, pin);
        } else {
            InitialiseWithNewPin(key, pin, [&] { call.Midway(key); });
        }
    });
}

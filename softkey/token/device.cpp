#include "softkey/token/device.h"

#include <algorithm>
#include <utility>

#include "softkey/crypto/key_pair.h"
#include "softkey/misbehaviour/misbehaviour.h"
#include "softkey/store/home.h"
#include "softkey/store/keys.h"
#include "softkey/store/pairs.h"
#include "softkey/token/fork_gate.h"

namespace softkey {

Device& Device::Instance() {
    static Device* const device = new Device;
    return *device;
}

LockedDevice::LockedDevice(Look look) : device_(Device::Instance()), lock_(device_.mutex) {
    const bool looks = look == Look::kFresh || !device_.current;
    device_.current = false;
    if (looks) FollowHome();
    if (device_.store) held_.emplace(*device_.store);
    if (looks) TakeOver();
    device_.current = true;
}

// Opens the state when it appears, was replaced, or another folder was named meanwhile.
void LockedDevice::FollowHome() {
    const std::string home = StateHome();
    if (WasForked()) device_.uses.clear();  // the parent's PIN does not count here
    if (device_.store && device_.store->home() == home && device_.store->Look()) return;
    device_.store.reset();
    device_.uses.clear();
    device_.keys.clear();
    device_.version.reset();
    device_.store = Store::OpenExisting(home);
}

void LockedDevice::Refresh() {
    if (!device_.store) return;
    device_.store->VersionSinceLook();
    TakeOver();
}

bool LockedDevice::IsMisbehaving() {
    if (!device_.store || !device_.store->IsFolderUnchanged()) {
        device_.planned = softkey::IsMisbehaving(StateHome());
    }
    return device_.planned;
}

// What the last look at the store found.
void LockedDevice::TakeOver() {
    if (!device_.store) return;
    const std::int64_t version = device_.store->Number();
    if (version == device_.version) return;
    device_.pairs.clear();
    device_.keys = KeyTable(*device_.store).All();
    device_.version = version;
    ForgetWhatEnded();
}

void LockedDevice::ForgetWhatEnded() {
    for (auto& [serial, use] : device_.uses) {
        const auto holds = [&serial = serial, &use = use](const KeyRecord& now) {
            return now.serial == serial && now.inserted && now.insertions == use.insertions &&
                   now.pinVersion == use.pinVersion;
        };
        if (std::none_of(device_.keys.begin(), device_.keys.end(), holds)) use.unlocked.reset();
    }
}

Store& LockedDevice::store() {
    if (!device_.store) throw Failure(kKeyAbsent);
    return *device_.store;
}

KeyRecord LockedDevice::Resolve(const char* serial) const {
    const KeyRecord* found = nullptr;
    const bool any = serial == nullptr || *serial == '\0';
    for (const KeyRecord& key : device_.keys) {
        if (!key.inserted || (!any && key.serial != serial)) continue;
        if (found != nullptr) throw Failure(kSeveralKeys);
        found = &key;
    }
    if (found == nullptr) throw Failure(kKeyAbsent);
    return *found;
}

const KeyRecord& LockedDevice::RequireStillThere(const KeyRecord& key) const {
    for (const KeyRecord& now : device_.keys) {
        if (now.serial == key.serial && now.inserted && now.insertions == key.insertions) {
            return now;
        }
    }
    throw Failure(kKeyRemoved);
}

const std::vector<PairRecord>& LockedDevice::Pairs(const KeyRecord& key) {
    const auto known = device_.pairs.find(key.serial);
    if (known != device_.pairs.end()) return known->second;
    return device_.pairs[key.serial] = PairTable(store()).Of(key.serial);
}

std::shared_ptr<Unlocked> LockedDevice::UnlockedOf(const KeyRecord& key) {
    return UseOf(key).unlocked;
}

void LockedDevice::RequireUnlocked(const KeyRecord& key, const Unlocked& unlocked) const {
    if (Resolve(key.serial.c_str()).pinVersion != unlocked.pinVersion) {
        throw Failure(kPinRequired);
    }
}

void LockedDevice::SetUnlocked(const KeyRecord& key, const MasterKey& master) {
    auto unlocked = std::make_shared<Unlocked>();
    unlocked->master = MasterKey(master);
    unlocked->pinVersion = key.pinVersion;
    KeyUse& use = UseOf(key);
    use.insertions = key.insertions;
    use.pinVersion = key.pinVersion;
    use.unlocked = std::move(unlocked);
    use.wrongBefore = false;
}

void LockedDevice::ForgetPins() {
    for (auto& [serial, use] : device_.uses) use.unlocked.reset();
}

SharedPair LockedDevice::OpenPair(const KeyRecord& key, const PairRecord& pair,
                                  Unlocked& unlocked) {
    SharedPair& opened = unlocked.opened[pair.id];
    if (!opened || opened->context != OpensslInUse()) {
        opened = std::make_shared<OpenedPair>(OpenPrivate(
            pair, PairTable(store()).WrappedPrivate(pair.id), key.serial, unlocked.master));
    }
    return opened;
}

KeyRecord KeyOf(const char* serial) {
    LockedDevice device;
    return device.Resolve(serial);
}

}  // namespace softkey

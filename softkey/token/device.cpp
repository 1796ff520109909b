#include "softkey/token/device.h"

#include <pthread.h>

#include <utility>

#include "softkey/crypto/key_pair.h"
#include "softkey/store/home.h"

namespace softkey {

Device& Device::Instance() {
    static Device* const device = [] {
        // Cheaper than to ask for the process id in each call. No fork falls into a section.
        pthread_atfork([] { Device::Instance().mutex.lock(); },
                       [] { Device::Instance().mutex.unlock(); },
                       [] {
                           Device::Instance().forked = true;
                           Device::Instance().mutex.unlock();
                       });
        return new Device;
    }();
    return *device;
}

Section::Section(Look look) : device_(Device::Instance()), lock_(device_.mutex) {
    if (look == Look::kAsBefore) return;
    FollowHome();
    Refresh();
}

// Opens the state when it appears, was replaced, or another folder was named meanwhile.
void Section::FollowHome() {
    const std::string home = StateHome();
    if (device_.forked) {
        // A connection must not be used across a fork, nor closed: its locks are the parent's.
        // Neither does the parent's PIN count here.
        if (device_.store) device_.abandoned.push_back(std::move(device_.store));
        device_.sessions.clear();
        device_.forked = false;
    }
    if (device_.store && device_.store->home() == home && device_.store->StillThere()) return;
    device_.store.reset();
    device_.sessions.clear();
    device_.keys.clear();
    device_.pairs.clear();
    device_.version = -1;
    device_.store = Store::OpenExisting(home);
}

void Section::Refresh() {
    if (!device_.store) return;
    const std::int64_t version = device_.store->Version();
    if (version == device_.version) return;
    device_.pairs.clear();
    device_.keys = device_.store->Keys();
    device_.version = version;
}

Store& Section::store() {
    if (!device_.store) throw Failure(kKeyAbsent, "no key was made yet");
    return *device_.store;
}

KeyRecord Section::Resolve(const char* serial) const {
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

void Section::Confirm(const KeyRecord& key) const {
    for (const KeyRecord& now : device_.keys) {
        if (now.serial == key.serial && now.inserted && now.insertions == key.insertions) return;
    }
    throw Failure(kKeyRemoved, key.serial);
}

const std::vector<PairRecord>& Section::Pairs(const KeyRecord& key) {
    const auto known = device_.pairs.find(key.serial);
    if (known != device_.pairs.end()) return known->second;
    return device_.pairs[key.serial] = store().Pairs(key.serial);
}

std::shared_ptr<Unlocked> Section::UnlockedOf(const KeyRecord& key) {
    Session& session = SessionOf(key);
    for (const KeyRecord& now : device_.keys) {
        if (now.serial == key.serial && now.inserted && now.insertions == session.insertions &&
            now.pinVersion == session.pinVersion) {
            return session.unlocked;
        }
    }
    session.unlocked.reset();
    return nullptr;
}

void Section::SetUnlocked(const KeyRecord& key, const MasterKey& master) {
    Session& session = SessionOf(key);
    session.insertions = key.insertions;
    session.pinVersion = key.pinVersion;
    session.unlocked = std::make_shared<Unlocked>();
    session.unlocked->master = master;
    session.wrongBefore = false;
}

void Section::ForgetPins() {
    for (auto& [serial, session] : device_.sessions) session.unlocked.reset();
}

SharedPKey Section::OpenPair(const KeyRecord& key, const PairRecord& pair, Unlocked& unlocked) {
    SharedPKey& opened = unlocked.opened[pair.id];
    if (!opened) {
        opened = OpenPrivate(pair, store().WrappedPrivate(pair.id), key.serial, unlocked.master);
    }
    return opened;
}

KeyRecord KeyOf(const char* serial) {
    Section section;
    return section.Resolve(serial);
}

}  // namespace softkey

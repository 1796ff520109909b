// Entry points that tell which key is there, and the key's small texts.
#include <cstring>

#include "softkey/result.h"
#include "softkey/store/keys.h"
#include "softkey/store/objects.h"
#include "softkey/token/call.h"
#include "softkey/token/device.h"
#include "softkey/token/entry_points.h"

namespace softkey {
namespace {

namespace limits = kesta::limits;

std::uint32_t KeysPresent() {
    const LockedDevice device;
    std::uint32_t count = 0;
    for (const KeyRecord& key : device.Keys()) count += key.inserted ? 1 : 0;
    return count;
}

std::string CheckedName(const char* name) {
    const std::string checked = name != nullptr ? std::string(name) : std::string();
    if (checked.size() < limits::kShortestDataName || checked.size() > limits::kLongestDataName) {
        throw Failure(kBadArgument);
    }
    return checked;
}

}  // namespace
}  // namespace softkey

using namespace softkey;

// state becomes the number of keys present.
int CheckDeviceEx(std::uint32_t* state, _S_DEV_CONFIG* record, std::uint32_t one, char* serial) {
    return Enter({"CheckDeviceEx"}, [=](Call& call) {
        if (one != 1) throw Failure(kBadArgument);
        if (state != nullptr) *state = KeysPresent();
        const KeyRecord key = call.LookAt(nullptr);
        call.Copy(key.serial, serial, limits::kSerialBuffer);
        if (record != nullptr && !call.plan().AnswerIsLost()) {
            std::memcpy(record->szMediaId, key.mediaId.data(), key.mediaId.size());
        }
    });
}

// mediaId: 17 bytes, which take the 16 characters and a NUL.
int GetMediaID(const char* serial, char* mediaId) {
    return Enter({"GetMediaID", serial}, [=](Call& call) {
        call.Copy(call.LookAt(serial).mediaId, mediaId, limits::kMediaIdBuffer);
    });
}

int GetLabel(char* serial, char* label) {
    return Enter({"GetLabel", serial}, [=](Call& call) {
        call.Copy(call.LookAt(serial).label, label, limits::kLabelBuffer);
    });
}

int SetLabel(const char* serial, const char* label) {
    return Enter({"SetLabel", serial}, [=](Call& call) {
        if (label == nullptr) throw Failure(kBadArgument);
        const KeyRecord key = KeyOf(serial);
        call.Midway(key);
        Change change(key, call.plan().limits);
        KeyTable(change.store()).SetLabel(key.serial, label);
        change.Commit();
    });
}

// argument2 is part of the object's name: the same text with another number is another object.
int SetData(const char* name, std::uint32_t argument2, const char* value) {
    return Enter({"SetData"}, [=](Call& call) {
        if (value == nullptr) throw Failure(kBadArgument);
        const std::string checked = CheckedName(name);
        const KeyRecord key = KeyOf(nullptr);
        call.Midway(key);
        Change change(key, call.plan().limits);
        ObjectTable(change.store()).Set(key.serial, {checked, argument2, value});
        change.Commit();
    });
}

int GetData(const char* name, std::uint32_t argument2, char* value) {
    return Enter({"GetData"}, [=](Call& call) {
        const std::string checked = CheckedName(name);
        const KeyRecord key = call.LookAt(nullptr);
        const auto found = ObjectTable(LockedDevice().store()).Get(key.serial, checked, argument2);
        if (!found) throw Failure(kDataNotFound);
        if (found->size() > kMaxDataLength) throw Failure(kStateDamaged);
        call.Copy(*found, value, limits::kDataBuffer);
    });
}

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

void Copy(const std::string& text, char* buffer) {
    if (buffer == nullptr) throw Failure(kBadArgument, "no buffer");
    std::memcpy(buffer, text.c_str(), text.size() + 1);
}

std::string CheckedName(const char* name) {
    const std::size_t length = name != nullptr ? strnlen(name, limits::kLongestDataName + 1) : 0;
    if (length < limits::kShortestDataName || length > limits::kLongestDataName) {
        throw Failure(kBadArgument, "the name of a data object has 10 to 16 characters");
    }
    return std::string(name, length);
}

}  // namespace
}  // namespace softkey

using namespace softkey;

// state becomes the number of keys present.
int CheckDeviceEx(std::uint32_t* state, _S_DEV_CONFIG* record, std::uint32_t one, char* serial) {
    return Enter({"CheckDeviceEx"}, [=](Call& call) {
        if (one != 1) throw Failure(kBadArgument, "one record is asked for at a time");
        LockedDevice device;
        if (state != nullptr) {
            *state = 0;
            for (const KeyRecord& key : device.Keys()) *state += key.inserted ? 1 : 0;
        }
        const KeyRecord key = device.Resolve(nullptr);
        static_cast<void>(call);
        Copy(key.serial, serial);
        if (record != nullptr) {
            std::memcpy(record->szMediaId, key.mediaId.data(), key.mediaId.size());
        }
    });
}

// mediaId: 17 bytes, which take the 16 characters and a NUL.
int GetMediaID(const char* serial, char* mediaId) {
    return Enter({"GetMediaID", serial}, [=](Call&) { Copy(KeyOf(serial).mediaId, mediaId); });
}

int GetLabel(char* serial, char* label) {
    return Enter({"GetLabel", serial}, [=](Call&) { Copy(KeyOf(serial).label, label); });
}

int SetLabel(const char* serial, const char* label) {
    return Enter({"SetLabel", serial}, [=](Call& call) {
        if (label == nullptr) throw Failure(kBadArgument, "no label");
        const KeyRecord key = KeyOf(serial);
        call.Midway(key);
        Change change(key);
        KeyTable(change.store()).SetLabel(key.serial, label);
        change.Commit();
    });
}

// argument2 is part of the object's name: the same text with another number is another object.
int SetData(const char* name, std::uint32_t argument2, const char* value) {
    return Enter({"SetData"}, [=](Call& call) {
        if (value == nullptr) throw Failure(kBadArgument, "no value");
        const std::string checked = CheckedName(name);
        const KeyRecord key = KeyOf(nullptr);
        call.Midway(key);
        Change change(key);
        ObjectTable(change.store()).Set(key.serial, {checked, argument2, value});
        change.Commit();
    });
}

int GetData(const char* name, std::uint32_t argument2, char* value) {
    return Enter({"GetData"}, [=](Call&) {
        const std::string checked = CheckedName(name);
        LockedDevice device;
        const KeyRecord key = device.Resolve(nullptr);
        const auto found = ObjectTable(device.store()).Get(key.serial, checked, argument2);
        if (!found) throw Failure(kDataNotFound, checked);
        if (found->size() > kMaxDataLength) throw Failure(kStateDamaged, checked);
        Copy(*found, value);
    });
}

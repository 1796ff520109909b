// What the command `softkey` does to keys and what needs more than one table.
#ifndef SOFTKEY_STORE_KEY_ADMIN_H
#define SOFTKEY_STORE_KEY_ADMIN_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "softkey/crypto/issuing.h"
#include "softkey/crypto/vault.h"
#include "softkey/store/records.h"
#include "softkey/store/store.h"

namespace softkey {

struct NewKey {
    std::string serial;                 // empty: one is made up
    std::string label;                  // empty: the serial number
    std::string mediaId;                // empty: one is made up
    std::optional<std::uint32_t> slot;  // unset: the lowest free one, from 1
    bool inserted = true;
    int triesLeft = kMaxTries;             // 0: locked
    std::optional<Validity> certificates;  // set: with both pairs and their certificates
    std::optional<PinCost> pinCost;        // unset: as the environment says
};

// Makes a key with a PIN. kPinLength; kBadArgument for what is malformed or
// taken; kTooLong.
KeyRecord CreateKey(Store& store, const NewKey& wanted, std::string_view pin);

// Gives back all tries; the PIN stays. kKeyAbsent.
void UnlockKey(Store& store, const std::string& serial);

}  // namespace softkey

#endif

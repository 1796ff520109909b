#include "softkey/store/key_admin.h"

#include <openssl/rand.h>

#include <algorithm>
#include <array>

#include "softkey/crypto/vault.h"
#include "softkey/store/keys.h"
#include "softkey/store/pins.h"

namespace softkey {
namespace {

// Ten digits after a prefix that says what it is.
std::string MadeUp(const char* prefix) {
    std::array<unsigned char, 10> random{};
    if (RAND_bytes(random.data(), static_cast<int>(random.size())) != 1) {
        throw Failure(kCryptoFailed, "random numbers");
    }
    std::string text = prefix;
    for (const unsigned char byte : random) text += static_cast<char>('0' + byte % 10);
    return text;
}

std::uint32_t LowestFreeSlot(Store& store) {
    std::uint32_t slot = 1;
    for (const KeyRecord& key : KeyTable(store).All()) {
        if (key.slot == slot) ++slot;  // they come in the order of their slots
    }
    return slot;
}

}  // namespace

KeyRecord CreateKey(Store& store, const NewKey& wanted, std::string_view pin) {
    CheckPinLength(pin);
    KeyRecord key;
    key.serial = wanted.serial.empty() ? MadeUp("KS") : wanted.serial;
    key.label = wanted.label.empty() ? key.serial : wanted.label;
    key.mediaId = wanted.mediaId.empty() ? MadeUp("KM") : wanted.mediaId;
    key.inserted = wanted.inserted;
    const PinSeal seal = SealMaster(MasterKey::Random(), pin, key.serial, wanted.pinCost);
    Transaction transaction(store);
    key.slot = wanted.slot ? *wanted.slot : LowestFreeSlot(store);
    KeyTable(store).Add(key, seal);
    transaction.Commit();
    return key;
}

void UnlockKey(Store& store, const std::string& serial) {
    PinTable(store).ResetTries(serial);
}

}  // namespace softkey

#include "softkey/store/key_admin.h"

#include <algorithm>
#include <array>

#include "softkey/crypto/vault.h"
#include "softkey/store/keys.h"
#include "softkey/store/pairs.h"
#include "softkey/store/pins.h"

namespace softkey {
namespace {

// Ten digits after a prefix that says what it is.
std::string MadeUp(const char* prefix) {
    std::array<unsigned char, 10> random{};
    FillRandom(random.data(), random.size());
    std::string text = prefix;
    for (const unsigned char byte : random) text += static_cast<char>('0' + byte % 10);
    return text;
}

}  // namespace

KeyRecord CreateKey(Store& store, const NewKey& wanted, std::string_view pin) {
    CheckPinLength(pin);
    KeyRecord key;
    key.serial = wanted.serial.empty() ? MadeUp("KS") : wanted.serial;
    key.label = wanted.label.empty() ? key.serial : wanted.label;
    key.mediaId = wanted.mediaId.empty() ? MadeUp("KM") : wanted.mediaId;
    key.inserted = wanted.inserted;
    key.triesLeft = wanted.triesLeft;
    const MasterKey master = MasterKey::Random();
    const PinSeal seal =
        SealMaster(master, pin, key.serial, wanted.pinCost ? *wanted.pinCost : CostOfNewKeys());
    std::vector<PairRecord> pairs;
    if (wanted.certificates) pairs = CertifiedPairs(key.serial, master, *wanted.certificates);
    Transaction transaction(store);
    key.slot = wanted.slot ? *wanted.slot : KeyTable(store).LowestFreeSlot();
    KeyTable(store).Add(key, seal);
    for (const PairRecord& pair : pairs) PairTable(store).Add(key.serial, pair);
    transaction.Commit();
    return key;
}

void UnlockKey(Store& store, const std::string& serial) {
    PinTable(store).ResetTries(serial);
}

}  // namespace softkey

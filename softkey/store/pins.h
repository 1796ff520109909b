// The PIN of each key: its seal and the tries that are left.
#ifndef SOFTKEY_STORE_PINS_H
#define SOFTKEY_STORE_PINS_H

#include <string>

#include "softkey/store/records.h"
#include "softkey/store/store.h"

namespace softkey {

class Statement;

// Binds the columns salt, kdf, cost, block, parallel, sealed, in this order.
Statement& BindSeal(Statement& statement, const PinSeal& seal);

class PinTable : private Table {
public:
    using Table::Table;

    PinSeal Seal(const std::string& serial);
    void SetSeal(const std::string& serial, const PinSeal& seal);  // also gives back all tries
    // A PIN that any process verified before must be verified again.
    void EndVerifications(const std::string& serial);
    // Counts one try and returns how many are left after it. kPinLocked when none was left.
    int TakeTry(const std::string& serial);
    void ResetTries(const std::string& serial);
    void SetTries(const std::string& serial, int left);
};

}  // namespace softkey

#endif

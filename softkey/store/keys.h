// The keys of a state folder.
#ifndef SOFTKEY_STORE_KEYS_H
#define SOFTKEY_STORE_KEYS_H

#include <optional>
#include <string>
#include <vector>

#include "softkey/store/records.h"
#include "softkey/store/store.h"

namespace softkey {

class KeyTable : private Table {
public:
    using Table::Table;

    std::vector<KeyRecord> All();  // ordered by slot
    std::optional<KeyRecord> Find(const std::string& serial);
    // kBadArgument for a serial, media id or slot that is malformed or taken; kTooLong.
    // An inserted key raises its event.
    void Add(const KeyRecord& key, const PinSeal& seal);
    // With all that is on it. An inserted key raises its event. kKeyAbsent.
    void Delete(const std::string& serial);
    // Puts the key into its slot, or another one, or pulls it out, and raises the event. False when
    // it is so already. A key that is not inserted makes room; kBadArgument for the slot of one
    // that is.
    bool SetInserted(const std::string& serial, bool inserted,
                     std::optional<std::uint32_t> slot = std::nullopt);
    std::uint32_t LowestFreeSlot();  // from 1
    void SetLabel(const std::string& serial, const std::string& label);
    // Key pairs, certificates and data objects go; serial number, label, media id and PIN stay.
    void Erase(const std::string& serial);

private:
    void RequireFree(const KeyRecord& key);
    void MoveTo(std::uint32_t slot, const std::string& serial);
};

}  // namespace softkey

#endif

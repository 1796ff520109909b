// Insertions and removals, oldest first. The log keeps the last 1000.
#ifndef SOFTKEY_STORE_EVENTS_H
#define SOFTKEY_STORE_EVENTS_H

#include <vector>

#include "softkey/store/records.h"
#include "softkey/store/store.h"

namespace softkey {

class EventLog : private Table {
public:
    using Table::Table;

    void Raise(const KeyRecord& key, EventKind kind);
    std::int64_t LastNumber();
    std::vector<Event> After(std::int64_t number);
};

}  // namespace softkey

#endif

#include "softkey/misbehaviour/state_effects.h"

#include <algorithm>

#include "softkey/store/events.h"
#include "softkey/store/keys.h"
#include "softkey/store/pins.h"
#include "softkey/store/store.h"

namespace softkey {
namespace {

// Raises an event for each slot of one list that the other lacks.
void Raise(Store& store, EventKind kind, const std::vector<std::uint32_t>& slots,
           const std::vector<std::uint32_t>& others) {
    for (const std::uint32_t slot : slots) {
        if (std::find(others.begin(), others.end(), slot) != others.end()) continue;
        KeyRecord device;
        device.slot = slot;
        EventLog(store).Raise(device, kind);
    }
}

}  // namespace

void FollowPlan(const std::string& home, const MisbehaviourPlanText& before,
                const MisbehaviourPlanText& after) {
    if (before.foreign == after.foreign && !after.triesLeft) return;
    const std::unique_ptr<Store> store = Store::OpenExisting(home);
    if (!store) return;
    Transaction transaction(*store);
    Raise(*store, EventKind::kRemoved, before.foreign, after.foreign);
    Raise(*store, EventKind::kInserted, after.foreign, before.foreign);
    if (after.triesLeft) {
        const int most = static_cast<int>(*after.triesLeft);
        for (const KeyRecord& key : KeyTable(*store).All()) {
            if (key.triesLeft > most) PinTable(*store).SetTries(key.serial, most);
        }
    }
    transaction.Commit();
}

}  // namespace softkey

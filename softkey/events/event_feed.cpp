#include "softkey/events/event_feed.h"

#include <utility>

#include "softkey/store/events.h"
#include "softkey/store/home.h"
#include "softkey/store/keys.h"

namespace softkey {
namespace {

constexpr int kCallsBetweenLooks = 50;  // one second of a wait that polls every 20 ms

}  // namespace

void EventFeed::Begin() {
    callsSinceLook_ = kCallsBetweenLooks;
    Attend();
}

std::vector<KeyRecord> EventFeed::Keys() {
    Begin();
    return store_ ? KeyTable(*store_).All() : std::vector<KeyRecord>();
}

const Event* EventFeed::Next() {
    Attend();
    if (waiting_.empty() && store_) {
        // Asked first: what is written after it makes the next call look again.
        const std::int64_t version = store_->Version();
        if (version_ != version) {
            for (Event& event : EventLog(*store_).After(seen_)) {
                seen_ = event.number;
                sawRemoval_ = sawRemoval_ || event.kind == EventKind::kRemoved;
                waiting_.push_back(std::move(event));
            }
            version_ = version;
        }
    }
    return waiting_.empty() ? nullptr : &waiting_.front();
}

Event EventFeed::Take() {
    Event event = std::move(waiting_.front());
    waiting_.pop_front();
    return event;
}

// Sees to it that store_ is the database that is there now, or null when there is none.
void EventFeed::Attend() {
    if (store_ && ++callsSinceLook_ < kCallsBetweenLooks) return;
    callsSinceLook_ = 0;
    const std::string home = StateHome();
    if (store_ && home == home_ && store_->StillThere()) return;
    Reopen(home);
}

void EventFeed::Reopen(const std::string& home) {
    const bool elsewhere = home != home_;
    const bool replaced = store_ != nullptr && !elsewhere;
    store_.reset();
    version_.reset();
    if (replaced || elsewhere) waiting_.clear();
    if (replaced) seen_ = 0;  // before anything can fail: the next call no longer knows
    std::unique_ptr<Store> opened = Store::OpenExisting(home);
    if (!begun_ || elsewhere) seen_ = opened ? EventLog(*opened).LastNumber() : 0;
    store_ = std::move(opened);
    home_ = home;
    begun_ = true;
}

}  // namespace softkey

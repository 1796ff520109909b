// The events of the state folder as one process sees them: each once, in order, none left out.
#ifndef SOFTKEY_EVENTS_EVENT_FEED_H
#define SOFTKEY_EVENTS_EVENT_FEED_H

#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "softkey/store/records.h"
#include "softkey/store/store.h"

namespace softkey {

// For one thread at a time. Members throw Failure.
//
// The feed begins with the first call of any member: what happens after it is delivered, also when
// nobody is waiting at that moment. A folder that comes into being later, or takes the place of
// another at the same path, is new as a whole, so all its events are delivered. What was not taken
// of a folder that is gone, or no longer the one that the environment names, is dropped.
//
// A call of Next without news costs two looks at files, and a third each fiftieth time, to find out
// that the state was replaced.
class EventFeed {
public:
    // Begins the feed, or makes sure that it reads the folder that the environment names now.
    void Begin();
    std::vector<KeyRecord> Keys();

    // The oldest event that was not taken yet, which stays until it is taken; null without one.
    const Event* Next();
    Event Take();
    // True, once, when a removal was read since it was asked last.
    bool SawRemoval() { return std::exchange(sawRemoval_, false); }

private:
    void Attend();
    void Reopen(const std::string& home);

    std::unique_ptr<Store> store_;
    std::string home_;
    int callsSinceLook_ = 0;
    bool begun_ = false;
    bool sawRemoval_ = false;
    std::int64_t seen_ = 0;  // the number of the newest event that was read
    std::optional<std::int64_t> version_;
    std::deque<Event> waiting_;
};

}  // namespace softkey

#endif

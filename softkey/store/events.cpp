#include "softkey/store/events.h"

#include "softkey/store/database.h"

namespace softkey {
namespace {

constexpr std::int64_t kEventsKept = 1000;

}  // namespace

void EventLog::Raise(const KeyRecord& key, EventKind kind) {
    db().Prepare("INSERT INTO events(kind, slot, serial, media_id) VALUES(?, ?, ?, ?)")
        .Bind(static_cast<std::int64_t>(kind))
        .Bind(static_cast<std::int64_t>(key.slot))
        .Bind(key.serial)
        .Bind(key.mediaId)
        .Run();
    db().Prepare("DELETE FROM events WHERE number <= ?").Bind(db().LastId() - kEventsKept).Run();
}

std::int64_t EventLog::LastNumber() {
    Statement query = db().Prepare("SELECT seq FROM sqlite_sequence WHERE name = 'events'");
    return query.Step() ? query.Int(0) : 0;
}

std::vector<Event> EventLog::After(std::int64_t number) {
    std::vector<Event> events;
    Statement query = db().Prepare(
        "SELECT number, kind, slot, serial, media_id FROM events WHERE number > ? ORDER BY number");
    query.Bind(number);
    while (query.Step()) {
        Event event;
        event.number = query.Int(0);
        event.kind = static_cast<EventKind>(query.Int(1));
        event.slot = static_cast<std::uint32_t>(query.Int(2));
        event.serial = query.Text(3);
        event.mediaId = query.Text(4);
        events.push_back(std::move(event));
    }
    return events;
}

}  // namespace softkey

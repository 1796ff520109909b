#include "softkey/store/keys.h"

#include "softkey/result.h"
#include "softkey/store/database.h"
#include "softkey/store/events.h"
#include "softkey/store/pins.h"
#include "softkey/store/screen.h"

namespace softkey {
namespace {

constexpr const char* kKeyColumns =
    "SELECT serial, label, media_id, slot, inserted, insertions, pin_version, tries_left,"
    " max_tries, button FROM keys ORDER BY slot";

bool IsName(const std::string& text, std::size_t longest) {
    constexpr const char* kAllowed =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_.";
    return !text.empty() && text.size() <= longest && text[0] != '.' &&
           text.find_first_not_of(kAllowed) == std::string::npos;
}

void CheckNames(const KeyRecord& key) {
    if (!IsName(key.serial, kMaxSerialLength)) {
        throw Failure(
            kBadArgument,
            Sentence("serial number \"{1}\": 1 to 32 letters, digits, \"-\", \"_\" and \".\"",
                     {key.serial}));
    }
    if (!IsName(key.mediaId, kMaxMediaIdLength)) {
        throw Failure(kBadArgument,
                      Sentence("media id \"{1}\": 1 to 16 letters, digits, \"-\", \"_\" and \".\"",
                               {key.mediaId}));
    }
    if (key.label.size() > kMaxLabelLength) throw Failure(kTooLong, "label: at most 511 bytes");
}

KeyRecord KeyFromRow(const Statement& row) {
    KeyRecord key;
    key.serial = row.Text(0);
    key.label = row.Text(1);
    key.mediaId = row.Text(2);
    key.slot = static_cast<std::uint32_t>(row.Int(3));
    key.inserted = row.Int(4) != 0;
    key.insertions = row.Int(5);
    key.pinVersion = row.Int(6);
    key.triesLeft = static_cast<int>(row.Int(7));
    key.maxTries = static_cast<int>(row.Int(8));
    key.button = static_cast<Button>(row.Int(9));
    return key;
}

}  // namespace

std::vector<KeyRecord> KeyTable::All() {
    std::vector<KeyRecord> keys;
    Statement query = db().Prepare(kKeyColumns);
    while (query.Step()) keys.push_back(KeyFromRow(query));
    return keys;
}

std::optional<KeyRecord> KeyTable::Find(const std::string& serial) {
    for (KeyRecord& key : All()) {
        if (key.serial == serial) return std::move(key);
    }
    return std::nullopt;
}

void KeyTable::RequireFree(const KeyRecord& key) {
    for (const KeyRecord& other : All()) {
        if (other.serial == key.serial) {
            throw Failure(kBadArgument, Sentence("serial number {1} is taken", {key.serial}));
        }
        if (other.mediaId == key.mediaId) {
            throw Failure(kBadArgument, Sentence("media id {1} is taken", {key.mediaId}));
        }
        if (other.slot == key.slot) {
            throw Failure(kBadArgument, Sentence("slot {1} is taken", {std::to_string(key.slot)}));
        }
    }
}

void KeyTable::Add(const KeyRecord& key, const PinSeal& seal) {
    CheckNames(key);
    Transaction transaction(store_);
    RequireFree(key);
    Statement insert = db().Prepare(
        "INSERT INTO keys(serial, label, media_id, slot, inserted, insertions, pin_version,"
        " tries_left, max_tries, button, salt, kdf, cost, block, parallel, sealed)"
        " VALUES(?, ?, ?, ?, ?, ?, 1, ?, ?, ?, ?, ?, ?, ?, ?, ?)");
    insert.Bind(key.serial)
        .Bind(key.label)
        .Bind(key.mediaId)
        .Bind(static_cast<std::int64_t>(key.slot))
        .Bind(static_cast<std::int64_t>(key.inserted ? 1 : 0))
        // Each insertion and removal of an earlier key of this name was an event.
        .Bind(2 * EventLog(store_).LastNumber() + 1)
        .Bind(static_cast<std::int64_t>(key.triesLeft))
        .Bind(static_cast<std::int64_t>(key.maxTries))
        .Bind(static_cast<std::int64_t>(key.button));
    BindSeal(insert, seal).Run();
    if (key.inserted) EventLog(store_).Raise(key, EventKind::kInserted);
    transaction.Commit();
}

void KeyTable::Delete(const std::string& serial) {
    Transaction transaction(store_);
    const std::optional<KeyRecord> key = Find(serial);
    if (!key) throw Failure(kKeyAbsent, serial);
    if (key->inserted) EventLog(store_).Raise(*key, EventKind::kRemoved);
    db().Prepare("DELETE FROM keys WHERE serial = ?").Bind(serial).Run();
    transaction.Commit();
    Screen(store_).Forget(serial);
}

std::uint32_t KeyTable::LowestFreeSlot() {
    std::uint32_t slot = 1;
    for (const KeyRecord& key : All()) {
        if (key.slot == slot) ++slot;  // they come in the order of their slots
    }
    return slot;
}

void KeyTable::MoveTo(std::uint32_t slot, const std::string& serial) {
    db().Prepare("UPDATE keys SET slot = ? WHERE serial = ?")
        .Bind(static_cast<std::int64_t>(slot))
        .Bind(serial)
        .Run();
}

bool KeyTable::SetInserted(const std::string& serial, bool inserted,
                           std::optional<std::uint32_t> slot) {
    Transaction transaction(store_);
    std::optional<KeyRecord> key = Find(serial);
    if (!key) throw Failure(kKeyAbsent, serial);
    if (key->inserted == inserted) {
        transaction.Commit();
        return false;
    }
    if (slot && *slot != key->slot) {
        for (const KeyRecord& other : All()) {
            if (other.slot != *slot) continue;
            if (other.inserted)
                throw Failure(kBadArgument, Sentence("slot {1} is taken by {2}",
                                                     {std::to_string(*slot), other.serial}));
            MoveTo(LowestFreeSlot(), other.serial);
        }
        MoveTo(*slot, serial);
        key->slot = *slot;
    }
    db().Prepare("UPDATE keys SET inserted = ?, insertions = insertions + 1 WHERE serial = ?")
        .Bind(static_cast<std::int64_t>(inserted ? 1 : 0))
        .Bind(serial)
        .Run();
    EventLog(store_).Raise(*key, inserted ? EventKind::kInserted : EventKind::kRemoved);
    transaction.Commit();
    return true;
}

void KeyTable::SetLabel(const std::string& serial, const std::string& label) {
    if (label.size() > kMaxLabelLength) throw Failure(kTooLong, "label: at most 511 bytes");
    Transaction transaction(store_);
    db().Prepare("UPDATE keys SET label = ? WHERE serial = ?").Bind(label).Bind(serial).Run();
    if (db().Changes() == 0) throw Failure(kKeyAbsent, serial);
    transaction.Commit();
}

void KeyTable::Erase(const std::string& serial) {
    Transaction transaction(store_);
    if (!Find(serial)) throw Failure(kKeyAbsent, serial);
    db().Prepare("DELETE FROM pairs WHERE serial = ?").Bind(serial).Run();
    db().Prepare("DELETE FROM data WHERE serial = ?").Bind(serial).Run();
    transaction.Commit();
}

}  // namespace softkey

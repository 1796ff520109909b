#include "softkey/store/store.h"

#include <sys/stat.h>

#include <cerrno>
#include <stdexcept>

#include "softkey/store/database.h"
#include "softkey/store/home.h"

namespace softkey {
namespace {

constexpr int kSchemaVersion = 1;
constexpr std::int64_t kEventsKept = 1000;

constexpr const char* kSchema = R"sql(
CREATE TABLE keys(
    serial TEXT PRIMARY KEY NOT NULL,
    label TEXT NOT NULL,
    media_id TEXT NOT NULL UNIQUE,
    slot INTEGER NOT NULL UNIQUE CHECK(slot BETWEEN 0 AND 4294967295),
    inserted INTEGER NOT NULL CHECK(inserted IN (0, 1)),
    insertions INTEGER NOT NULL,
    pin_version INTEGER NOT NULL,
    max_tries INTEGER NOT NULL CHECK(max_tries BETWEEN 1 AND 255),
    tries_left INTEGER NOT NULL CHECK(tries_left BETWEEN 0 AND max_tries),
    button INTEGER NOT NULL CHECK(button IN (0, 1, 2)),
    salt BLOB NOT NULL,
    iterations INTEGER NOT NULL CHECK(iterations > 0),
    sealed BLOB NOT NULL) STRICT;
CREATE TABLE pairs(
    id INTEGER PRIMARY KEY AUTOINCREMENT,
    serial TEXT NOT NULL REFERENCES keys(serial) ON DELETE CASCADE,
    role INTEGER NOT NULL CHECK(role IN (1, 3, 4)),
    algorithm INTEGER NOT NULL CHECK(algorithm IN (1, 2)),
    public_key BLOB NOT NULL,
    wrapped BLOB NOT NULL,
    certificate BLOB NOT NULL) STRICT;
CREATE INDEX pairs_of_key ON pairs(serial);
CREATE TABLE data(
    serial TEXT NOT NULL REFERENCES keys(serial) ON DELETE CASCADE,
    name TEXT NOT NULL,
    number INTEGER NOT NULL,
    value TEXT NOT NULL,
    PRIMARY KEY(serial, name, number)) STRICT;
CREATE TABLE events(
    number INTEGER PRIMARY KEY AUTOINCREMENT,
    kind INTEGER NOT NULL CHECK(kind IN (1, 2)),
    slot INTEGER NOT NULL,
    serial TEXT NOT NULL,
    media_id TEXT NOT NULL) STRICT;
CREATE TABLE prompts(
    id INTEGER PRIMARY KEY AUTOINCREMENT,
    serial TEXT NOT NULL REFERENCES keys(serial) ON DELETE CASCADE,
    deadline INTEGER NOT NULL,
    answer INTEGER CHECK(answer IN (0, 1))) STRICT;
PRAGMA user_version = 1;
)sql";

constexpr const char* kKeyColumns =
    "SELECT serial, label, media_id, slot, inserted, insertions, pin_version, tries_left,"
    " max_tries, button FROM keys ORDER BY slot";

std::int64_t SchemaVersion(Database& db) {
    Statement query = db.Prepare("PRAGMA user_version");
    return query.Step() ? query.Int(0) : 0;
}

bool IsName(const std::string& text, std::size_t longest) {
    constexpr const char* kAllowed =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_.";
    return !text.empty() && text.size() <= longest && text[0] != '.' &&
           text.find_first_not_of(kAllowed) == std::string::npos;
}

void CheckNames(const KeyRecord& key) {
    if (!IsName(key.serial, kMaxSerialLength)) {
        throw Failure(kBadArgument, "serial number \"" + key.serial +
                                        "\": 1 to 32 letters, digits, \"-\", \"_\" and \".\"");
    }
    if (!IsName(key.mediaId, kMaxMediaIdLength)) {
        throw Failure(kBadArgument, "media id \"" + key.mediaId +
                                        "\": 1 to 16 letters, digits, \"-\", \"_\" and \".\"");
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

std::unique_ptr<Store> Store::Open(const std::string& home) {
    MakeHome(home);
    return std::unique_ptr<Store>(new Store(home, true));
}

std::unique_ptr<Store> Store::OpenExisting(const std::string& home) {
    struct stat status {};
    if (stat((home + "/softkey.db").c_str(), &status) != 0) {
        if (errno == ENOENT || errno == ENOTDIR) return nullptr;
    }
    return std::unique_ptr<Store>(new Store(home, false));
}

Store::Store(const std::string& home, bool create)
    : home_(home), db_(std::make_unique<Database>(home + "/softkey.db", create)) {
    std::int64_t version = SchemaVersion(*db_);
    if (version == 0) {
        db_->Execute("PRAGMA journal_mode = WAL");
        Transaction transaction(*this);
        // Another process may have been quicker.
        version = SchemaVersion(*db_);
        if (version == 0) {
            db_->Execute(kSchema);
            version = kSchemaVersion;
        }
        transaction.Commit();
    }
    if (version != kSchemaVersion) {
        throw Failure(kStateDamaged, home + "/softkey.db: schema version " +
                                         std::to_string(version) + " is not known");
    }
}

Store::~Store() = default;

Store::Transaction::Transaction(Store& store) : store_(store), outermost_(store.depth_ == 0) {
    if (outermost_) store_.db_->Execute("BEGIN IMMEDIATE");
    ++store_.depth_;
}

Store::Transaction::~Transaction() {
    --store_.depth_;
    if (done_) return;
    if (!outermost_) {
        store_.broken_ = true;
        return;
    }
    store_.broken_ = false;
    try {
        store_.db_->Execute("ROLLBACK");
    } catch (const Failure&) {
        // SQLite has rolled back by itself, as it does when the disk is full.
    }
}

void Store::Transaction::Commit() {
    if (outermost_) {
        if (store_.broken_) throw std::logic_error("a part of the transaction failed");
        store_.db_->Execute("COMMIT");
    }
    done_ = true;
}

std::int64_t Store::Version() {
    // The pragma counts what other connections changed, the connection what it changed itself.
    Statement query = db_->Prepare("PRAGMA data_version");
    query.Step();
    return static_cast<std::int64_t>(
        (static_cast<std::uint64_t>(query.Int(0)) << 32) |
        (static_cast<std::uint64_t>(db_->TotalChanges()) & 0xFFFFFFFF));
}

bool Store::StillThere() const {
    return db_->StillThere();
}

std::vector<KeyRecord> Store::Keys() {
    std::vector<KeyRecord> keys;
    Statement query = db_->Prepare(kKeyColumns);
    while (query.Step()) keys.push_back(KeyFromRow(query));
    return keys;
}

std::optional<KeyRecord> Store::FindKey(const std::string& serial) {
    for (KeyRecord& key : Keys()) {
        if (key.serial == serial) return std::move(key);
    }
    return std::nullopt;
}

void Store::AddKey(const KeyRecord& key, const PinSeal& seal) {
    CheckNames(key);
    Transaction transaction(*this);
    for (const KeyRecord& other : Keys()) {
        if (other.serial == key.serial) {
            throw Failure(kBadArgument, "serial number " + key.serial + " is taken");
        }
        if (other.mediaId == key.mediaId) {
            throw Failure(kBadArgument, "media id " + key.mediaId + " is taken");
        }
        if (other.slot == key.slot) {
            throw Failure(kBadArgument, "slot " + std::to_string(key.slot) + " is taken");
        }
    }
    db_->Prepare(
           "INSERT INTO keys(serial, label, media_id, slot, inserted, insertions, pin_version,"
           " tries_left, max_tries, button, salt, iterations, sealed)"
           " VALUES(?, ?, ?, ?, ?, 1, 1, ?, ?, ?, ?, ?, ?)")
        .Bind(key.serial)
        .Bind(key.label)
        .Bind(key.mediaId)
        .Bind(static_cast<std::int64_t>(key.slot))
        .Bind(static_cast<std::int64_t>(key.inserted ? 1 : 0))
        .Bind(static_cast<std::int64_t>(key.triesLeft))
        .Bind(static_cast<std::int64_t>(key.maxTries))
        .Bind(static_cast<std::int64_t>(key.button))
        .Bind(seal.salt)
        .Bind(static_cast<std::int64_t>(seal.iterations))
        .Bind(seal.sealed)
        .Run();
    if (key.inserted) RaiseEvent(key, EventKind::kInserted);
    transaction.Commit();
}

void Store::DeleteKey(const std::string& serial) {
    Transaction transaction(*this);
    const std::optional<KeyRecord> key = FindKey(serial);
    if (!key) throw Failure(kKeyAbsent, serial);
    if (key->inserted) RaiseEvent(*key, EventKind::kRemoved);
    db_->Prepare("DELETE FROM keys WHERE serial = ?").Bind(serial).Run();
    transaction.Commit();
    ForgetScreen(serial);
}

bool Store::SetInserted(const std::string& serial, bool inserted) {
    Transaction transaction(*this);
    const std::optional<KeyRecord> key = FindKey(serial);
    if (!key) throw Failure(kKeyAbsent, serial);
    if (key->inserted == inserted) {
        transaction.Commit();
        return false;
    }
    db_->Prepare("UPDATE keys SET inserted = ?, insertions = insertions + 1 WHERE serial = ?")
        .Bind(static_cast<std::int64_t>(inserted ? 1 : 0))
        .Bind(serial)
        .Run();
    RaiseEvent(*key, inserted ? EventKind::kInserted : EventKind::kRemoved);
    transaction.Commit();
    return true;
}

void Store::SetLabel(const std::string& serial, const std::string& label) {
    if (label.size() > kMaxLabelLength) throw Failure(kTooLong, "label: at most 511 bytes");
    Transaction transaction(*this);
    db_->Prepare("UPDATE keys SET label = ? WHERE serial = ?").Bind(label).Bind(serial).Run();
    RequireChange(serial);
    transaction.Commit();
}

void Store::RequireChange(const std::string& serial) {
    if (db_->Changes() == 0) throw Failure(kKeyAbsent, serial);
}

void Store::RaiseEvent(const KeyRecord& key, EventKind kind) {
    db_->Prepare("INSERT INTO events(kind, slot, serial, media_id) VALUES(?, ?, ?, ?)")
        .Bind(static_cast<std::int64_t>(kind))
        .Bind(static_cast<std::int64_t>(key.slot))
        .Bind(key.serial)
        .Bind(key.mediaId)
        .Run();
    db_->Prepare("DELETE FROM events WHERE number <= ?").Bind(db_->LastId() - kEventsKept).Run();
}

std::int64_t Store::LastEventNumber() {
    Statement query = db_->Prepare("SELECT seq FROM sqlite_sequence WHERE name = 'events'");
    return query.Step() ? query.Int(0) : 0;
}

std::vector<Event> Store::EventsAfter(std::int64_t number) {
    std::vector<Event> events;
    Statement query = db_->Prepare(
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

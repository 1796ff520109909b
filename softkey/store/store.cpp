#include "softkey/store/store.h"

#include <sys/stat.h>

#include <cerrno>
#include <stdexcept>

#include "softkey/store/database.h"
#include "softkey/store/home.h"

namespace softkey {
namespace {

constexpr int kSchemaVersion = 1;

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

std::int64_t SchemaVersion(Database& db) {
    Statement query = db.Prepare("PRAGMA user_version");
    return query.Step() ? query.Int(0) : 0;
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

Transaction::Transaction(Store& store) : store_(store), outermost_(store.depth_ == 0) {
    if (outermost_) store_.db_->Execute("BEGIN IMMEDIATE");
    ++store_.depth_;
}

Transaction::~Transaction() {
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

void Transaction::Commit() {
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

}  // namespace softkey

#include "softkey/store/schema.h"

#include <fcntl.h>

#include <cerrno>

#include "softkey/store/file.h"
#include "softkey/store/places.h"

namespace softkey {
namespace {

// kdf says how the PIN becomes a key: 1 PBKDF2, 2 scrypt. cost is the number of iterations or
// scrypt's N; block and parallel are scrypt's r and p.
constexpr const char* kSchema = R"sql(
PRAGMA page_size = 1024;
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
    kdf INTEGER NOT NULL CHECK(kdf IN (1, 2)),
    cost INTEGER NOT NULL CHECK(cost > 0),
    block INTEGER NOT NULL,
    parallel INTEGER NOT NULL,
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
PRAGMA user_version = 2;
)sql";

// VACUUM leaves behind what was deleted and not yet overwritten.
constexpr const char* kFromVersion1 = R"sql(
BEGIN;
ALTER TABLE keys RENAME COLUMN iterations TO cost;
ALTER TABLE keys ADD COLUMN kdf INTEGER NOT NULL DEFAULT 1 CHECK(kdf IN (1, 2));
ALTER TABLE keys ADD COLUMN block INTEGER NOT NULL DEFAULT 0;
ALTER TABLE keys ADD COLUMN parallel INTEGER NOT NULL DEFAULT 0;
PRAGMA user_version = 2;
COMMIT;
PRAGMA page_size = 1024;
VACUUM;
)sql";

// An earlier version never took its log away: without one, whatever was in it is lost.
void RequireLog(const std::string& home) {
    std::uint8_t journal = 0;
    File(DatabasePath(home), O_RDONLY)
        .Required()
        .ReadAt(kJournalVersions, &journal, sizeof journal);
    if (journal != 2 || File(OldLogPath(home), O_RDONLY).IsOpen()) return;
    throw Failure(kStateDamaged,
                  Sentence("{1}: copied without its log, softkey.db-wal, which is missing",
                           {DatabasePath(home)}));
}

void RequireSound(Database& db, const std::string& home) {
    Statement check = db.Prepare("PRAGMA integrity_check");
    check.Step();  // the first finding, or that all is well
    if (check.Text(0) == "ok") return;
    throw Failure(kStateDamaged, Sentence("{1}: {2}", {DatabasePath(home), check.Text(0)}));
}

// The database as it would be with its log folded in.
Bytes WholeImage(const std::string& home) {
    Database old(DatabasePath(home));
    RequireSound(old, home);
    return old.Image();
}

}  // namespace

std::int64_t SchemaVersion(Database& db) {
    Statement query = db.Prepare("PRAGMA user_version");
    query.Step();
    return query.Int(0);
}

Bytes FreshImage() {
    Database db{Bytes()};
    db.Execute(kSchema);
    return db.Image();
}

Bytes ImageOfOldState(const std::string& home) {
    RequireLog(home);
    Database db(WholeImage(home));
    const std::int64_t version = SchemaVersion(db);
    if (version == kSchemaVersion) {
        throw Failure(kStateDamaged,
                      Sentence("{1}: missing; softkey.db was copied without it, or is the "
                               "copy of another state",
                               {GuardPath(home)}));
    }
    if (version != 1) {
        throw Failure(kStateDamaged, Sentence("{1}: schema version {2} is not known",
                                              {DatabasePath(home), std::to_string(version)}));
    }
    db.Execute(kFromVersion1);
    return db.Image();
}

}  // namespace softkey

#include "softkey/store/database.h"

#include <unistd.h>

#include <cstring>

#include "softkey/store/file.h"
#include "softkey/store/places.h"

namespace softkey {
namespace {

constexpr int kBusyMilliseconds = 5000;
constexpr std::size_t kSmallest = 512;  // a database of one page

Code CodeOf(int result, int systemError) {
    switch (result & 0xFF) {
        case SQLITE_FULL:
            return kStateFull;
        case SQLITE_BUSY:
        case SQLITE_LOCKED:
            return kStateBusy;
        case SQLITE_NOMEM:
            return kNoMemory;
        case SQLITE_CORRUPT:
        case SQLITE_NOTADB:
        case SQLITE_FORMAT:
        case SQLITE_ERROR:  // a table or column is missing
        case SQLITE_CONSTRAINT:
        case SQLITE_MISMATCH:
        case SQLITE_SCHEMA:
            return kStateDamaged;
        default:
            break;
    }
    if (IsFull(systemError)) return kStateFull;
    // SQLite says "full" for a full disk alone; a quota or a limit on file sizes shows as this, and
    // what the system said has been overwritten by then.
    if (result == SQLITE_IOERR_WRITE || result == SQLITE_IOERR_SHMSIZE) return kStateFull;
    if (result == SQLITE_IOERR_SHORT_READ) return kStateDamaged;
    return kStateUnreachable;
}

}  // namespace

Statement::~Statement() {
    sqlite3_reset(stmt_);
    sqlite3_clear_bindings(stmt_);
}

void Statement::Require(int result) const {
    if (result != SQLITE_OK) db_.Fail(result, sqlite3_sql(stmt_));
}

Statement& Statement::Bind(std::int64_t value) {
    Require(sqlite3_bind_int64(stmt_, next_++, value));
    return *this;
}

Statement& Statement::Bind(const std::string& text) {
    Require(sqlite3_bind_text(stmt_, next_++, text.data(), static_cast<int>(text.size()),
                              SQLITE_STATIC));
    return *this;
}

Statement& Statement::Bind(const Bytes& bytes) {
    // Without an address it would be no bytes' but a missing value.
    const void* const data = bytes.empty() ? static_cast<const void*>(this) : bytes.data();
    Require(sqlite3_bind_blob(stmt_, next_++, data, static_cast<int>(bytes.size()), SQLITE_STATIC));
    return *this;
}

bool Statement::Step() {
    const int result = sqlite3_step(stmt_);
    if (result == SQLITE_ROW) return true;
    if (result == SQLITE_DONE) return false;
    db_.Fail(result, sqlite3_sql(stmt_));
}

void Statement::Run() {
    while (Step()) {
    }
}

std::int64_t Statement::Int(int column) const {
    return sqlite3_column_int64(stmt_, column);
}

std::string Statement::Text(int column) const {
    const bool isNull = sqlite3_column_type(stmt_, column) == SQLITE_NULL;
    const auto* const text = reinterpret_cast<const char*>(sqlite3_column_text(stmt_, column));
    if (text == nullptr && !isNull) throw Failure(kNoMemory);
    if (text == nullptr) return {};
    return {text, static_cast<std::size_t>(sqlite3_column_bytes(stmt_, column))};
}

Bytes Statement::Blob(int column) const {
    const auto* const data = static_cast<const std::uint8_t*>(sqlite3_column_blob(stmt_, column));
    const int size = sqlite3_column_bytes(stmt_, column);
    if (data == nullptr && size != 0) throw Failure(kNoMemory);
    return {data, data + size};
}

Database::Database(const Bytes& image) {
    Open(kDatabaseName, SQLITE_OPEN_READWRITE | SQLITE_OPEN_MEMORY);
    if (!image.empty()) Fill(image);
    // What is deleted must not be found in the file that is written from this.
    Execute("PRAGMA secure_delete = ON");
    Execute("PRAGMA foreign_keys = ON");
}

// A file on a medium that cannot be written has no index of its log beside it. With the medium to
// itself the log can be read without one, and what nobody writes needs no lock.
Database::Database(const std::string& path) {
    const bool writable = access(path.c_str(), W_OK) == 0;
    Open(path, writable ? SQLITE_OPEN_READWRITE : SQLITE_OPEN_READONLY,
         writable ? nullptr : "unix-none");
    if (!writable) Execute("PRAGMA locking_mode = EXCLUSIVE");
    sqlite3_busy_timeout(db_.get(), kBusyMilliseconds);
    sqlite3_db_config(db_.get(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, true, nullptr);
}

void Database::Open(const std::string& name, int flags, const char* fileSystem) {
    name_ = name;
    sqlite3* opened = nullptr;
    const int result =
        sqlite3_open_v2(name.c_str(), &opened, flags | SQLITE_OPEN_NOMUTEX, fileSystem);
    db_.reset(opened);
    if (result != SQLITE_OK) {
        throw Failure(CodeOf(result, sqlite3_system_errno(opened)),
                      Sentence("{1}: {2}", {name_, sqlite3_errstr(result)}));
    }
    sqlite3_extended_result_codes(opened, true);
    sqlite3_db_config(opened, SQLITE_DBCONFIG_DEFENSIVE, true, nullptr);
}

void Database::Fill(const Bytes& image) {
    auto* const copy = static_cast<unsigned char*>(sqlite3_malloc64(image.size()));
    if (copy == nullptr) throw Failure(kNoMemory);
    std::memcpy(copy, image.data(), image.size());
    if (image.size() >= kSmallest) copy[kJournalVersions] = copy[kJournalVersions + 1] = 1;
    const auto size = static_cast<sqlite3_int64>(image.size());
    const int result =
        sqlite3_deserialize(db_.get(), "main", copy, size, size,
                            SQLITE_DESERIALIZE_FREEONCLOSE | SQLITE_DESERIALIZE_RESIZEABLE);
    // What the image holds is looked at later; SQLite calls it an error of whoever asked.
    if (result != SQLITE_OK) throw Failure(kNoMemory);
}

Bytes Database::Image() {
    sqlite3_int64 size = 0;
    const std::unique_ptr<unsigned char, decltype(&sqlite3_free)> bytes(
        sqlite3_serialize(db_.get(), "main", &size, 0), sqlite3_free);
    if (!bytes)
        throw Failure(size > 0 ? kNoMemory : kStateDamaged,
                      Sentence("{1}: cannot be read", {name_}));
    return {bytes.get(), bytes.get() + size};
}

Statement Database::Prepare(const char* sql) {
    auto& kept = statements_[sql];
    if (!kept) {
        sqlite3_stmt* statement = nullptr;
        const int result =
            sqlite3_prepare_v3(db_.get(), sql, -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
        if (result != SQLITE_OK) Fail(result, sql);
        kept.reset(statement);
    }
    return Statement(*this, kept.get());
}

void Database::Execute(const char* sql) {
    const int result = sqlite3_exec(db_.get(), sql, nullptr, nullptr, nullptr);
    if (result != SQLITE_OK) Fail(result, sql);
}

void Database::Fail(int result, const char* doing) const {
    throw Failure(CodeOf(result, sqlite3_system_errno(db_.get())),
                  Sentence("{1}: {2} ({3})", {name_, sqlite3_errmsg(db_.get()), doing}));
}

}  // namespace softkey

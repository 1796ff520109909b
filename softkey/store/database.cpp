#include "softkey/store/database.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

namespace softkey {
namespace {

constexpr int kBusyMilliseconds = 5000;

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
    if (systemError == ENOSPC || systemError == EDQUOT || systemError == EFBIG) return kStateFull;
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

Statement& Statement::Bind(std::int64_t value) {
    const int result = sqlite3_bind_int64(stmt_, next_++, value);
    if (result != SQLITE_OK) db_.Fail(result, "binding a number");
    return *this;
}

Statement& Statement::Bind(std::string_view text) {
    const char* const data = text.empty() ? "" : text.data();
    const int result =
        sqlite3_bind_text(stmt_, next_++, data, static_cast<int>(text.size()), SQLITE_STATIC);
    if (result != SQLITE_OK) db_.Fail(result, "binding a text");
    return *this;
}

Statement& Statement::Bind(const Bytes& bytes) {
    const void* const data = bytes.empty() ? static_cast<const void*>("") : bytes.data();
    const int result =
        sqlite3_bind_blob(stmt_, next_++, data, static_cast<int>(bytes.size()), SQLITE_STATIC);
    if (result != SQLITE_OK) db_.Fail(result, "binding bytes");
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
    if (data == nullptr && size > 0) throw Failure(kNoMemory);
    return {data, data + size};
}

Database::Database(const Bytes& image) {
    Open(":memory:", SQLITE_OPEN_READWRITE | SQLITE_OPEN_MEMORY);
    name_ = "softkey.db";
    try {
        if (!image.empty()) Fill(image);
        // What is deleted must not be found in the file that is written from this.
        Execute("PRAGMA secure_delete = ON");
        Execute("PRAGMA foreign_keys = ON");
    } catch (...) {
        statements_.clear();
        sqlite3_close_v2(db_);
        throw;
    }
}

// A file on a medium that cannot be written has no index of its log beside it; with the medium to
// itself the log can be read without one.
Database::Database(const std::string& path) {
    const bool writable = access(path.c_str(), W_OK) == 0;
    Open(path, writable ? SQLITE_OPEN_READWRITE : SQLITE_OPEN_READONLY);
    sqlite3_busy_timeout(db_, kBusyMilliseconds);
    sqlite3_db_config(db_, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
}

Database::~Database() {
    statements_.clear();
    sqlite3_close_v2(db_);
}

void Database::Open(const std::string& name, int flags) {
    name_ = name;
    const int result = sqlite3_open_v2(name.c_str(), &db_, flags | SQLITE_OPEN_NOMUTEX, nullptr);
    if (result == SQLITE_OK) {
        sqlite3_extended_result_codes(db_, 1);
        sqlite3_db_config(db_, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
        return;
    }
    sqlite3* const opened = std::exchange(db_, nullptr);
    const int systemError = opened != nullptr ? sqlite3_system_errno(opened) : 0;
    sqlite3_close_v2(opened);
    throw Failure(CodeOf(result, systemError),
                  Sentence("{1}: {2}", {name_, sqlite3_errstr(result)}));
}

void Database::Fill(const Bytes& image) {
    auto* const copy = static_cast<unsigned char*>(sqlite3_malloc64(image.size()));
    if (copy == nullptr) throw Failure(kNoMemory);
    std::memcpy(copy, image.data(), image.size());
    const auto size = static_cast<sqlite3_int64>(image.size());
    const int result =
        sqlite3_deserialize(db_, "main", copy, size, size,
                            SQLITE_DESERIALIZE_FREEONCLOSE | SQLITE_DESERIALIZE_RESIZEABLE);
    // What the image holds is looked at later; SQLite calls it an error of whoever asked.
    if (result != SQLITE_OK) throw Failure(kNoMemory);
}

Bytes Database::Image() {
    sqlite3_int64 size = 0;
    const std::unique_ptr<unsigned char, decltype(&sqlite3_free)> bytes(
        sqlite3_serialize(db_, "main", &size, 0), sqlite3_free);
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
            sqlite3_prepare_v3(db_, sql, -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
        if (result != SQLITE_OK) Fail(result, sql);
        kept.reset(statement);
    }
    return Statement(*this, kept.get());
}

void Database::Execute(const char* sql) {
    const int result = sqlite3_exec(db_, sql, nullptr, nullptr, nullptr);
    if (result != SQLITE_OK) Fail(result, sql);
}

void Database::Fail(int result, const char* doing) const {
    const int systemError = db_ != nullptr ? sqlite3_system_errno(db_) : 0;
    const char* const message = db_ != nullptr ? sqlite3_errmsg(db_) : sqlite3_errstr(result);
    throw Failure(CodeOf(result, systemError), Sentence("{1}: {2} ({3})", {name_, message, doing}));
}

}  // namespace softkey

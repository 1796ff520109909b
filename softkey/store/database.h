// A thin owner over SQLite's C interface: one connection, its statements, and one translation of
// SQLite's errors into result codes.
//
// The database is kept in write-ahead mode with full syncing:
// - a commit costs one sync of one file instead of several of three, and a PIN check has two;
// - readers never wait for a writer, so that a signature is not held up by the admin command, and
//   the question "was anything changed" is answered from shared memory;
// - whatever dies in mid-write leaves an unfinished frame behind, which no reader counts.
// The log is not folded back into the database on close, so that the end of a process touches no
// file; it is folded back every 16 pages instead, so that the next process has little to read.
#ifndef SOFTKEY_STORE_DATABASE_H
#define SOFTKEY_STORE_DATABASE_H

#include <sqlite3.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "softkey/result.h"
#include "softkey/store/records.h"

namespace softkey {

class Database;

// One run of a prepared statement. Values are bound in order; text and bytes must live as long.
class Statement {
public:
    Statement(Database& database, sqlite3_stmt* statement) : db_(database), stmt_(statement) {}
    ~Statement();
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    Statement& Bind(std::int64_t value);
    Statement& Bind(std::string_view text);
    Statement& Bind(const Bytes& bytes);

    bool Step();  // true: a row is there
    void Run();   // steps to the end

    std::int64_t Int(int column) const;
    std::string Text(int column) const;
    Bytes Blob(int column) const;

private:
    Database& db_;
    sqlite3_stmt* stmt_;
    int next_ = 1;
};

class Database {
public:
    Database(const std::string& path, bool create);
    ~Database();
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;

    // sql must be a literal: statements are prepared once and kept under its address.
    Statement Prepare(const char* sql);
    void Execute(const char* sql);
    int Changes() const { return sqlite3_changes(db_); }
    std::int64_t TotalChanges() const { return sqlite3_total_changes64(db_); }
    std::int64_t LastId() const { return sqlite3_last_insert_rowid(db_); }
    // The file that this connection has open is still the one of that name.
    bool StillThere() const;

    [[noreturn]] void Fail(int result, const char* doing) const;

private:
    void OpenFile(bool create);
    void Configure();

    struct Finalizer {
        void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
    };

    std::string path_;
    sqlite3* db_ = nullptr;
    std::uint64_t device_ = 0;
    std::uint64_t inode_ = 0;
    std::map<const char*, std::unique_ptr<sqlite3_stmt, Finalizer>> statements_;
};

}  // namespace softkey

#endif

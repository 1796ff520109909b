// A thin owner over SQLite's C interface: one database, its statements, and one translation of
// SQLite's errors into result codes.
//
// The database of a state lives in memory and comes and goes as a whole (state_file.h): reading and
// searching it costs no system call, and what is on the disk is either all of a change or nothing.
#ifndef SOFTKEY_STORE_DATABASE_H
#define SOFTKEY_STORE_DATABASE_H

#include <sqlite3.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "softkey/result.h"
#include "softkey/store/records.h"

namespace softkey {

// Two bytes of a database's head: 2 stands for a log beside the file, 1 for none.
constexpr std::size_t kJournalVersions = 18;

class Database;

// One run of a prepared statement. Values are bound in order; text and bytes must live as long.
class Statement {
public:
    Statement(Database& database, sqlite3_stmt* statement) : db_(database), stmt_(statement) {}
    ~Statement();
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    Statement& Bind(std::int64_t value);
    Statement& Bind(const std::string& text);
    Statement& Bind(const Bytes& bytes);

    bool Step();  // true: a row is there
    void Run();   // steps to the end

    std::int64_t Int(int column) const;
    std::string Text(int column) const;
    Bytes Blob(int column) const;

private:
    void Require(int result) const;

    Database& db_;
    sqlite3_stmt* stmt_;
    int next_ = 1;
};

class Database {
public:
    // One in memory, with this content and without a log, whatever that says; without any, an
    // empty one.
    explicit Database(const Bytes& image);
    // A file of an earlier version, with its log, which is only read.
    explicit Database(const std::string& path);
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;

    // sql must be a literal: statements are prepared once and kept under its address.
    Statement Prepare(const char* sql);
    void Execute(const char* sql);
    bool InTransaction() const { return sqlite3_get_autocommit(db_.get()) == 0; }
    int Changes() const { return sqlite3_changes(db_.get()); }
    std::int64_t TotalChanges() const { return sqlite3_total_changes64(db_.get()); }
    std::int64_t LastId() const { return sqlite3_last_insert_rowid(db_.get()); }
    Bytes Image();  // what is committed, as a database file has it

    [[noreturn]] void Fail(int result, const char* doing) const;

private:
    void Open(const std::string& name, int flags, const char* fileSystem = nullptr);
    void Fill(const Bytes& image);

    struct Closer {
        void operator()(sqlite3* db) const { sqlite3_close_v2(db); }
        void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
    };

    std::string name_;
    std::unique_ptr<sqlite3, Closer> db_;
    std::map<const char*, std::unique_ptr<sqlite3_stmt, Closer>> statements_;
};

}  // namespace softkey

#endif

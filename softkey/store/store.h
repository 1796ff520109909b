// The persistent state of all software keys of one state folder: one SQLite database. What is in it
// is read and changed through its tables, each in a header of its own: keys, PINs, key pairs, data
// objects, events, and the questions that wait for the button.
//
// A Store is one connection, for one thread at a time; any number of connections and processes may
// use a folder together. After a fork the child must open its own.
//
// Every changing member of a table is one transaction, durable when it returns. Several of them
// become one by holding a Transaction around them. A failed member changes nothing.
//
// Failures: kStateUnreachable, kStateDamaged, kStateFull, kStateBusy, and what a member names.
#ifndef SOFTKEY_STORE_STORE_H
#define SOFTKEY_STORE_STORE_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "softkey/result.h"
#include "softkey/store/records.h"

namespace softkey {

class Database;

class Store {
public:
    // Opens the state of a folder; folder and database are created when they are not there.
    static std::unique_ptr<Store> Open(const std::string& home);
    // The same, but null when there is no database: for those who only look.
    static std::unique_ptr<Store> OpenExisting(const std::string& home);
    ~Store();
    Store(const Store&) = delete;
    Store& operator=(const Store&) = delete;

    const std::string& home() const { return home_; }
    Database& database() { return *db_; }

    // A number that differs from the one returned before if anything was changed meanwhile, by
    // anyone. Costs two fcntl calls and no reading: fit to be asked before every signature, and
    // every 20 ms by one who waits for events.
    std::int64_t Version();
    // False when the database was deleted or replaced since it was opened: open a new Store then.
    bool StillThere() const;

private:
    explicit Store(const std::string& home, bool create);

    friend class Transaction;

    std::string home_;
    std::unique_ptr<Database> db_;
    int depth_ = 0;
    bool broken_ = false;
};

// Several changes as one. Rolls back unless committed. Nested ones belong to the outermost.
class Transaction {
public:
    explicit Transaction(Store& store);
    ~Transaction();
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;
    void Commit();

private:
    Store& store_;
    bool outermost_;
    bool done_ = false;
};

// What the tables have in common.
class Table {
public:
    explicit Table(Store& store) : store_(store), db_(store.database()) {}

protected:
    Store& store_;
    Database& db_;
};

}  // namespace softkey

#endif

// The persistent state of all software keys of one state folder: one SQLite database. What is in it
// is read and changed through its tables, each in a header of its own: keys, PINs, key pairs, data
// objects, events, and the questions that wait for the button.
//
// A Store is for one thread at a time; any number of them, in any number of processes, may use a
// folder together. After a fork parent and child go on with what they have.
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

#include "softkey/result.h"
#include "softkey/store/records.h"
#include "softkey/store/state_file.h"

namespace softkey {

class Database;

class Store {
public:
    // Opens the state of a folder; folder and state are made when they were never there. A state of
    // an earlier version becomes one of this.
    static std::unique_ptr<Store> Open(const std::string& home);
    // The same, but null when there is none: for those who only look.
    static std::unique_ptr<Store> OpenExisting(const std::string& home);
    ~Store();
    Store(const Store&) = delete;
    Store& operator=(const Store&) = delete;

    const std::string& home() const { return home_; }
    // As it is now; within a transaction as that left it, and while it is held as it was.
    Database& database();

    // While this lives the store looks for changes only when it is asked to.
    class Held {
    public:
        explicit Held(Store& store) : store_(store) { ++store_.held_; }
        ~Held() { --store_.held_; }
        Held(const Held&) = delete;
        Held& operator=(const Held&) = delete;

    private:
        Store& store_;
    };

    // Looks for changes. False when the state was deleted or replaced since it was opened: open a
    // new Store then.
    bool Look();
    // A number that differs after every change, as of the last look.
    std::int64_t Number() const;

    // The same number as of now, whoever made the change. Costs two looks at files: fit to be
    // asked before every signature, and every 20 ms by one who waits for events.
    std::int64_t Version();
    // The same at a third of the cost, for whoever has looked a moment ago: damage that came since
    // then is left for the next look.
    std::int64_t VersionSinceLook();
    // False when the state was deleted or replaced since it was opened: open a new Store then.
    bool StillThere() const;
    // Since this was asked last nothing has come to the state folder or gone from it. False when in
    // doubt. Costs a third of a look at a file.
    bool IsFolderUnchanged() { return file_ && file_->IsFolderUnchanged(); }

    // Its guard, open for locks; null for a state that cannot be changed.
    std::shared_ptr<const File> GuardFile() { return file_ ? file_->GuardFile() : nullptr; }

private:
    explicit Store(const std::string& home);
    static std::unique_ptr<Store> OpenFinished(const std::string& home);
    Store(const std::string& home, const Bytes& image);  // of an old state that cannot be moved on

    friend class Transaction;
    void Follow();
    void Load();
    void Begin();
    void Commit();
    void End();

    std::string home_;
    std::unique_ptr<StateFile> file_;  // null for an old state that cannot be moved on
    std::unique_ptr<Database> db_;
    std::int64_t changesBefore_ = 0;
    int depth_ = 0;
    int held_ = 0;
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
    explicit Table(Store& store) : store_(store) {}

protected:
    Database& db() { return store_.database(); }

    Store& store_;
};

}  // namespace softkey

#endif

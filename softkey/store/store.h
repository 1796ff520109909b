// The persistent state of all software keys of one state folder: one SQLite database.
//
// A Store is one connection, for one thread at a time; any number of connections and processes may
// use a folder together. After a fork the child must open its own.
//
// Every changing member is one transaction, durable when it returns. Several of them become one by
// holding a Store::Transaction around them. A failed member changes nothing.
//
// Failures: kStateUnreachable, kStateDamaged, kStateFull, kStateBusy, and what a member names.
#ifndef SOFTKEY_STORE_STORE_H
#define SOFTKEY_STORE_STORE_H

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
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

    // Rolls back unless committed. Nested ones belong to the outermost.
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

    const std::string& home() const { return home_; }

    // A number that differs from the one returned before if anything was changed meanwhile, by
    // anyone. Costs two fcntl calls and no reading: fit to be asked before every signature, and
    // every 20 ms by one who waits for events.
    std::int64_t Version();
    // False when the database was deleted or replaced since it was opened: open a new Store then.
    bool StillThere() const;

    // Keys, ordered by slot.
    std::vector<KeyRecord> Keys();
    std::optional<KeyRecord> FindKey(const std::string& serial);
    // kBadArgument for a serial, media id or slot that is malformed or taken; kTooLong.
    // An inserted key raises its event.
    void AddKey(const KeyRecord& key, const PinSeal& seal);
    // With all that is on it. An inserted key raises its event. kKeyAbsent.
    void DeleteKey(const std::string& serial);
    // Puts the key into its slot or pulls it out and raises the event. False when it is so already.
    bool SetInserted(const std::string& serial, bool inserted);
    void SetLabel(const std::string& serial, const std::string& label);

    // PIN.
    PinSeal Seal(const std::string& serial);
    void SetSeal(const std::string& serial, const PinSeal& seal);  // also gives back all tries
    // Counts one try and returns how many are left after it. kPinLocked when none was left.
    int TakeTry(const std::string& serial);
    void ResetTries(const std::string& serial);

    // Key pairs, newest first, without their wrapped private halves.
    std::vector<PairRecord> Pairs(const std::string& serial);
    Bytes WrappedPrivate(std::int64_t pairId);
    std::int64_t AddPair(const std::string& serial, const PairRecord& pair);
    void DeletePair(std::int64_t pairId);
    void SetCertificate(std::int64_t pairId, const Bytes& certificate);
    // Key pairs, certificates and data objects go; serial number, label, media id and PIN stay.
    void EraseContents(const std::string& serial);

    // Data objects.
    void SetData(const std::string& serial, const DataObject& object);
    std::optional<std::string> GetData(const std::string& serial, const std::string& name,
                                       std::uint32_t number);
    std::vector<DataObject> DataObjects(const std::string& serial);

    // Events, oldest first. The log keeps the last 1000.
    std::int64_t LastEventNumber();
    std::vector<Event> EventsAfter(std::int64_t number);

    // The screen. What it showed last stays on it. Not durable, not part of a transaction.
    void ShowOnScreen(const std::string& serial, const std::string& text);
    std::string Screen(const std::string& serial);

    // The button. A decision given while a question waits answers that question alone; given while
    // none waits it is what happens to every question to come. kAsk lets each question wait.
    // Returns how many waiting questions were answered.
    int DecideButton(const std::string& serial, Button decision);
    std::int64_t OpenPrompt(const std::string& serial, std::chrono::milliseconds patience);
    std::optional<Button> PromptAnswer(std::int64_t promptId);
    void ClosePrompt(std::int64_t promptId);
    std::vector<Prompt> WaitingPrompts(const std::string& serial);

    // The names of what is damaged, one line each; empty when all is well.
    std::vector<std::string> FindDamage();

private:
    explicit Store(const std::string& home, bool create);

    friend class Transaction;
    void RaiseEvent(const KeyRecord& key, EventKind kind);
    void RequireChange(const std::string& serial);
    void ForgetScreen(const std::string& serial);

    std::string home_;
    std::unique_ptr<Database> db_;
    int depth_ = 0;
    bool broken_ = false;
};

}  // namespace softkey

#endif

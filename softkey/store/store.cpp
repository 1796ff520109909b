#include "softkey/store/store.h"

#include <stdexcept>

#include "softkey/store/database.h"
#include "softkey/store/home.h"
#include "softkey/store/places.h"
#include "softkey/store/schema.h"

namespace softkey {
namespace {

using Found = StateFile::Found;

Bytes FirstImage(const std::string& home, Found found) {
    return found == Found::kOld ? ImageOfOldState(home) : FreshImage();
}

// What is damaged is told before a guard is made: it would look like a state's.
void Establish(const std::string& home, Found found) {
    if (found == Found::kOld) ImageOfOldState(home);
    StateFile::Establish(home, [&home](Found now) { return FirstImage(home, now); });
}

}  // namespace

std::unique_ptr<Store> Store::Open(const std::string& home) {
    MakeHome(home);
    const Found found = StateFile::Look(home);
    if (found != Found::kGuarded) Establish(home, found);
    return std::unique_ptr<Store>(new Store(home));
}

std::unique_ptr<Store> Store::OpenExisting(const std::string& home) {
    if (!IsUsableHome(home)) return nullptr;
    if (auto store = OpenFinished(home)) return store;
    const Found found = StateFile::Look(home);
    if (found == Found::kNothing) return nullptr;
    if (found == Found::kOld) {
        if (!IsWritable(home)) {
            return std::unique_ptr<Store>(new Store(home, ImageOfOldState(home)));
        }
        Establish(home, found);
    }
    return std::unique_ptr<Store>(new Store(home));
}

// Null when more must be looked at, to name what is damaged or to see whether it was ever made.
std::unique_ptr<Store> Store::OpenFinished(const std::string& home) {
    try {
        return std::unique_ptr<Store>(new Store(home));
    } catch (const Failure&) {
        return nullptr;
    }
}

Store::Store(const std::string& home) : home_(home), file_(std::make_unique<StateFile>(home)) {
    Follow();
    file_->DropOldLog();
}

Store::Store(const std::string& home, const Bytes& image)
    : home_(home), db_(std::make_unique<Database>(image)) {}

Store::~Store() = default;

Database& Store::database() {
    if (held_ == 0 || !db_) Follow();
    return *db_;
}

bool Store::Look() {
    if (!file_) return IsUsableHome(home_);
    if (depth_ > 0 || (db_ && file_->IsCurrent())) return true;
    if (!file_->StillThere()) return false;
    Load();
    return true;
}

void Store::Follow() {
    if (!file_ || depth_ > 0 || (db_ && file_->IsCurrent())) return;
    Load();
}

void Store::Load() {
    db_.reset();
    auto fresh = std::make_unique<Database>(file_->Load());
    const std::int64_t version = SchemaVersion(*fresh);
    if (version != kSchemaVersion) {
        throw Failure(kStateDamaged, Sentence("{1}: schema version {2} is not known",
                                              {DatabasePath(home_), std::to_string(version)}));
    }
    db_ = std::move(fresh);
}

std::int64_t Store::Version() {
    Follow();
    return Number();
}

std::int64_t Store::VersionSinceLook() {
    if (depth_ == 0 && file_ && db_ && file_->IsUnchanged()) return Number();
    return Version();
}

std::int64_t Store::Number() const {
    return file_ ? static_cast<std::int64_t>(file_->Number()) : 0;
}

bool Store::StillThere() const {
    return file_ ? file_->StillThere() : IsUsableHome(home_);
}

void Store::Begin() {
    if (!file_) throw Failure(kStateUnreachable, Sentence("{1}: cannot be written", {home_}));
    file_->BeginChange();
    try {
        if (!Look()) {
            throw Failure(kStateUnreachable,
                          Sentence("{1}: another state has taken the place of this one", {home_}));
        }
        db_->Execute("BEGIN");
        changesBefore_ = db_->TotalChanges();
    } catch (...) {
        file_->EndChange();
        throw;
    }
}

void Store::Commit() {
    const bool changed = db_->TotalChanges() != changesBefore_;
    db_->Execute("COMMIT");
    if (!changed) return;
    try {
        file_->Replace(db_->Image());
    } catch (...) {
        db_.reset();  // what it holds is not what is stored
        throw;
    }
}

void Store::End() {
    try {
        if (db_ && db_->InTransaction()) db_->Execute("ROLLBACK");
    } catch (...) {  // memory may have run out
        db_.reset();
    }
    file_->EndChange();
}

Transaction::Transaction(Store& store) : store_(store), outermost_(store.depth_ == 0) {
    if (outermost_) store_.Begin();
    ++store_.depth_;
}

Transaction::~Transaction() {
    --store_.depth_;
    if (outermost_) {
        store_.broken_ = false;
        store_.End();
    } else if (!done_) {
        store_.broken_ = true;
    }
}

void Transaction::Commit() {
    if (outermost_) {
        if (store_.broken_) throw std::logic_error("a part of the transaction failed");
        store_.Commit();
    }
    done_ = true;
}

}  // namespace softkey

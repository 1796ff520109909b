// The database file of a state folder and the guard beside it.
//
// The file is small and is replaced as a whole: written anew, synced, and renamed into its place,
// so that whoever is killed leaves the one or the other, and nothing of an earlier state stays in
// any file. Reading takes no lock and changes nothing, so that a read-only medium can be read.
#ifndef SOFTKEY_STORE_STATE_FILE_H
#define SOFTKEY_STORE_STATE_FILE_H

#include <sys/stat.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "softkey/store/file.h"
#include "softkey/store/guard.h"
#include "softkey/store/lock.h"
#include "softkey/store/stamp.h"

namespace softkey {

class StateFile {
public:
    // kNothing: no state was ever made here. kOld: one of an earlier version, or one whose guard is
    // missing. kStateDamaged when only the database of an earlier version is missing.
    enum class Found { kNothing, kOld, kGuarded };
    static Found Look(const std::string& home);

    // Makes the first state of the folder, unless someone was quicker. image is called under the
    // lock, with what was found.
    template <typename Image>
    static void Establish(const std::string& home, Image image);

    explicit StateFile(const std::string& home);

    // Both files are still what Load returned or Replace wrote last. Costs one look at each: a
    // change puts another file into the database's place, and damage leaves its mark on the times.
    bool IsCurrent();
    // Since this was asked last no file has come to the folder, gone from it, or taken the place of
    // another. False when in doubt. Costs one look at an open file.
    bool IsFolderUnchanged();
    // Nobody has changed the state since then: each change writes the guard. Damage it does not
    // tell, nor that another state has taken the place of this one.
    bool IsUnchanged() const;
    // The database's bytes. kStateDamaged when they are not what was stored last.
    Bytes Load();
    std::uint64_t Number() const { return number_; }  // of what Load returned or Replace wrote
    bool StillThere() const;
    // What was to be dropped when the first state was made of an earlier version's. Once Load has
    // returned nothing in it is worth keeping.
    void DropOldLog() const;

    // The guard, open for writing by this process.
    std::shared_ptr<const File> GuardFile();
    // Between the two nobody else changes the state. kStateBusy.
    void BeginChange();
    void Replace(const Bytes& image);
    void EndChange() { lock_.reset(); }

private:
    static void Establish(const std::string& home, const Lock& lock, const Bytes& image);
    Guard::Text ReadGuard() const;
    void OpenForChanges();

    std::string home_;
    std::string guardPath_;
    File folder_;
    std::shared_ptr<const File> guardFile_;
    pid_t changer_ = 0;        // the process that opened the guard for changes
    struct stat identity_ {};  // the guard's
    Stamp folderStamp_;
    Stamp guardStamp_;
    Stamp databaseStamp_;
    std::optional<Guard> guard_;
    Guard::Text written_{};
    std::uint64_t number_ = 0;
    std::unique_ptr<Lock> lock_;
};

template <typename Image>
void StateFile::Establish(const std::string& home, Image image) {
    const Lock lock(home, Lock::kWriting, GuardFile::kMadeWhenMissing);
    const Found found = Look(home);
    if (found != Found::kGuarded) Establish(home, lock, image(found));
}

}  // namespace softkey

#endif

#include "softkey/store/state_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <exception>

#include "softkey/store/places.h"

namespace softkey {
namespace {

std::optional<Bytes> ReadIfThere(const std::string& path, Stamp* stamp = nullptr) {
    const File file(path, O_RDONLY);
    if (!file.IsOpen() && errno == ENOENT) return std::nullopt;
    const struct stat status = file.Required().Status();
    if (stamp != nullptr) stamp->Take(status);
    return file.ReadAll(status);
}

bool IsThere(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) == 0) return status.st_size > 0;
    if (errno != ENOENT)
        FailOnFile(path);  // a state that cannot be seen is not one that is not there
    return false;
}

// A guard that names no earlier state belongs to a first state that may not have been finished.
bool IsFinished(const std::string& home, const Bytes& text) {
    Guard::Text whole{};
    if (text.size() != whole.size()) return true;  // damage, which Load names
    std::copy(text.begin(), text.end(), whole.begin());
    const std::optional<Guard> guard = Guard::Read(whole);
    if (!guard || guard->before.number != 0) return true;
    const std::optional<Bytes> image = ReadIfThere(DatabasePath(home));
    return image && guard->Find(*image) != nullptr;
}

struct timespec Now() {
    struct timespec now {};
    clock_gettime(CLOCK_REALTIME, &now);
    return now;
}

// Marked as changed at that time, to the nanosecond: times that the system sets come from a clock
// of a few milliseconds' steps.
void WriteNew(const std::string& path, const Bytes& image, const struct timespec& changed) {
    const File file(path, O_WRONLY | O_CREAT | O_TRUNC);
    file.Required().WriteAt(0, image.data(), image.size());
    file.SetChanged(changed);
    file.Sync();
}

Guard::Text WriteGuard(const File& file, const Guard& guard) {
    const Guard::Text text = guard.Write();
    file.WriteAt(0, text.data(), text.size());
    return text;
}

// The two steps that make an image the state. A crash of the machine between them is as harmless
// as a kill: the guard is on the disk before the file takes its place.
// Then the change is made, and must not be taken for one that failed: nothing, instead of what the
// guard says, when something of what comes behind did. The guard may go on knowing the state
// before.
std::optional<Guard::Text> TakePlace(const std::string& home, const File& folder,
                                     const File& guardFile, Guard& guard,
                                     const struct timespec& changed) {
    WriteGuard(guardFile, guard);
    guardFile.Sync();
    if (std::rename(NewDatabasePath(home).c_str(), DatabasePath(home).c_str()) != 0) {
        FailOnFile(DatabasePath(home));
    }
    try {
        folder.Sync();
        guard.before = guard.after;
        const Guard::Text text = WriteGuard(guardFile, guard);
        guardFile.SetChanged(changed);
        return text;
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

// guard.after names the image.
std::optional<Guard::Text> Adopt(const std::string& home, const Bytes& image,
                                 const struct timespec& changed, const File& folder,
                                 const File& guardFile, Guard& guard) {
    if (image.size() > File::kLargest) {
        throw Failure(kStateFull, Sentence("{1}: larger than it can be", {DatabasePath(home)}));
    }
    const std::string path = NewDatabasePath(home);
    try {
        WriteNew(path, image, changed);
        return TakePlace(home, folder, guardFile, guard, changed);
    } catch (...) {
        unlink(path.c_str());
        throw;
    }
}

// The log goes last: where it stands something is left to do.
void UnlinkOldLog(const std::string& home) {
    if (unlink(OldIndexPath(home).c_str()) == 0 || errno == ENOENT) {
        unlink(OldLogPath(home).c_str());
    }
}

std::string Damage(const std::string& home, bool guardReadable, const std::optional<Bytes>& image) {
    if (!guardReadable) return Sentence("{1}: damaged", {GuardPath(home)});
    if (!image) return Sentence("{1}: missing beside softkey.guard", {DatabasePath(home)});
    if (image->empty()) return Sentence("{1}: empty", {DatabasePath(home)});
    return Sentence(
        "{1}: not what was stored last; it was changed, cut short, or put back from an earlier "
        "time",
        {DatabasePath(home)});
}

}  // namespace

StateFile::Found StateFile::Look(const std::string& home) {
    const std::optional<Bytes> guard = ReadIfThere(GuardPath(home));
    if (guard && !guard->empty() && IsFinished(home, *guard)) return Found::kGuarded;
    if (IsThere(DatabasePath(home))) return Found::kOld;
    if (IsThere(OldLogPath(home))) {
        throw Failure(kStateDamaged,
                      Sentence("{1}: missing or empty beside its log", {DatabasePath(home)}));
    }
    return Found::kNothing;
}

void StateFile::Establish(const std::string& home, const Lock& lock, const Bytes& image) {
    Guard guard = Guard::Make();
    guard.after = {1, guard.DigestOf(image)};
    Adopt(home, image, Now(), File(home, O_RDONLY).Required(), lock.file(), guard);
    UnlinkOldLog(home);
}

StateFile::StateFile(const std::string& home)
    : home_(home),
      guardPath_(GuardPath(home)),
      folder_(home, O_RDONLY),
      guardFile_(std::make_shared<File>(guardPath_, O_RDWR)) {
    if (guardFile_->IsOpen()) {
        changer_ = getpid();
    } else {  // a medium that can only be read
        guardFile_ = std::make_shared<File>(guardPath_, O_RDONLY);
    }
    folder_.Required();
    guardFile_->Required();
}

bool StateFile::StillThere() const {
    struct stat now {};
    return stat(GuardPath(home_).c_str(), &now) == 0 && now.st_dev == identity_.st_dev &&
           now.st_ino == identity_.st_ino;
}

Guard::Text StateFile::ReadGuard() const {
    struct {
        Guard::Text text;
        std::uint8_t more;
    } read{};
    if (guardFile_->ReadSome(0, &read, sizeof read) == sizeof read.text) return read.text;
    return {};  // of another length: no guard's
}

bool StateFile::IsCurrent() {
    return number_ != 0 && guardStamp_.Holds(AT_FDCWD, guardPath_.c_str()) &&
           databaseStamp_.Holds(folder_.Descriptor(), kDatabaseName);
}

bool StateFile::IsFolderUnchanged() {
    const struct stat now = folder_.Status();
    const bool unchanged = folderStamp_.Holds(now);
    if (!unchanged) folderStamp_.Take(now);
    return unchanged;
}

bool StateFile::IsUnchanged() const {
    return number_ != 0 && ReadGuard() == written_;
}

void StateFile::DropOldLog() const {
    if (access(OldLogPath(home_).c_str(), F_OK) == 0) UnlinkOldLog(home_);
}

// The guard is read first. A file that it does not know was put there by a change that came
// between, which the guard tells when it is read again; when it does not, the file is damaged.
Bytes StateFile::Load() {
    number_ = 0;
    std::optional<Guard::Text> before;
    for (;;) {
        identity_ = guardFile_->Status();
        guardStamp_.Take(identity_);
        const Guard::Text text = ReadGuard();
        guard_ = Guard::Read(text);
        std::optional<Bytes> image = ReadIfThere(DatabasePath(home_), &databaseStamp_);
        const StateName* const name = guard_ && image ? guard_->Find(*image) : nullptr;
        if (name != nullptr) {
            number_ = name->number;
            written_ = text;
            return std::move(*image);
        }
        if (before == text) throw Failure(kStateDamaged, Damage(home_, guard_.has_value(), image));
        before = text;
    }
}

// A lock belongs to an opening of the file, which a child shares with its parent: it opens its own.
void StateFile::OpenForChanges() {
    if (changer_ == getpid()) return;
    const auto fresh = std::make_shared<File>(GuardPath(home_), O_RDWR);
    fresh->Required();
    guardFile_ = fresh;
    changer_ = getpid();
}

std::shared_ptr<const File> StateFile::GuardFile() {
    OpenForChanges();
    return guardFile_;
}

void StateFile::BeginChange() {
    lock_ = std::make_unique<Lock>(home_, Lock::kWriting, GuardFile());
}

void StateFile::Replace(const Bytes& image) {
    Guard guard = *guard_;
    if (guard.before.number != number_) guard.before = guard.after;
    guard.after = {number_ + 1, guard.DigestOf(image)};
    const std::uint64_t written = guard.after.number;
    const struct timespec now = Now();
    number_ = 0;  // until it is done, nobody can say which state the file holds
    const auto text = Adopt(home_, image, now, folder_, *guardFile_, guard);
    if (!text) return;
    guardStamp_.Expect(Guard::kSize, now);
    databaseStamp_.Expect(image.size(), now);
    guard_ = guard;
    written_ = *text;
    number_ = written;
}

}  // namespace softkey

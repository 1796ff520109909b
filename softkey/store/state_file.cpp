#include "softkey/store/state_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <thread>

#include "softkey/store/places.h"

namespace softkey {
namespace {

constexpr long kClockStepMs = 10;

std::optional<Bytes> ReadIfThere(const std::string& path) {
    const File file(path, O_RDONLY);
    if (!file.IsOpen() && errno == ENOENT) return std::nullopt;
    return file.Required().ReadAll();
}

bool IsThere(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 && status.st_size > 0;
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

void WriteNew(const std::string& home, const Bytes& image) {
    try {
        const File file(NewDatabasePath(home), O_WRONLY | O_CREAT | O_TRUNC);
        file.Required().WriteAt(0, image.data(), image.size());
        file.Sync();
    } catch (const Failure&) {
        unlink(NewDatabasePath(home).c_str());
        throw;
    }
}

void WriteGuard(const File& file, const Guard& guard) {
    const Guard::Text text = guard.Write();
    file.WriteAt(0, text.data(), text.size());
}

void PutInPlace(const std::string& home) {
    if (std::rename(NewDatabasePath(home).c_str(), DatabasePath(home).c_str()) != 0) {
        FailOnFile(DatabasePath(home));
    }
    File(home, O_RDONLY | O_DIRECTORY).Required().Sync();
}

// The two steps that make an image the state. A crash of the machine between them is as harmless
// as a kill: the guard is on the disk before the file takes its place.
void Adopt(const std::string& home, const File& guardFile, Guard& guard) {
    WriteGuard(guardFile, guard);
    guardFile.Sync();
    PutInPlace(home);
    guard.before = guard.after;
    WriteGuard(guardFile, guard);
}

std::string Damage(const std::string& home, bool guardReadable, const std::optional<Bytes>& image) {
    if (!guardReadable) return GuardPath(home) + ": damaged";
    if (!image) return DatabasePath(home) + ": missing beside softkey.guard";
    if (image->empty()) return DatabasePath(home) + ": empty";
    return DatabasePath(home) +
           ": not what was stored last; it was changed, cut short, or put back from an earlier "
           "time";
}

}  // namespace

StateFile::Found StateFile::Look(const std::string& home) {
    const std::optional<Bytes> guard = ReadIfThere(GuardPath(home));
    if (guard && !guard->empty() && IsFinished(home, *guard)) return Found::kGuarded;
    if (IsThere(DatabasePath(home))) return Found::kOld;
    if (IsThere(OldLogPath(home))) {
        throw Failure(kStateDamaged, DatabasePath(home) + ": missing or empty beside its log");
    }
    return Found::kNothing;
}

void StateFile::Establish(const std::string& home, const Lock& lock, const Bytes& image) {
    Guard guard = Guard::Make();
    guard.after = {1, guard.DigestOf(image)};
    WriteNew(home, image);
    Adopt(home, lock.file(), guard);
    unlink(OldLogPath(home).c_str());
    unlink(OldIndexPath(home).c_str());
}

StateFile::StateFile(const std::string& home) : home_(home), guardFile_(GuardPath(home), O_RDONLY) {
    guardFile_.Required();
    if (stat(GuardPath(home).c_str(), &identity_) != 0) FailOnFile(GuardPath(home));
}

bool StateFile::StillThere() const {
    struct stat now {};
    return stat(GuardPath(home_).c_str(), &now) == 0 && now.st_dev == identity_.st_dev &&
           now.st_ino == identity_.st_ino;
}

Guard::Text StateFile::ReadGuard() const {
    std::array<std::uint8_t, Guard::kSize + 1> bytes{};
    Guard::Text text{};
    if (guardFile_.ReadSome(0, bytes.data(), bytes.size()) == text.size()) {
        std::copy_n(bytes.begin(), text.size(), text.begin());
    }
    return text;  // of another length: no guard's
}

// A guard with two names says that someone is about to replace the file, or was killed then.
bool StateFile::IsCurrent() {
    return number_ != 0 && guard_->IsSettled() && IsUntouched() && ReadGuard() == seen_;
}

bool StateFile::IsUntouched() const {
    struct stat now {};
    return timesTell_ && stat(DatabasePath(home_).c_str(), &now) == 0 &&
           now.st_ino == loaded_.st_ino && now.st_size == loaded_.st_size &&
           now.st_mtim.tv_sec == loaded_.st_mtim.tv_sec &&
           now.st_mtim.tv_nsec == loaded_.st_mtim.tv_nsec &&
           now.st_ctim.tv_sec == loaded_.st_ctim.tv_sec &&
           now.st_ctim.tv_nsec == loaded_.st_ctim.tv_nsec;
}

// The system's clock for files moves in steps: what is written within the same step as the last
// change leaves the times as they are, so that a young file is read again.
void StateFile::RememberFile() {
    struct timespec now {};
    clock_gettime(CLOCK_REALTIME_COARSE, &now);
    timesTell_ = stat(DatabasePath(home_).c_str(), &loaded_) == 0 &&
                 (now.tv_sec - loaded_.st_ctim.tv_sec) * 1000 +
                         (now.tv_nsec - loaded_.st_ctim.tv_nsec) / 1000000 >
                     kClockStepMs;
}

// The guard is read first. A file that it does not know was put there by a change that came
// between, which the guard tells when it is read again; when it does not, the file is damaged.
Bytes StateFile::Load() {
    number_ = 0;
    std::optional<Guard::Text> before;
    for (;;) {
        RememberFile();
        seen_ = ReadGuard();
        guard_ = Guard::Read(seen_);
        std::optional<Bytes> image = ReadIfThere(DatabasePath(home_));
        const StateName* const name = guard_ && image ? guard_->Find(*image) : nullptr;
        if (name != nullptr) {
            number_ = name->number;
            return std::move(*image);
        }
        if (before == seen_) throw Failure(kStateDamaged, Damage(home_, guard_.has_value(), image));
        before = seen_;
        std::this_thread::yield();
    }
}

void StateFile::BeginChange() {
    lock_ = std::make_unique<Lock>(home_, Lock::kWriting);
    if (StillThere()) return;
    lock_.reset();
    throw Failure(kStateUnreachable, home_ + ": another state has taken the place of this one");
}

void StateFile::Replace(const Bytes& image) {
    Guard guard = *guard_;
    if (guard.before.number != number_) guard.before = guard.after;
    guard.after = {number_ + 1, guard.DigestOf(image)};
    const std::uint64_t written = guard.after.number;
    number_ = 0;  // until it is done, nobody can say which state the file holds
    WriteNew(home_, image);
    Adopt(home_, lock_->file(), guard);
    guard_ = guard;
    seen_ = guard.Write();
    timesTell_ = false;
    number_ = written;
}

}  // namespace softkey

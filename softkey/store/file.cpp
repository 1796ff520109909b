#include "softkey/store/file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

namespace softkey {
namespace {

constexpr mode_t kOwnerOnly = 0600;

struct flock OneByte(short type, off_t offset) {
    struct flock range {};
    range.l_type = type;
    range.l_whence = SEEK_SET;
    range.l_start = offset;
    range.l_len = 1;
    return range;
}

// What the call answers that did not fail. A signal may end one too early.
template <typename Call>
auto Answer(const std::string& path, Call call) {
    for (;;) {
        const auto answer = call();
        if (answer != -1) return answer;
        if (errno != EINTR) FailOnFile(path);
    }
}

}  // namespace

bool IsFull(int error) {
    return error == ENOSPC || error == EDQUOT || error == EFBIG;
}

void FailOnFile(const std::string& path) {
    const int error = errno;
    throw Failure(IsFull(error) ? kStateFull : kStateUnreachable,
                  Sentence("{1}: {2}", {path, translate(std::strerror(error))}));
}

// A pipe in a file's place keeps nobody waiting, and nothing is written through a link. Where a
// program has closed its standard streams no file of ours takes their place: it would be printed
// to.
File::File(std::string path, int flags)
    : path_(std::move(path)),
      descriptor_(open(
          path_.c_str(),
          flags | O_CLOEXEC | O_NOCTTY | O_NONBLOCK | ((flags & O_CREAT) != 0 ? O_NOFOLLOW : 0),
          kOwnerOnly)) {
    if (!IsOpen() || descriptor_ > STDERR_FILENO) return;
    const int higher = fcntl(descriptor_, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    const int error = errno;
    close(std::exchange(descriptor_, higher));
    errno = error;
}

File::~File() {
    if (IsOpen()) close(descriptor_);
}

const File& File::Required() const {
    if (!IsOpen()) FailOnFile(path_);
    return *this;
}

Bytes File::ReadAll(const struct stat& status, off_t most) const {
    if (status.st_size > most) {
        throw Failure(kStateDamaged, Sentence("{1}: larger than it can be", {path_}));
    }
    Bytes bytes(static_cast<std::size_t>(status.st_size));
    bytes.resize(ReadAt(0, bytes.data(), bytes.size()));
    return bytes;
}

std::size_t File::ReadAt(off_t offset, void* bytes, std::size_t size) const {
    std::size_t done = 0;
    while (done != size) {
        const std::size_t count = ReadSome(offset + static_cast<off_t>(done),
                                           static_cast<char*>(bytes) + done, size - done);
        if (count == 0) break;
        done += count;
    }
    return done;
}

std::size_t File::ReadSome(off_t offset, void* bytes, std::size_t size) const {
    return static_cast<std::size_t>(
        Answer(path_, [=] { return pread(descriptor_, bytes, size, offset); }));
}

void File::WriteAt(off_t offset, const void* bytes, std::size_t size) const {
    const auto* const from = static_cast<const char*>(bytes);
    for (std::size_t done = 0; done != size;) {
        done += static_cast<std::size_t>(Answer(path_, [=] {
            return pwrite(descriptor_, from + done, size - done, offset + static_cast<off_t>(done));
        }));
    }
}

void File::Clear() const {
    Answer(path_, [this] { return ftruncate(descriptor_, 0); });
}

void File::Sync() const {
    Answer(path_, [this] { return fdatasync(descriptor_); });
}

struct stat File::Status() const {
    struct stat status {};
    Answer(path_, [this, &status] { return fstat(descriptor_, &status); });
    return status;
}

void File::SetChanged(const struct timespec& when) const {
    const struct timespec times[2] = {when, when};
    Answer(path_, [this, &times] { return futimens(descriptor_, times); });
}

// A lock of the open file description: threads exclude each other too, and one that is killed lets
// go of it.
bool File::TryLock(off_t offset) const {
    struct flock range = OneByte(F_WRLCK, offset);
    if (fcntl(descriptor_, F_OFD_SETLK, &range) == 0) return true;
    if (errno != EAGAIN && errno != EACCES && errno != EINTR) FailOnFile(path_);
    return false;
}

// Closing is not enough: a child that was forked meanwhile has the same opening.
void File::Unlock(off_t offset) const {
    struct flock range = OneByte(F_UNLCK, offset);
    fcntl(descriptor_, F_OFD_SETLK, &range);
}

}  // namespace softkey

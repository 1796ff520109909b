#include "log/source.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <utility>

#include "names.h"

namespace ukey {
namespace {

constexpr std::size_t kPiece = std::size_t{256} << 10U;

// read or pread, begun anew when a signal came between.
template <class Call>
ssize_t Patiently(const Call& call) {
    for (;;) {
        const ssize_t got = call();
        if (got >= 0 || errno != EINTR) return got;
    }
}

int OpenUnnamed() {
    const char* const wanted = std::getenv("TMPDIR");
    for (const char* const folder : {wanted, "/var/tmp", "/tmp"}) {
        if (folder == nullptr) continue;
        const int file = ::open(folder, O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
        if (file >= 0) return file;
    }
    return -1;
}

void WriteAll(int file, const char* bytes, std::size_t size) {
    while (size != 0) {
        const ssize_t done = Patiently([&] { return ::write(file, bytes, size); });
        if (done < 0) throw FileError(_("a temporary file cannot be written"), errno);
        bytes += done;
        size -= static_cast<std::size_t>(done);
    }
}

}  // namespace

std::string LogName(const std::string& path) {
    return path == "-" ? _("standard input") : path;
}

bool LogFile::Open(const std::string& path) {
    Close();
    descriptor_ = path == "-" ? ::fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1)
                              : ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    return descriptor_ >= 0;
}

void LogFile::Take(int descriptor) {
    Close();
    descriptor_ = descriptor;
}

void LogFile::Close() {
    if (descriptor_ >= 0) ::close(descriptor_);
    descriptor_ = -1;
}

LogSource::LogSource(const std::string& path) : name_(LogName(path)) {
    struct stat status {};
    if (!file_.Open(path) || ::fstat(file_.descriptor(), &status) != 0) {
        throw FileError(Fill(_("{1} cannot be read"), {name_}), errno);
    }
    // The kernel's own files have no size either.
    if (!S_ISREG(status.st_mode) || status.st_size == 0) {
        CopyAside();
        return;
    }
    // Of a file on standard input a part may have been read by somebody else.
    start_ = std::max<off_t>(0, ::lseek(file_.descriptor(), 0, SEEK_CUR));
    size_ = static_cast<std::uint64_t>(std::max<off_t>(0, status.st_size - start_));
}

void LogSource::CopyAside() {
    LogFile copy;
    copy.Take(OpenUnnamed());
    if (!copy.isOpen()) throw FileError(_("there is no place for a temporary file"), errno);
    std::string piece(kPiece, '\0');
    for (;;) {
        const ssize_t got =
            Patiently([&] { return ::read(file_.descriptor(), piece.data(), piece.size()); });
        if (got < 0) throw FileError(Fill(_("{1} cannot be read"), {name_}), errno);
        if (got == 0) break;
        WriteAll(copy.descriptor(), piece.data(), static_cast<std::size_t>(got));
        size_ += static_cast<std::uint64_t>(got);
    }
    file_.Swap(copy);
}

bool LogSource::ReadAt(std::uint64_t offset, std::string& piece) const {
    piece.resize(
        static_cast<std::size_t>(std::min<std::uint64_t>(kPiece, size_ - std::min(size_, offset))));
    if (piece.empty()) return false;
    const ssize_t got = Patiently([&] {
        return ::pread(file_.descriptor(), piece.data(), piece.size(),
                       start_ + static_cast<off_t>(offset));
    });
    if (got < 0) throw FileError(Fill(_("{1} cannot be read"), {name_}), errno);
    piece.resize(static_cast<std::size_t>(got));
    return got > 0;
}

GrowingLog::GrowingLog(std::string path) : path_(std::move(path)) {
    Open();
}

void GrowingLog::Open() {
    offset_ = 0;
    if (!file_.Open(path_)) {
        if (errno != ENOENT)
            throw FileError(Fill(_("{1} cannot be read"), {LogName(path_)}), errno);
        return;
    }
    struct stat status {};
    plain_ = ::fstat(file_.descriptor(), &status) == 0 && S_ISREG(status.st_mode);
}

std::string GrowingLog::Read() {
    if (!file_.isOpen() || ended_) return {};
    std::string piece(kPiece, '\0');
    const ssize_t got =
        Patiently([&] { return ::read(file_.descriptor(), piece.data(), piece.size()); });
    if (got < 0) throw FileError(Fill(_("{1} cannot be read"), {LogName(path_)}), errno);
    ended_ = got == 0 && !plain_;
    offset_ += got;
    piece.resize(static_cast<std::size_t>(got));
    return piece;
}

bool GrowingLog::Replaced() {
    struct stat now {};
    struct stat open {};
    if (path_ == "-" || (file_.isOpen() && !plain_) || ::stat(path_.c_str(), &now) != 0) {
        return false;
    }
    const bool same = file_.isOpen() && ::fstat(file_.descriptor(), &open) == 0 &&
                      now.st_ino == open.st_ino && now.st_dev == open.st_dev &&
                      now.st_size >= offset_;
    // What was written to the old one just before it went is read first.
    if (same || !std::exchange(changed_, true)) return false;
    changed_ = false;
    Open();
    return true;
}

}  // namespace ukey

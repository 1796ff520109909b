// The diagnostic log: whether the library can write it, and how much room is left.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "doctor/checks.h"
#include "doctor/remedy.h"

namespace ukey {
namespace {

namespace places = kesta::places;

constexpr const char* kLogName = "log";

std::string Megabytes(off_t size) {
    if (size < 1024) return std::to_string(size) + " bytes";
    if (size < 1024 * 1024) return std::to_string(size / 1024) + " KiB";
    return std::to_string(size / (1024 * 1024)) + " MiB";
}

// As the library opens it. The file exists and nothing is written. Unlike a look at the
// permissions this sees what the kernel forbids in folders where everybody may write.
bool CanOpen(const std::string& path) {
    const int file =
        ::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NONBLOCK, 0666);
    if (file < 0) return false;
    ::close(file);
    return true;
}

std::string Remounted(const std::string& folder) {
    return AsRoot("mount -o remount,rw " + Words({folder}));
}

// The log holds sealed private keys: it is put where its owner alone reads it, never opened up.
std::string PutAside(const std::string& path) {
    return "put it aside, where nobody else reads it; the next record begins a new one: " +
           AsRoot("install -m 600 " + Words({path}) + " /root/") + " && " +
           AsRoot("rm " + Words({path}));
}

void CheckFolder(Report& report, const std::string& path) {
    const std::string folder = FolderOf(path);
    if (::access(folder.c_str(), W_OK | X_OK) == 0) {
        report.Fine("log.writable", kLogName, path + " does not exist yet and can be written");
        return;
    }
    const int why = errno;
    report.Warn(
        "log.writable", kLogName,
        path + " cannot be created: " + std::strerror(why) + "; the library then writes no log",
        why == EROFS    ? Remounted(folder)
        : why == ENOENT ? AsRoot("install -d -m 1777 " + Words({folder}))
                        : AsRoot("chmod 1777 " + Words({folder})));
}

void CheckSize(Report& report, const std::string& path, off_t size) {
    const std::string aside = "put it aside if it is needed, for your eyes alone: install -m 600 " +
                              Words({path}) + " ~/";
    if (size > places::kLogLimit) {
        report.Warn("log.size", "log size",
                    Megabytes(size) + ": the next record deletes the whole file", aside);
    } else if (size > places::kLogLimit / 10 * 9) {
        report.Warn("log.size", "log size",
                    Megabytes(size) + " of " + Megabytes(places::kLogLimit) +
                        ", where the whole file is deleted",
                    aside);
    }
}

void CheckRoom(Report& report, const std::string& path) {
    struct statvfs room {};
    const std::string folder = FolderOf(path);
    if (::statvfs(folder.c_str(), &room) != 0 || room.f_blocks == 0 || room.f_bavail != 0) return;
    report.Warn(
        "log.room", "log", "no room is left in " + folder + "; records are dropped",
        "make room; what takes it: " + AsRoot("du -xh " + Words({folder}) + " | sort -h | tail"));
}

}  // namespace

void CheckLog(Report& report) {
    const std::string path = report.root + places::kLogFile;
    struct stat status {};
    CheckRoom(report, path);
    if (::stat(path.c_str(), &status) != 0) {
        struct stat link {};
        if (::lstat(path.c_str(), &link) != 0) return CheckFolder(report, path);
        report.Warn("log.writable", kLogName, path + " is a link that leads nowhere",
                    AsRoot("rm " + Words({path})));
        return;
    }
    if (!S_ISREG(status.st_mode)) {
        report.Warn("log.writable", kLogName,
                    path + " is no plain file; records are dropped, or calls wait for ever",
                    AsRoot("mv " + Words({path, path + ".aside"})));
        return;
    }
    if (!CanOpen(path)) {
        const bool readOnly = errno == EROFS;
        report.Warn("log.writable", kLogName,
                    path + " cannot be written, it belongs to " + OwnerName(status.st_uid) +
                        "; records are dropped in silence",
                    readOnly ? Remounted(FolderOf(path)) : PutAside(path));
        return;
    }
    report.Fine("log.writable", kLogName, path + ", " + Megabytes(status.st_size));
    CheckSize(report, path, status.st_size);
}

}  // namespace ukey

// The diagnostic log: whether the library can write it, and how much room is left.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>

#include "doctor/checks.h"
#include "doctor/remedy.h"
#include "kit/language.h"

namespace ukey {
namespace {

namespace places = kesta::places;

constexpr const char* kLogName = N_("log");

std::string Megabytes(off_t size) {
    if (size < 1024) return Fill(_("{1} bytes"), {std::to_string(size)});
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
    return Fill(
        _("put it aside, where nobody else reads it; the next record begins a new one: {1}"),
        {AsRoot("install -m 600 " + Words({path}) + " /root/") + " && " +
         AsRoot("rm " + Words({path}))});
}

void CheckFolder(Report& report, const std::string& path) {
    const std::string folder = FolderOf(path);
    if (::access(folder.c_str(), W_OK | X_OK) == 0) {
        report.Fine("log.writable", _(kLogName),
                    Fill(_("{1} does not exist yet and can be written"), {path}));
        return;
    }
    const int why = errno;
    report.Warn("log.writable", _(kLogName),
                Fill(_("{1} cannot be created: {2}; the library then writes no log"),
                     {path, SystemText(why)}),
                why == EROFS    ? Remounted(folder)
                : why == ENOENT ? AsRoot("install -d -m 1777 " + Words({folder}))
                                : AsRoot("chmod 1777 " + Words({folder})));
}

void CheckSize(Report& report, const std::string& path, off_t size) {
    const std::string aside = Fill(_("put it aside if it is needed, for your eyes alone: {1}"),
                                   {"install -m 600 " + Words({path}) + " ~/"});
    if (size > places::kLogLimit) {
        report.Warn("log.size", _("log size"),
                    Fill(_("{1}: the next record deletes the whole file"), {Megabytes(size)}),
                    aside);
    } else if (size > places::kLogLimit / 10 * 9) {
        report.Warn("log.size", _("log size"),
                    Fill(_("{1} of {2}, where the whole file is deleted"),
                         {Megabytes(size), Megabytes(places::kLogLimit)}),
                    aside);
    }
}

void CheckRoom(Report& report, const std::string& path) {
    struct statvfs room {};
    const std::string folder = FolderOf(path);
    if (::statvfs(folder.c_str(), &room) != 0 || room.f_blocks == 0 || room.f_bavail != 0) return;
    report.Warn("log.room", _(kLogName),
                Fill(_("no room is left in {1}; records are dropped"), {folder}),
                Fill(_("make room; what takes it: {1}"),
                     {AsRoot("du -xh " + Words({folder}) + " | sort -h | tail")}));
}

}  // namespace

void CheckLog(Report& report) {
    const std::string path = report.root + places::kLogFile;
    struct stat status {};
    CheckRoom(report, path);
    if (::stat(path.c_str(), &status) != 0) {
        struct stat link {};
        if (::lstat(path.c_str(), &link) != 0) return CheckFolder(report, path);
        report.Warn("log.writable", _(kLogName),
                    Fill(_("{1} is a link that leads nowhere"), {path}),
                    AsRoot("rm " + Words({path})));
        return;
    }
    if (!S_ISREG(status.st_mode)) {
        report.Warn(
            "log.writable", _(kLogName),
            Fill(_("{1} is no plain file; records are dropped, or calls wait for ever"), {path}),
            AsRoot("mv " + Words({path, path + ".aside"})));
        return;
    }
    if (!CanOpen(path)) {
        const bool readOnly = errno == EROFS;
        report.Warn("log.writable", _(kLogName),
                    Fill(_("{1} cannot be written, it belongs to {2}; records are dropped in "
                           "silence"),
                         {path, OwnerName(status.st_uid)}),
                    readOnly ? Remounted(FolderOf(path)) : PutAside(path));
        return;
    }
    report.Fine("log.writable", _(kLogName),
                Fill(_("{1}, {2}"), {path, Megabytes(status.st_size)}));
    CheckSize(report, path, status.st_size);
}

}  // namespace ukey

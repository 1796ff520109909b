// The companion files of the install directory, and the diagnostic log.
#include <dirent.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <iterator>
#include <memory>
#include <set>

#include "doctor/checks.h"

namespace ukey {
namespace {

namespace places = kesta::places;

struct CloseFolder {
    void operator()(DIR* folder) const { ::closedir(folder); }
};

std::set<std::string> EntriesOf(const std::string& path) {
    std::set<std::string> names;
    const std::unique_ptr<DIR, CloseFolder> folder(::opendir(path.c_str()));
    if (!folder) return names;
    while (const dirent* entry = ::readdir(folder.get())) names.insert(entry->d_name);
    return names;
}

bool Holds(const std::set<std::string>& entries, const std::string& name) {
    if (entries.count(name) != 0) return true;
    const std::string library = name + ".so";
    const auto found = entries.lower_bound(library);
    if (found == entries.end()) return false;
    return *found == library || found->compare(0, library.size() + 1, library + ".") == 0;
}

std::string Megabytes(off_t size) {
    if (size < 1024) return std::to_string(size) + " bytes";
    if (size < 1024 * 1024) return std::to_string(size / 1024) + " KiB";
    return std::to_string(size / (1024 * 1024)) + " MiB";
}

std::string OwnerOf(const struct stat& status) {
    const passwd* const owner = ::getpwuid(status.st_uid);
    return owner != nullptr ? owner->pw_name : "user " + std::to_string(status.st_uid);
}

void CheckAbsentLog(Report& report, const std::string& path) {
    const std::string folder = path.substr(0, path.rfind('/'));
    if (::access(folder.c_str(), W_OK | X_OK) == 0) {
        report.Fine("log.writable", "log", path + " does not exist yet and can be written");
    } else {
        report.Warn("log.writable", "log",
                    path + " cannot be created: " + std::strerror(errno) +
                        "; the library then writes no log",
                    "make " + folder + " writable for all: chmod 1777 " + folder);
    }
}

}  // namespace

void CheckCompanions(Report& report) {
    const auto entries = EntriesOf(report.root + places::kInstallDirectory);
    std::string missing;
    for (const char* const name : places::kCompanionFiles) {
        if (!Holds(entries, name)) missing += (missing.empty() ? "" : ", ") + std::string(name);
    }
    if (missing.empty()) {
        report.Fine("companions", "companion files",
                    "all " + std::to_string(std::size(places::kCompanionFiles)) +
                        " are in the install directory");
    } else {
        report.Warn("companions", "companion files", "not in the install directory: " + missing,
                    "install the maker's package again; the library itself needs libR7Token_KESTA");
    }
}

void CheckLog(Report& report) {
    const std::string path = report.root + places::kLogFile;
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) return CheckAbsentLog(report, path);
    if (!S_ISREG(status.st_mode) || ::access(path.c_str(), W_OK) != 0) {
        report.Warn("log.writable", "log",
                    path + " cannot be written" +
                        (S_ISREG(status.st_mode) ? ", it belongs to " + OwnerOf(status)
                                                 : ", it is no plain file") +
                        "; records are dropped in silence",
                    "remove it, or make it writable for all: chmod a+w " + path);
        return;
    }
    report.Fine("log.writable", "log", path + ", " + Megabytes(status.st_size));
    if (status.st_size > places::kLogLimit) {
        report.Warn("log.size", "log size",
                    Megabytes(status.st_size) + ": the next record deletes the whole file",
                    "copy it away now if it is needed: cp " + path + " .");
    } else if (status.st_size > places::kLogLimit / 10 * 9) {
        report.Warn("log.size", "log size",
                    Megabytes(status.st_size) + " of " + Megabytes(places::kLogLimit) +
                        ", where the whole file is deleted",
                    "copy it away if it is needed: cp " + path + " .");
    }
}

}  // namespace ukey

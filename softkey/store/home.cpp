#include "softkey/store/home.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "softkey/result.h"
#include "softkey/store/file.h"

namespace softkey {
namespace {

const char* Variable(const char* name) {
    const char* const value = std::getenv(name);
    return value != nullptr && *value != '\0' ? value : nullptr;
}

bool IsMade(const std::string& path) {
    return mkdir(path.c_str(), 0700) == 0 || errno == EEXIST;
}

void MakeFolder(const std::string& path) {
    if (IsMade(path)) return;
    const std::string above = path.substr(0, path.rfind('/'));
    if (above.empty() || above == path) FailOnFile(path);
    MakeFolder(above);
    if (!IsMade(path)) FailOnFile(path);
}

}  // namespace

bool IsUsableHome(const std::string& home) {
    struct stat status {};
    if (stat(home.c_str(), &status) != 0) {
        if (errno == ENOENT || errno == ENOTDIR) return false;
        FailOnFile(home);
    }
    if (!S_ISDIR(status.st_mode))
        throw Failure(kStateUnreachable, Sentence("{1}: not a folder", {home}));
    constexpr mode_t kReadOrWrittenByOthers = S_IRGRP | S_IWGRP | S_IROTH | S_IWOTH;
    if ((status.st_mode & kReadOrWrittenByOthers) == 0) return true;
    throw Failure(kStateUnreachable,
                  Sentence("{1}: others may read or write it, and with it the keys; if it is there "
                           "for the keys alone, close it with: chmod 700 '{1}'",
                           {home}));
}

bool IsWritable(const std::string& home) {
    return access(home.c_str(), W_OK) == 0;
}

std::string StateHome() {
    if (const char* const home = Variable("KESTA_SOFTKEY_HOME")) return home;
    if (const char* const data = Variable("XDG_DATA_HOME")) {
        return std::string(data) + "/kesta-softkey";
    }
    if (const char* const person = Variable("HOME")) {
        return std::string(person) + "/.local/share/kesta-softkey";
    }
    throw Failure(kStateUnreachable, "none of KESTA_SOFTKEY_HOME, XDG_DATA_HOME and HOME is set");
}

void MakeHome(const std::string& home) {
    MakeFolder(home);
    IsUsableHome(home);
}

}  // namespace softkey

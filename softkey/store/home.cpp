#include "softkey/store/home.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "softkey/result.h"

namespace softkey {
namespace {

const char* Variable(const char* name) {
    const char* const value = std::getenv(name);
    return value != nullptr && *value != '\0' ? value : nullptr;
}

bool IsFolder(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

}  // namespace

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
    if (home.empty() || IsFolder(home)) return;
    const std::size_t end = home.find_last_not_of('/');
    const std::size_t slash = home.find_last_of('/', end);
    if (slash != std::string::npos && slash > 0) MakeHome(home.substr(0, slash));
    if (mkdir(home.c_str(), 0700) == 0 || errno == EEXIST) return;
    const Code code = errno == ENOSPC || errno == EDQUOT ? kStateFull : kStateUnreachable;
    throw Failure(code, home + ": " + std::strerror(errno));
}

}  // namespace softkey

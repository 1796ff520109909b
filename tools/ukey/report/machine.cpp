// What would tell whose machine it is.
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "kesta/places.h"
#include "report/mask.h"

namespace ukey {
namespace {

namespace places = kesta::places;

// Numbers below are the system's own users, and so is "nobody".
constexpr uid_t kFirstPerson = 1000;
constexpr uid_t kNobody = 65534;

struct CloseFile {
    void operator()(std::FILE* file) const { std::fclose(file); }
};

// A folder that everybody has is nobody's: its name tells nothing, and every path would lose it.
bool IsEverybodys(std::string folder) {
    folder += '/';
    for (const char* const path : {places::kInstallDirectory, places::kLogFile, "/root/", "/home/",
                                   "/usr/lib/", "/var/lib/", "/nonexistent/"}) {
        if (std::string(path).compare(0, folder.size(), folder) == 0) return true;
    }
    return folder == "//";
}

void LearnHome(Mask& mask, std::string folder) {
    while (!folder.empty() && folder.back() == '/') folder.pop_back();
    if (!folder.empty() && folder.front() == '/' && !IsEverybodys(folder)) {
        mask.Name("home", folder);
    }
}

void LearnUser(Mask& mask, const passwd* entry) {
    if (entry == nullptr || entry->pw_uid == 0) return;
    mask.Name("user", entry->pw_name);
    LearnHome(mask, entry->pw_dir);
}

// Of a directory service the users that matter here are asked for, not all of them.
void LearnLocalUsers(Mask& mask) {
    const std::unique_ptr<std::FILE, CloseFile> file(std::fopen("/etc/passwd", "re"));
    while (const passwd* const entry = file ? ::fgetpwent(file.get()) : nullptr) {
        if (entry->pw_uid >= kFirstPerson && entry->pw_uid != kNobody) LearnUser(mask, entry);
    }
}

void LearnHost(Mask& mask) {
    char name[HOST_NAME_MAX + 1] = "";
    if (::gethostname(name, sizeof name - 1) != 0) return;
    const std::string host = name;
    if (host == "localhost") return;
    mask.Name("host", host);
    mask.Name("host", host.substr(0, host.find('.')));
}

}  // namespace

void LearnMachine(Mask& mask) {
    LearnUser(mask, ::getpwuid(::getuid()));
    LearnUser(mask, ::getpwuid(::geteuid()));
    for (const char* const variable : {"LOGNAME", "USER", "SUDO_USER"}) {
        const char* const name = std::getenv(variable);
        if (name == nullptr || std::string(name) == "root") continue;
        mask.Name("user", name);
        LearnUser(mask, ::getpwnam(name));
    }
    const char* const home = std::getenv("HOME");
    if (home != nullptr) LearnHome(mask, home);
    LearnLocalUsers(mask);
    for (const char* const path : {places::kLogFile, places::kInstallDirectory,
                                   places::kTokenLibrary, places::kEventLibrary}) {
        struct stat status {};
        if (::stat(path, &status) == 0) LearnUser(mask, ::getpwuid(status.st_uid));
    }
    LearnHost(mask);
}

}  // namespace ukey

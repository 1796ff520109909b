#include "doctor/remedy.h"

#include <glob.h>
#include <pwd.h>
#include <unistd.h>

#include <cstdint>
#include <fstream>

#include "kit/text.h"

namespace ukey {

using kit::_;
using kit::Fill;

namespace {

std::string Quoted(const std::string& path) {
    constexpr const char* kPlain =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789/._-+:@%,=";
    if (path.find_first_not_of(kPlain) == std::string::npos) return path;
    std::string text = "'";
    for (const char c : path) text += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return text + "'";
}

bool Lists(const std::string& list, const std::string& path) {
    const bool name = path.front() != '/';
    const std::string end = name ? "/" + path : path;
    std::ifstream file(list);
    for (std::string line; std::getline(file, line);) {
        if (name ? line.size() > end.size() &&
                       line.compare(line.size() - end.size(), end.size(), end) == 0
                 : line == end) {
            return true;
        }
    }
    return false;
}

// The only map of a machine's own namespace is that of every number to itself.
bool InNamespace() {
    std::ifstream map("/proc/self/uid_map");
    std::uint64_t inside = 0;
    std::uint64_t outside = 0;
    std::uint64_t count = 0;
    if (!(map >> inside >> outside >> count)) return false;
    return inside != 0 || outside != 0 || count < UINT32_MAX;
}

}  // namespace

std::string AsRoot(const std::string& command) {
    return ::geteuid() == 0 ? command : "sudo " + command;
}

std::string Words(const std::vector<std::string>& paths) {
    std::string text;
    for (const std::string& path : paths) text += (text.empty() ? "" : " ") + Quoted(path);
    return text;
}

std::string Listed(const std::vector<std::string>& names) {
    std::string text;
    for (const std::string& name : names) text += (text.empty() ? "" : ", ") + name;
    return text;
}

std::string PackageOf(const std::string& root, const std::string& path) {
    glob_t found{};
    std::string package;
    if (::glob((root + "/var/lib/dpkg/info/*.list").c_str(), 0, nullptr, &found) == 0) {
        for (std::size_t i = 0; i < found.gl_pathc && package.empty(); ++i) {
            const std::string list = found.gl_pathv[i];
            if (!Lists(list, path)) continue;
            const std::size_t start = list.rfind('/') + 1;
            package = list.substr(start, list.rfind('.') - start);
        }
    }
    ::globfree(&found);
    return package;
}

std::string BringBack(const std::string& root, const std::string& path,
                      const std::string& otherwise) {
    const std::string package = PackageOf(root, path);
    if (package.empty()) return otherwise;
    const std::string command = "apt-get install --reinstall " + package;
    return Fill(
        _("its package is installed; install it again: {1}"),
        {root.empty() ? AsRoot(command) : AsRoot("chroot " + Words({root}) + " " + command)});
}

bool OutsideOfNamespace(uid_t owner) {
    uid_t overflow = 65534;
    std::ifstream("/proc/sys/kernel/overflowuid") >> overflow;
    return owner == overflow && InNamespace();
}

std::string OwnerName(uid_t owner) {
    if (OutsideOfNamespace(owner)) return _("somebody outside of this user namespace");
    const passwd* const entry = ::getpwuid(owner);
    return entry != nullptr ? entry->pw_name : Fill(_("user {1}"), {std::to_string(owner)});
}

}  // namespace ukey

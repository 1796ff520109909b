#include "report/versions.h"

#include <gnu/libc-version.h>
#include <openssl/evp.h>
#include <sys/utsname.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <map>
#include <memory>

#include "doctor/remedy.h"
#include "version.h"

namespace ukey {
namespace {

// By its path: what else may be called so is not asked.
constexpr const char* kQuery = "LC_ALL=C /usr/bin/dpkg-query ";

// What a key needs beside the packages that the libraries come from.
constexpr const char* kPackages =
    "'kesta-*' 'libkesta-*' 'python3-kesta-*' libc6 libstdc++6 libgcc-s1";

struct ClosePipe {
    void operator()(std::FILE* pipe) const { ::pclose(pipe); }
};

std::vector<std::string> LinesOf(const std::string& command) {
    std::vector<std::string> lines;
    const std::unique_ptr<std::FILE, ClosePipe> pipe(
        ::popen((command + " 2>/dev/null </dev/null").c_str(), "re"));
    char* line = nullptr;
    std::size_t room = 0;
    while (pipe && ::getline(&line, &room, pipe.get()) > 0) lines.push_back(Trimmed(line));
    std::free(line);
    return lines;
}

std::vector<std::string> Fields(const std::string& line) {
    std::vector<std::string> fields(1);
    for (const char c : line) {
        if (c == '|') {
            fields.emplace_back();
        } else {
            fields.back() += c;
        }
    }
    return fields;
}

// Packages by the paths that they bring.
std::map<std::string, std::string> Owners(const std::vector<std::string>& paths) {
    std::map<std::string, std::string> owners;
    if (paths.empty()) return owners;
    for (const std::string& line : LinesOf(kQuery + ("--search -- " + Words(paths)))) {
        const std::size_t between = line.rfind(": ");
        if (between == std::string::npos) continue;
        owners[line.substr(between + 2)] = line.substr(0, line.find_first_of(":,"));
    }
    return owners;
}

std::vector<Package> ReadPackages(const std::map<std::string, std::string>& owners) {
    std::string names = kPackages;
    for (const auto& [path, package] : owners) names += " " + Words({package});
    std::map<std::string, Package> packages;  // a name may be asked for twice
    for (const std::string& line :
         LinesOf(kQuery + ("--show --showformat='${Package}|${Version}|${Architecture}|"
                           "${db:Status-Status}\\n' -- " +
                           names))) {
        const auto fields = Fields(line);
        if (fields.size() != 4 || fields[3] == "not-installed") continue;
        packages[fields[0] + ":" + fields[2]] = {fields[0], fields[1], fields[2], fields[3]};
    }
    std::vector<Package> list;
    for (auto& [name, package] : packages) list.push_back(std::move(package));
    return list;
}

std::string Hash(const std::string& bytes) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned length = 0;
    if (EVP_Digest(bytes.data(), bytes.size(), digest, &length, EVP_sha256(), nullptr) != 1) {
        return {};
    }
    std::string text;
    for (unsigned i = 0; i < length; ++i) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02x", digest[i]);
        text += digits;
    }
    return text;
}

InstalledLibrary Look(const LibraryFile& file) {
    InstalledLibrary library;
    library.file = file;
    try {
        const std::string bytes = ReadInput(file.path);
        library.size = bytes.size();
        library.hash = Hash(bytes);
    } catch (const FileError&) {
        // doctor tells why
    }
    return library;
}

std::string SystemName() {
    constexpr std::string_view kName = "PRETTY_NAME=";
    std::ifstream file("/etc/os-release");
    for (std::string line; std::getline(file, line);) {
        if (line.compare(0, kName.size(), kName) != 0) continue;
        const std::string name = line.substr(kName.size());
        return name.size() > 1 && name.front() == '"' ? name.substr(1, name.size() - 2) : name;
    }
    return _("not known");
}

std::string Language() {
    for (const char* const variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const char* const value = std::getenv(variable);
        if (value != nullptr && *value != '\0') return value;
    }
    return "C";
}

Rows ReadSystem() {
    utsname machine{};
    ::uname(&machine);
    const std::time_t now = std::time(nullptr);
    std::tm parts{};
    char zone[16] = "";
    ::localtime_r(&now, &parts);
    std::strftime(zone, sizeof zone, "%z", &parts);
    return {{_("ukey"), UKEY_VERSION},
            {_("System"), SystemName()},
            {_("Kernel"), machine.release},
            {_("Processor"), machine.machine},
            {_("C library"), ::gnu_get_libc_version()},
            {_("Language"), Language()},
            {_("Time zone"), zone}};
}

}  // namespace

Versions ReadVersions(const Report& report) {
    Versions versions;
    versions.system = ReadSystem();
    std::vector<std::string> paths;
    for (const LibraryFile& file : report.libraries) paths.push_back(file.path);
    const auto owners = Owners(paths);
    for (const LibraryFile& file : report.libraries) {
        InstalledLibrary library = Look(file);
        const auto owner = owners.find(file.path);
        if (owner != owners.end()) library.package = owner->second;
        if (file.id == "client-library") library.version = report.version;
        versions.libraries.push_back(std::move(library));
    }
    versions.packages = ReadPackages(owners);
    return versions;
}

}  // namespace ukey

#include "doctor/library_path.h"

#include <glob.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <utility>

#include "doctor/elf_file.h"

namespace ukey {
namespace {

constexpr int kDeepestInclude = 8;

std::string MultiarchName() {
    return MachineName(OwnMachine()) == "AArch64" ? "aarch64-linux-gnu" : "x86_64-linux-gnu";
}

std::vector<std::string> Split(const std::string& text) {
    std::vector<std::string> parts;
    std::istringstream stream(text);
    for (std::string part; std::getline(stream, part, ':');) {
        if (!part.empty()) parts.push_back(part);
    }
    return parts;
}

std::string WithOrigin(std::string folder, const std::string& origin) {
    for (const char* const name : {"${ORIGIN}", "$ORIGIN"}) {
        const std::size_t at = folder.find(name);
        if (at != std::string::npos) folder.replace(at, std::string(name).size(), origin);
    }
    return folder;
}

}  // namespace

LibraryPath::LibraryPath(std::string root) : root_(std::move(root)) {
    const char* const value = root_.empty() ? std::getenv("LD_LIBRARY_PATH") : nullptr;
    if (value != nullptr) environment_ = Split(value);
    ReadConfiguration("/etc/ld.so.conf", 0);
}

void LibraryPath::ReadConfiguration(const std::string& file, int depth) {
    std::ifstream stream(root_ + file);
    for (std::string line; std::getline(stream, line);) {
        std::istringstream words(line.substr(0, line.find('#')));
        std::string word;
        if (!(words >> word)) continue;
        if (word != "include") {
            configured_.push_back(word);
            continue;
        }
        std::string pattern;
        if (!(words >> pattern) || depth >= kDeepestInclude) continue;
        if (pattern.front() != '/') pattern.insert(0, "/etc/");
        glob_t found{};
        if (::glob((root_ + pattern).c_str(), 0, nullptr, &found) == 0) {
            for (std::size_t i = 0; i < found.gl_pathc; ++i) {
                ReadConfiguration(std::string(found.gl_pathv[i]).substr(root_.size()), depth + 1);
            }
        }
        ::globfree(&found);
    }
}

std::vector<std::string> LibraryPath::Folders(const std::string& runpath,
                                              const std::string& origin) const {
    std::vector<std::string> folders = environment_;
    for (const std::string& folder : Split(runpath)) folders.push_back(WithOrigin(folder, origin));
    folders.insert(folders.end(), configured_.begin(), configured_.end());
    for (const std::string parent : {"/lib/", "/usr/lib/"}) {
        folders.push_back(parent + MultiarchName());
    }
    for (const char* const folder : {"/lib64", "/usr/lib64", "/lib", "/usr/lib"}) {
        folders.emplace_back(folder);
    }
    return folders;
}

std::string LibraryPath::Find(const std::string& name, const std::string& runpath,
                              const std::string& origin) const {
    if (name.find('/') != std::string::npos) {
        return ::access((root_ + name).c_str(), F_OK) == 0 ? root_ + name : "";
    }
    for (const std::string& folder : Folders(runpath, origin)) {
        std::string path = root_;
        path += folder + "/" + name;
        if (::access(path.c_str(), F_OK) != 0) continue;
        // The loader passes over a library for another machine, and stops at a damaged one.
        const ElfFile file = ReadElf(path);
        if (!file.elf || file.machine == OwnMachine()) return path;
    }
    return {};
}

}  // namespace ukey

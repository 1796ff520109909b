// What a shared library says of itself, read from its file without loading it: a library that is
// under suspicion must not run.
#ifndef UKEY_DOCTOR_ELF_FILE_H
#define UKEY_DOCTOR_ELF_FILE_H

#include <cstdint>
#include <set>
#include <string>
#include <vector>

namespace ukey {

struct ElfFile {
    // A version of a symbol that another library must define.
    struct VersionNeed {
        std::string library;
        std::string version;
    };

    std::string fault;  // why it could not be read; the rest is then incomplete
    bool elf = false;
    bool sixtyFourBit = false;
    std::uint16_t machine = 0;
    std::vector<std::string> needed;  // names of the libraries that it depends on
    std::string runpath;              // DT_RUNPATH, else DT_RPATH
    std::set<std::string> symbols;    // that it defines for others
    std::vector<VersionNeed> versionNeeds;
    std::set<std::string> versions;  // that it defines
};

ElfFile ReadElf(const std::string& path);
ElfFile ParseElf(const std::string& bytes);

// "x86-64", "AArch64", "machine 40".
std::string MachineName(std::uint16_t machine);
// The machine that this command itself is for.
std::uint16_t OwnMachine();

}  // namespace ukey

#endif

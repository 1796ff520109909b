// A shared library as doctor reads it: what it tells stands in the file, and takes no more room
// than the file explains.
#include <string>

#include "doctor/elf_file.h"
#include "fuzz_target.h"

namespace {

// What was told so far, which is a text of the file each.
struct Told {
    const std::string& bytes;
    std::size_t size = 0;

    void Take(const std::string& text) {
        FUZZ_EXPECT(bytes.find(text + '\0') != std::string::npos);
        size += text.size() + 1;
    }
};

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    const ukey::ElfFile file = ukey::ParseElf(bytes);
    Told told{bytes};
    for (const std::string& name : file.needed) told.Take(name);
    for (const std::string& name : file.symbols) told.Take(name);
    for (const std::string& name : file.versions) told.Take(name);
    for (const ukey::ElfFile::VersionNeed& need : file.versionNeeds) {
        told.Take(need.library);
        told.Take(need.version);
    }
    if (!file.runpath.empty()) told.Take(file.runpath);
    FUZZ_EXPECT(told.size <= 4 * size + 3);
    FUZZ_EXPECT(file.elf || !file.fault.empty());
    FUZZ_EXPECT(!ukey::MachineName(file.machine).empty());
    return 0;
}

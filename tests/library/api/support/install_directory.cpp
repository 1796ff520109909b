#include "install_directory.h"

#include <dlfcn.h>
#include <elf.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <vector>

namespace fs = std::filesystem;

namespace install {

namespace {

void Put(const fs::path& library) {
    // A new file: one that is mapped must not change under the process.
    fs::remove(token_library);
    fs::copy_file(library, token_library);
}

std::vector<Elf64_Phdr> SegmentsOf(std::istream& file, Elf64_Ehdr& header) {
    file.read(reinterpret_cast<char*>(&header), sizeof header);
    std::vector<Elf64_Phdr> segments(header.e_phnum);
    file.seekg(static_cast<std::streamoff>(header.e_phoff));
    file.read(reinterpret_cast<char*>(segments.data()),
              static_cast<std::streamsize>(segments.size() * sizeof(Elf64_Phdr)));
    return segments;
}

void* HandleIfOpen() {
    return dlopen(token_library, RTLD_LAZY | RTLD_NOLOAD);
}

}  // namespace

void RemoveTokenLibrary() {
    fs::remove(token_library);
}

void TruncateTokenLibrary(unsigned bytes) {
    Put(fs::path(KESTA_TOKEN_IMAGE) / "libKestaZRK.so");
    fs::resize_file(token_library, bytes);
}

void PutTextFile() {
    fs::remove(token_library);
    std::ofstream(token_library) << "This is not a library.\n";
}

void PutLibraryWithout(const std::string& entry) {
    Put(fs::path(KESTA_TOKEN_VARIANTS) / ("without_" + entry) / "libKestaZRK.so");
}

void PutLibraryWithUnresolvedFunction() {
    Put(fs::path(KESTA_TOKEN_VARIANTS) / "unresolved" / "libKestaZRK.so");
}

void PutLibraryWithDistantZeroes() {
    PutCompleteLibrary();
    std::fstream file(token_library, std::ios::in | std::ios::out | std::ios::binary);
    Elf64_Ehdr header{};
    std::vector<Elf64_Phdr> segments = SegmentsOf(file, header);
    const auto size = static_cast<std::streamsize>(segments.size() * sizeof(Elf64_Phdr));

    // The note is of no use to the loader and stands behind the segments that it loads.
    Elf64_Phdr* note = nullptr;
    Elf64_Addr end = 0;
    for (Elf64_Phdr& segment : segments) {
        if (segment.p_type == PT_LOAD) end = std::max(end, segment.p_vaddr + segment.p_memsz);
        if (segment.p_type == PT_NOTE) note = &segment;
    }
    if (!file || !note) throw std::runtime_error("the token library has no note");
    constexpr Elf64_Xword page = 0x10000;
    const Elf64_Addr place = (end / page + 2) * page;
    *note = {PT_LOAD, PF_R | PF_W, 0x40000000, place, place, 0, page, page};
    file.seekp(static_cast<std::streamoff>(header.e_phoff));
    file.write(reinterpret_cast<const char*>(segments.data()), size);
}

void PutCompleteLibrary() {
    Put(fs::path(KESTA_TOKEN_IMAGE) / "libKestaZRK.so");
}

void PutLibraryCutInItsLastPage() {
    PutCompleteLibrary();
    std::ifstream file(token_library, std::ios::binary);
    Elf64_Ehdr header{};
    Elf64_Off end = 0;
    for (const Elf64_Phdr& segment : SegmentsOf(file, header)) {
        if (segment.p_type == PT_LOAD) end = std::max(end, segment.p_offset + segment.p_filesz);
    }
    if (!file || end % 4096 < 2) throw std::runtime_error("nothing to cut off");
    fs::resize_file(token_library, end - 1);
}

int CloseEntirely() {
    int times = 0;
    while (void* const handle = HandleIfOpen()) {
        dlclose(handle);  // what asking added
        dlclose(handle);  // one of those that were there
        ++times;
    }
    return times;
}

bool IsOpen() {
    void* const handle = HandleIfOpen();
    if (handle) dlclose(handle);
    return handle != nullptr;
}

}  // namespace install

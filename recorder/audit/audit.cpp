// What the dynamic loader asks while a recording or a replay runs: it is sent to a stand-in where
// it looks for a library of this system. Lives in a namespace of its own beside the client, so it
// uses the C library alone.
//
// While recording, a library that lacks a function is left as it is: with a stand-in before it the
// function would seem to be there. So is a second file of the same name.
#include <fcntl.h>
#include <link.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "boundary/table.h"
#include "shims/names.h"

using namespace kesta::recorder;

namespace {

constexpr std::size_t kPathSize = 4096;

// One for each boundary, in their order.
struct Redirection {
    const char* name;      // what clients look for
    const char* needed;    // what the stand-in looks for
    const char* variable;  // replaying: "0" where the recording has no such library
    char standIn[kPathSize];
    char real[kPathSize];
    dev_t device;
    ino_t file;
};

Redirection redirections[kBoundaries] = {
    {KESTA_UNIFIED_LIBRARY, kRealLibrary, "", "", "", 0, 0},
    {KESTA_TOKEN_LIBRARY, kRealTokenLibrary, "KESTA_REPLAYER_TOKEN", "", "", 0, 0},
    {KESTA_EVENT_LIBRARY, kRealEventLibrary, "KESTA_REPLAYER_EVENTS", "", "", 0, 0},
};
char core[kPathSize];
const char* replayed;

const char* BaseName(const char* path) {
    const char* const slash = std::strrchr(path, '/');
    return slash == nullptr ? path : slash + 1;
}

void Join(char* path, const char* folder, const char* name) {
    const std::size_t length = std::strlen(folder), more = std::strlen(name) + 1;
    if (length + 1 + more > kPathSize) return;
    std::memcpy(path, folder, length);
    path[length] = '/';
    std::memcpy(path + length + 1, name, more);
}

// A library's file in memory.
class File {
public:
    explicit File(const char* path) {
        const int descriptor = open(path, O_RDONLY | O_CLOEXEC);
        if (descriptor < 0) return;
        if (fstat(descriptor, &status_) == 0 && S_ISREG(status_.st_mode) && size() != 0) {
            void* const base = mmap(nullptr, size(), PROT_READ, MAP_PRIVATE, descriptor, 0);
            if (base != MAP_FAILED) base_ = static_cast<const char*>(base);
        }
        close(descriptor);
    }
    ~File() {
        if (base_ != nullptr) munmap(const_cast<char*>(base_), size());
    }
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    const struct stat& status() const { return status_; }

    template <typename T>
    const T* At(std::size_t offset, std::size_t count = 1) const {
        if (base_ == nullptr || offset > size() || count > (size() - offset) / sizeof(T)) {
            return nullptr;
        }
        return reinterpret_cast<const T*>(base_ + offset);
    }

private:
    std::size_t size() const { return static_cast<std::size_t>(status_.st_size); }

    struct stat status_ = {};
    const char* base_ = nullptr;
};

bool Defines(const File& file, const ElfW(Shdr) & table, const ElfW(Shdr) & texts,
             const char* name) {
    const std::size_t count = table.sh_size / sizeof(ElfW(Sym));
    const auto* const symbols = file.At<ElfW(Sym)>(table.sh_offset, count);
    const char* const names = file.At<char>(texts.sh_offset, texts.sh_size);
    if (symbols == nullptr || names == nullptr) return false;
    const std::size_t length = std::strlen(name) + 1;
    for (std::size_t i = 0; i < count; ++i) {
        if (symbols[i].st_shndx != SHN_UNDEF && symbols[i].st_name < texts.sh_size &&
            length <= texts.sh_size - symbols[i].st_name &&
            std::memcmp(names + symbols[i].st_name, name, length) == 0) {
            return true;
        }
    }
    return false;
}

bool DefinesAll(const File& file, Boundary boundary) {
    const auto* const header = file.At<ElfW(Ehdr)>(0);
    if (header == nullptr || std::memcmp(header->e_ident, ELFMAG, SELFMAG) != 0) return false;
    const auto* const sections = file.At<ElfW(Shdr)>(header->e_shoff, header->e_shnum);
    if (sections == nullptr) return false;
    for (unsigned i = 0; i < header->e_shnum; ++i) {
        if (sections[i].sh_type != SHT_DYNSYM || sections[i].sh_link >= header->e_shnum) continue;
        for (std::size_t number = 0; number < kFunctionCount; ++number) {
            if (BoundaryOf(number) == boundary &&
                !Defines(file, sections[i], sections[sections[i].sh_link], RowOf(number).name)) {
                return false;
            }
        }
        return true;
    }
    return false;
}

// What the loader is to open in place of the file at path.
const char* InPlaceOf(const char* path, int boundary) {
    Redirection& to = redirections[boundary];
    const File file(path);
    if (to.real[0] == '\0') {
        if (std::strlen(path) >= kPathSize || !DefinesAll(file, static_cast<Boundary>(boundary))) {
            return path;
        }
        std::strcpy(to.real, path);
        to.device = file.status().st_dev;
        to.file = file.status().st_ino;
    }
    const bool same = to.device == file.status().st_dev && to.file == file.status().st_ino;
    return same ? to.standIn : path;
}

// Replaying, the token libraries are not looked for: never a real key.
const char* Answered(int boundary) {
    const char* const there = std::getenv(redirections[boundary].variable);
    if (there != nullptr && std::strcmp(there, "0") == 0) return nullptr;
    return redirections[boundary].standIn;
}

}  // namespace

extern "C" {
#pragma GCC visibility push(default)

// The loader's own version: nothing is used here that differs between versions.
unsigned la_version(unsigned version) {
    const char* const folder = std::getenv("KESTA_RECORDER_FOLDER");
    if (folder == nullptr) return 0;
    replayed = std::getenv("KESTA_REPLAYER_FILE");
    if (replayed != nullptr && *replayed == '\0') replayed = nullptr;
    Join(core, folder, replayed != nullptr ? "libkesta_replayer.so" : "libkesta_recorder.so");
    const char* const kinds[kBoundaries] = {"exports",
                                            replayed != nullptr ? "replay-token" : "token",
                                            replayed != nullptr ? "replay-events" : "events"};
    for (int i = 0; i < kBoundaries; ++i) {
        char within[64] = "";
        std::strcat(std::strcat(within, kinds[i]), "/");
        std::strcat(within, redirections[i].name);
        Join(redirections[i].standIn, folder, within);
    }
    return version;
}

char* la_objsearch(const char* name, std::uintptr_t*, unsigned flag) {
    const char* const base = BaseName(name);
    const char* found = name;
    if (std::strcmp(base, "libkesta_recorder_core.so") == 0) found = core;
    for (int i = 0; i < kBoundaries; ++i) {
        Redirection& to = redirections[i];
        if (std::strcmp(base, to.needed) == 0) found = to.real[0] == '\0' ? nullptr : to.real;
        if (std::strcmp(base, to.name) != 0) continue;
        if (replayed != nullptr && i != 0) return const_cast<char*>(Answered(i));
        // A bare name is still to be looked for, folder by folder.
        if (flag != LA_SER_ORIG || base != name) found = InPlaceOf(name, i);
    }
    return const_cast<char*>(found);
}

#pragma GCC visibility pop
}

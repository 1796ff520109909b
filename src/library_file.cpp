#include "library_file.h"

#include <dlfcn.h>
#include <elf.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

namespace kesta {

namespace {

class File {
public:
    explicit File(const char* path) : descriptor_(open(path, O_RDONLY | O_CLOEXEC)) {}
    ~File() {
        if (descriptor_ >= 0) close(descriptor_);
    }
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    bool Status(struct stat& out) const {
        return descriptor_ >= 0 && fstat(descriptor_, &out) == 0;
    }

    template <typename Record>
    bool Read(Record& record, Elf64_Off offset) const {
        return pread(descriptor_, &record, sizeof record, static_cast<off_t>(offset)) ==
               static_cast<ssize_t>(sizeof record);
    }

private:
    int descriptor_;
};

// False for all that the loader itself refuses.
bool IsCutShort(const char* path) {
    const File file(path);
    struct stat status;
    Elf64_Ehdr header;
    if (!file.Status(status) || !S_ISREG(status.st_mode) || !file.Read(header, 0)) return false;
    if (std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0 ||
        header.e_ident[EI_CLASS] != ELFCLASS64 || header.e_phentsize != sizeof(Elf64_Phdr)) {
        return false;
    }
    // A page that the file reaches into is filled up with zeroes; one behind it is not there.
    const auto page = static_cast<Elf64_Off>(sysconf(_SC_PAGESIZE));
    const auto size = (static_cast<Elf64_Off>(status.st_size) + page - 1) / page * page;
    for (unsigned i = 0; i < header.e_phnum; ++i) {
        Elf64_Phdr segment;
        if (!file.Read(segment, header.e_phoff + i * sizeof segment)) return true;
        if (segment.p_type != PT_LOAD) continue;
        // A segment of zeroes alone takes nothing of the file, wherever it says that it begins.
        if (segment.p_filesz > size - std::min(segment.p_offset, size)) return true;
    }
    return false;
}

}  // namespace

void* OpenLibrary(const char* path) {
    if (void* const loaded = dlopen(path, RTLD_LAZY | RTLD_NOLOAD)) return loaded;
    return IsCutShort(path) ? nullptr : dlopen(path, RTLD_LAZY);
}

}  // namespace kesta

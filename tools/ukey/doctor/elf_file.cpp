#include "doctor/elf_file.h"

#include <elf.h>

#include <cstddef>
#include <cstring>
#include <stdexcept>

#include "kit/text.h"
#include "names.h"

namespace ukey {
namespace {

struct Malformed : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// What the file's name is said of.
constexpr const char* Predicate(const char* sentence) {
    return sentence + std::string_view("{1} ").size();
}

// Reads at file offsets and at load addresses; nothing is read beyond the file.
class Image {
public:
    explicit Image(const std::string& bytes) : bytes_(bytes) {}

    template <class T>
    T At(std::uint64_t offset) const {
        T value;
        if (offset > bytes_.size() || bytes_.size() - offset < sizeof value) {
            throw Malformed(Predicate(N_("{1} is cut short")));
        }
        std::memcpy(&value, bytes_.data() + offset, sizeof value);
        return value;
    }

    std::string TextAt(std::uint64_t offset) const {
        if (offset >= bytes_.size()) throw Malformed(Predicate(N_("{1} is cut short")));
        const std::size_t end = bytes_.find('\0', offset);
        if (end == std::string::npos) throw Malformed(Predicate(N_("{1} is cut short")));
        // Names share their ends at most. In a file where all of them are the same long text, what
        // they take together would know no bound.
        told_ += end - offset + 1;
        if (told_ / 4 > bytes_.size()) throw Malformed(Predicate(N_("{1} is no shared library")));
        return bytes_.substr(offset, end - offset);
    }

    void AddSegment(const Elf64_Phdr& segment) { segments_.push_back(segment); }

    std::uint64_t OffsetOf(std::uint64_t address) const {
        for (const Elf64_Phdr& segment : segments_) {
            if (address >= segment.p_vaddr && address - segment.p_vaddr < segment.p_filesz) {
                return address - segment.p_vaddr + segment.p_offset;
            }
        }
        throw Malformed(Predicate(N_("{1} points outside itself")));
    }

private:
    const std::string& bytes_;
    mutable std::uint64_t told_ = 0;  // bytes of all names
    std::vector<Elf64_Phdr> segments_;
};

// The entries of the dynamic section that are of use here; 0 is "none".
struct Dynamic {
    std::vector<std::uint64_t> needed;
    std::uint64_t runpath = 0;
    std::uint64_t rpath = 0;
    std::uint64_t strings = 0;
    std::uint64_t symbols = 0;
    std::uint64_t hash = 0;
    std::uint64_t gnuHash = 0;
    std::uint64_t versionNeed = 0;
    std::uint64_t versionNeedCount = 0;
    std::uint64_t versionDefined = 0;
    std::uint64_t versionDefinedCount = 0;
};

void Take(Dynamic& dynamic, const Elf64_Dyn& entry) {
    switch (entry.d_tag) {
        case DT_NEEDED:
            dynamic.needed.push_back(entry.d_un.d_val);
            break;
        case DT_RUNPATH:
            dynamic.runpath = entry.d_un.d_val;
            break;
        case DT_RPATH:
            dynamic.rpath = entry.d_un.d_val;
            break;
        case DT_STRTAB:
            dynamic.strings = entry.d_un.d_ptr;
            break;
        case DT_SYMTAB:
            dynamic.symbols = entry.d_un.d_ptr;
            break;
        case DT_HASH:
            dynamic.hash = entry.d_un.d_ptr;
            break;
        case DT_GNU_HASH:
            dynamic.gnuHash = entry.d_un.d_ptr;
            break;
        case DT_VERNEED:
            dynamic.versionNeed = entry.d_un.d_ptr;
            break;
        case DT_VERNEEDNUM:
            dynamic.versionNeedCount = entry.d_un.d_val;
            break;
        case DT_VERDEF:
            dynamic.versionDefined = entry.d_un.d_ptr;
            break;
        case DT_VERDEFNUM:
            dynamic.versionDefinedCount = entry.d_un.d_val;
            break;
        default:
            break;
    }
}

// The number of symbols stands nowhere: it follows from the hash table.
std::uint64_t CountByGnuHash(const Image& image, std::uint64_t table) {
    const auto buckets = image.At<std::uint32_t>(table);
    const auto first = image.At<std::uint32_t>(table + 4);
    const auto bloomWords = image.At<std::uint32_t>(table + 8);
    const std::uint64_t bucketStart = table + 16 + std::uint64_t{bloomWords} * 8;
    const std::uint64_t chainStart = bucketStart + std::uint64_t{buckets} * 4;
    std::uint32_t last = 0;
    for (std::uint64_t i = 0; i < buckets; ++i) {
        last = std::max(last, image.At<std::uint32_t>(bucketStart + i * 4));
    }
    if (last < first) return first;
    while ((image.At<std::uint32_t>(chainStart + std::uint64_t{last - first} * 4) & 1U) == 0) {
        ++last;
    }
    return std::uint64_t{last} + 1;
}

std::uint64_t SymbolCount(const Image& image, const Dynamic& dynamic) {
    if (dynamic.gnuHash != 0) return CountByGnuHash(image, image.OffsetOf(dynamic.gnuHash));
    if (dynamic.hash != 0) return image.At<std::uint32_t>(image.OffsetOf(dynamic.hash) + 4);
    return 0;
}

bool Offered(const Elf64_Sym& symbol) {
    const auto binding = ELF64_ST_BIND(symbol.st_info);
    const auto visibility = ELF64_ST_VISIBILITY(symbol.st_other);
    return symbol.st_shndx != SHN_UNDEF && binding != STB_LOCAL &&
           (visibility == STV_DEFAULT || visibility == STV_PROTECTED);
}

void ReadSymbols(const Image& image, const Dynamic& dynamic, ElfFile& file) {
    if (dynamic.symbols == 0 || dynamic.strings == 0) return;
    const std::uint64_t symbols = image.OffsetOf(dynamic.symbols);
    const std::uint64_t strings = image.OffsetOf(dynamic.strings);
    const std::uint64_t count = SymbolCount(image, dynamic);
    for (std::uint64_t i = 1; i < count; ++i) {
        const auto symbol = image.At<Elf64_Sym>(symbols + i * sizeof(Elf64_Sym));
        if (Offered(symbol)) file.symbols.insert(image.TextAt(strings + symbol.st_name));
    }
}

void ReadVersionNeeds(const Image& image, const Dynamic& dynamic, ElfFile& file) {
    if (dynamic.versionNeed == 0) return;
    const std::uint64_t strings = image.OffsetOf(dynamic.strings);
    std::uint64_t at = image.OffsetOf(dynamic.versionNeed);
    for (std::uint64_t i = 0; i < dynamic.versionNeedCount; ++i) {
        const auto need = image.At<Elf64_Verneed>(at);
        std::uint64_t part = at + need.vn_aux;
        for (unsigned j = 0; j < need.vn_cnt; ++j) {
            const auto version = image.At<Elf64_Vernaux>(part);
            const bool weak = (version.vna_flags & VER_FLG_WEAK) != 0;
            if (!weak) {
                file.versionNeeds.push_back({image.TextAt(strings + need.vn_file),
                                             image.TextAt(strings + version.vna_name)});
            }
            if (version.vna_next == 0) break;
            part += version.vna_next;
        }
        if (need.vn_next == 0) break;
        at += need.vn_next;
    }
}

void ReadVersions(const Image& image, const Dynamic& dynamic, ElfFile& file) {
    if (dynamic.versionDefined == 0) return;
    const std::uint64_t strings = image.OffsetOf(dynamic.strings);
    std::uint64_t at = image.OffsetOf(dynamic.versionDefined);
    for (std::uint64_t i = 0; i < dynamic.versionDefinedCount; ++i) {
        const auto defined = image.At<Elf64_Verdef>(at);
        const auto name = image.At<Elf64_Verdaux>(at + defined.vd_aux);
        file.versions.insert(image.TextAt(strings + name.vda_name));
        if (defined.vd_next == 0) break;
        at += defined.vd_next;
    }
}

Dynamic ReadDynamic(Image& image, const Elf64_Ehdr& header) {
    Dynamic dynamic;
    Elf64_Phdr section{};
    for (unsigned i = 0; i < header.e_phnum; ++i) {
        const auto segment =
            image.At<Elf64_Phdr>(header.e_phoff + std::uint64_t{i} * header.e_phentsize);
        if (segment.p_type == PT_LOAD) image.AddSegment(segment);
        if (segment.p_type == PT_DYNAMIC) section = segment;
    }
    for (std::uint64_t at = 0; at + sizeof(Elf64_Dyn) <= section.p_filesz;
         at += sizeof(Elf64_Dyn)) {
        const auto entry = image.At<Elf64_Dyn>(section.p_offset + at);
        if (entry.d_tag == DT_NULL) break;
        Take(dynamic, entry);
    }
    return dynamic;
}

void Fill(const std::string& bytes, ElfFile& file) {
    if (bytes.empty()) throw Malformed(Predicate(N_("{1} is empty")));
    if (bytes.compare(0, SELFMAG, ELFMAG) != 0)
        throw Malformed(Predicate(N_("{1} is no shared library")));
    Image image(bytes);
    const auto header = image.At<Elf64_Ehdr>(0);
    file.elf = true;
    file.machine = header.e_machine;
    file.sixtyFourBit = header.e_ident[EI_CLASS] == ELFCLASS64;
    if (!file.sixtyFourBit || header.e_ident[EI_DATA] != ELFDATA2LSB) return;
    if (header.e_type != ET_DYN) throw Malformed(Predicate(N_("{1} is no shared library")));
    const Dynamic dynamic = ReadDynamic(image, header);
    if (dynamic.strings == 0) throw Malformed(Predicate(N_("{1} is no shared library")));
    const std::uint64_t strings = image.OffsetOf(dynamic.strings);
    for (const std::uint64_t name : dynamic.needed) {
        file.needed.push_back(image.TextAt(strings + name));
    }
    const std::uint64_t path = dynamic.runpath != 0 ? dynamic.runpath : dynamic.rpath;
    if (path != 0) file.runpath = image.TextAt(strings + path);
    ReadSymbols(image, dynamic, file);
    ReadVersionNeeds(image, dynamic, file);
    ReadVersions(image, dynamic, file);
}

}  // namespace

ElfFile ParseElf(const std::string& bytes) {
    ElfFile file;
    try {
        Fill(bytes, file);
    } catch (const Malformed& malformed) {
        file.fault = malformed.what();
    }
    return file;
}

ElfFile ReadElf(const std::string& path) {
    try {
        return ParseElf(ReadInput(path));
    } catch (const FileError& error) {
        ElfFile file;
        file.fault = error.what();
        return file;
    }
}

std::string MachineName(std::uint16_t machine) {
    switch (machine) {
        case EM_X86_64:
            return "x86-64";
        case EM_AARCH64:
            return "AArch64";
        case EM_386:
            return "x86";
        case EM_ARM:
            return "ARM";
        default:
            return kit::Fill(_("machine {1}"), {std::to_string(machine)});
    }
}

std::uint16_t OwnMachine() {
#if defined(__aarch64__)
    return EM_AARCH64;
#elif defined(__x86_64__)
    return EM_X86_64;
#else
#error "name the machine of this platform here"
#endif
}

}  // namespace ukey

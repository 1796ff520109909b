// The build id of a loaded library, in hexadecimal; empty where it has none.
#ifndef KESTA_RECORDER_BUILD_ID_H
#define KESTA_RECORDER_BUILD_ID_H

#include <link.h>

#include <cstdio>
#include <cstring>

namespace kesta {
namespace recorder {

inline std::size_t PaddedNote(std::size_t size) {
    return (size + 3) & ~std::size_t{3};
}

inline void PrintBuildId(const char* notes, std::size_t size, char* text, std::size_t room) {
    while (size >= sizeof(ElfW(Nhdr))) {
        ElfW(Nhdr) note;
        std::memcpy(&note, notes, sizeof note);
        const std::size_t name = PaddedNote(note.n_namesz), content = PaddedNote(note.n_descsz);
        if (name + content > size - sizeof note) return;
        const char* const bytes = notes + sizeof note + name;
        if (note.n_type == NT_GNU_BUILD_ID) {
            for (std::size_t i = 0; i < note.n_descsz && 2 * i + 3 <= room; ++i) {
                std::snprintf(text + 2 * i, 3, "%02x", static_cast<unsigned char>(bytes[i]));
            }
            return;
        }
        notes = bytes + content;
        size -= sizeof note + name + content;
    }
}

// base is where the library is loaded.
inline const char* ReadBuildId(ElfW(Addr) base, char* text, std::size_t room) {
    struct Search {
        ElfW(Addr) base;
        char* text;
        std::size_t room;
    } search = {base, text, room};
    text[0] = '\0';
    dl_iterate_phdr(
        [](dl_phdr_info* info, std::size_t, void* data) {
            const auto& wanted = *static_cast<const Search*>(data);
            if (info->dlpi_addr != wanted.base) return 0;
            for (int i = 0; i < info->dlpi_phnum; ++i) {
                const auto& segment = info->dlpi_phdr[i];
                if (segment.p_type != PT_NOTE) continue;
                PrintBuildId(reinterpret_cast<const char*>(wanted.base + segment.p_vaddr),
                             segment.p_memsz, wanted.text, wanted.room);
            }
            return 1;
        },
        &search);
    return text;
}

}  // namespace recorder
}  // namespace kesta

#endif

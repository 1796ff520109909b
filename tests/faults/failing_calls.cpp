#include "failing_calls.h"

#include <dlfcn.h>
#include <elf.h>
#include <execinfo.h>
#include <link.h>
#include <openssl/err.h>
#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <string_view>

extern "C" {
extern void* __libc_stack_end;
extern const char faults_thunks[] __attribute__((visibility("hidden")));
// Where a call goes; asked by the entries of thunks.cpp.
__attribute__((used, visibility("hidden"))) void* faults_decide(std::uint64_t slot,
                                                                const std::uintptr_t* stack,
                                                                std::uintptr_t from);
}

namespace {

constexpr std::size_t kThunkSize = 16;

// How a function fails.
enum How {
    kCannot,     // it does not, or has no way to say so
    kReturns,    // with this value and this errno
    kDoneFirst,  // after it did what it was asked for: a descriptor is gone all the same
    kNotes,      // with this value; OpenSSL's notes say that memory ran out
    kReleases,   // sqlite3_deserialize: it gives back the memory that it was handed
    kSized,      // sqlite3_serialize: it tells the size that it found no memory for
    kStream1,    // the stream that is this argument remembers that it failed
    kStream2,
    kStream3,
    kStream4
};

struct Row {
    std::string_view symbol;
    How how;
    long value;
    int error;
};

constexpr Row kRows[] = {
#define FAILS(symbol, how, value, error) {#symbol, how, value, error},
#include "failures.def"
#undef FAILS
};

// What a library between is watched for.
constexpr std::string_view kMemory[] = {"malloc", "calloc", "realloc"};
constexpr std::string_view kFiles[] = {"open",    "open64",  "fopen",  "fopen64", "read",
                                       "write",   "writev",  "fclose", "fflush",  "fwrite",
                                       "opendir", "readdir", "stat",   "lstat",   "pthread_create"};

struct Slot {
    void* real;
    const Row* row;
};

struct Range {
    std::uintptr_t begin, end;
};

Slot slots[kFaultSlots];
FaultRecord own;
FaultRecord* record = &own;
bool armed = false;
const Row* failing = nullptr;
void* failingReal = nullptr;
constexpr std::uint64_t kNoSlot = kFaultSlots;
std::uint64_t startsAt = kNoSlot;  // the call of this slot begins the count
// What is watched whole: an address in it is a place that a call comes from.
Range watched[8];
unsigned watchedCount = 0;

long Fail() {
    errno = failing->error;
    return failing->value;
}

long FailDone(long a, long b, long c, long d, long e, long f) {
    reinterpret_cast<long (*)(long, long, long, long, long, long)>(failingReal)(a, b, c, d, e, f);
    return Fail();
}

long FailNoting() {
    reinterpret_cast<void (*)()>(dlsym(RTLD_DEFAULT, "ERR_new"))();
    reinterpret_cast<void (*)(int, int, const char*, ...)>(dlsym(RTLD_DEFAULT, "ERR_set_error"))(
        ERR_LIB_USER, ERR_R_MALLOC_FAILURE, nullptr);
    return Fail();
}

long FailReleasing(long, long, void* bytes) {
    reinterpret_cast<void (*)(void*)>(dlsym(RTLD_DEFAULT, "sqlite3_free"))(bytes);
    return Fail();
}

long FailSized(long, long, std::int64_t* size) {
    *size = 4096;
    return Fail();
}

long FailStream(FILE* a, FILE* b, FILE* c, FILE* d) {
    constexpr int kFailedBefore = 0x20;  // what ferror looks at
    FILE* const streams[] = {a, b, c, d};
    streams[failing->how - kStream1]->_flags |= kFailedBefore;
    return Fail();
}

void* Failure(const Row* row, void* real) {
    failing = row;
    failingReal = real;
    switch (row->how) {
        case kDoneFirst:
            return reinterpret_cast<void*>(FailDone);
        case kNotes:
            return reinterpret_cast<void*>(FailNoting);
        case kReleases:
            return reinterpret_cast<void*>(FailReleasing);
        case kSized:
            return reinterpret_cast<void*>(FailSized);
        case kCannot:
        case kReturns:
            return reinterpret_cast<void*>(Fail);
        default:
            return reinterpret_cast<void*>(FailStream);
    }
}

std::uint32_t PlaceOf(std::uintptr_t address) {
    for (unsigned i = 0; i < watchedCount; ++i) {
        if (address < watched[i].begin || address >= watched[i].end) continue;
        return static_cast<std::uint32_t>(address - watched[i].begin) + (i << 28U);
    }
    return 0;
}

// An allocation, in a library between or for one: whoever is behind it, as far as the stack shows.
std::uint32_t PlaceOnStack(const std::uintptr_t* stack) {
    std::uint32_t place = 0;
    unsigned found = 0;
    const auto* const end = static_cast<const std::uintptr_t*>(__libc_stack_end);
    for (unsigned i = 0; i < 300 && stack + i < end; ++i) {
        const std::uint32_t one = PlaceOf(stack[i]);
        if (one == 0) continue;
        place = place * 31 + one;
        if (++found == 2) break;
    }
    return place;
}

const Row* RowOf(std::string_view symbol) {
    const Row* const found = std::find_if(std::begin(kRows), std::end(kRows),
                                          [&](const Row& row) { return row.symbol == symbol; });
    return found == std::end(kRows) ? nullptr : found;
}

template <std::size_t size>
bool Has(const std::string_view (&names)[size], std::string_view name) {
    return std::find(names, names + size, name) != names + size;
}

bool IsWatched(std::string_view symbol, FaultScope scope) {
    return scope == kFaultAll || Has(kMemory, symbol) ||
           (scope == kFaultFiles && Has(kFiles, symbol));
}

struct Search {
    std::string_view file;
    FaultScope scope;
    bool found;
};

struct Tables {
    const ElfW(Rela) * rows[2];
    std::size_t sizes[2];
    const ElfW(Sym) * symbols;
    const char* names;
};

template <typename T>
T At(std::uintptr_t address) {
    return reinterpret_cast<T>(address);
}

Tables TablesOf(const dl_phdr_info& info, const ElfW(Dyn) * entry) {
    Tables tables{};
    for (; entry->d_tag != DT_NULL; ++entry) {
        const std::uintptr_t said = entry->d_un.d_ptr;
        // The loader has made most of them absolute.
        const std::uintptr_t at = said < info.dlpi_addr ? said + info.dlpi_addr : said;
        if (entry->d_tag == DT_JMPREL) tables.rows[0] = At<const ElfW(Rela)*>(at);
        if (entry->d_tag == DT_PLTRELSZ) tables.sizes[0] = entry->d_un.d_val;
        if (entry->d_tag == DT_RELA) tables.rows[1] = At<const ElfW(Rela)*>(at);
        if (entry->d_tag == DT_RELASZ) tables.sizes[1] = entry->d_un.d_val;
        if (entry->d_tag == DT_SYMTAB) tables.symbols = At<const ElfW(Sym)*>(at);
        if (entry->d_tag == DT_STRTAB) tables.names = At<const char*>(at);
    }
    return tables;
}

bool IsFunctionAddress(const ElfW(Rela) & row, const ElfW(Sym) & symbol) {
#if defined(__x86_64__)
    constexpr unsigned kJump = R_X86_64_JUMP_SLOT, kAddress = R_X86_64_GLOB_DAT;
#else
    constexpr unsigned kJump = R_AARCH64_JUMP_SLOT, kAddress = R_AARCH64_GLOB_DAT;
#endif
    const auto type = static_cast<unsigned>(ELF64_R_TYPE(row.r_info));
    if (type == kJump) return true;
    return type == kAddress && symbol.st_shndx == SHN_UNDEF &&
           ELF64_ST_TYPE(symbol.st_info) == STT_FUNC;
}

// What a function that is called through the table can do to its caller.
std::uint32_t CanFail(const Row* row, std::string_view symbol) {
    if (row != nullptr) return row->how != kCannot ? 1 : 0;
    return symbol.substr(0, 2) == "_Z" ? 0 : 2;
}

void TakeOver(void** address, const char* symbol, FaultScope scope) {
    if (*address == nullptr || !IsWatched(symbol, scope) || record->slots == kFaultSlots) return;
    const Row* const row = RowOf(symbol);
    const std::uint32_t slot = record->slots++;
    std::snprintf(record->names[slot], kFaultName, "%s", symbol);
    record->canFail[slot] = CanFail(row, symbol);
    if (record->canFail[slot] != 1) return;
    // The loader may not have looked it up yet.
    void* const known = scope == kFaultAll ? nullptr : dlsym(RTLD_DEFAULT, symbol);
    slots[slot] = {known != nullptr ? known : *address, row};
    const auto size = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
    const std::uintptr_t page = reinterpret_cast<std::uintptr_t>(address) & ~(size - 1);
    mprotect(At<void*>(page), size, PROT_READ | PROT_WRITE);
    *address = At<void*>(reinterpret_cast<std::uintptr_t>(faults_thunks) + slot * kThunkSize);
}

void TakeOverAll(const dl_phdr_info& info, const Tables& tables, FaultScope scope) {
    for (int kind = 0; kind < 2; ++kind) {
        const auto* const end = tables.rows[kind] + tables.sizes[kind] / sizeof(ElfW(Rela));
        for (const auto* row = tables.rows[kind]; row < end; ++row) {
            const ElfW(Sym)& symbol = tables.symbols[ELF64_R_SYM(row->r_info)];
            if (!IsFunctionAddress(*row, symbol)) continue;
            TakeOver(At<void**>(info.dlpi_addr + row->r_offset), tables.names + symbol.st_name,
                     scope);
        }
    }
}

bool IsMeant(std::string_view name, std::string_view end) {
    if (end.empty()) return name.empty();
    return name.size() >= end.size() && name.substr(name.size() - end.size()) == end;
}

int Watch(dl_phdr_info* info, std::size_t, void* given) {
    auto& search = *static_cast<Search*>(given);
    if (!IsMeant(info->dlpi_name, search.file)) return 0;
    search.found = true;
    std::uintptr_t end = info->dlpi_addr;
    Tables tables{};
    for (int i = 0; i < info->dlpi_phnum; ++i) {
        const ElfW(Phdr)& part = info->dlpi_phdr[i];
        const std::uintptr_t at = info->dlpi_addr + part.p_vaddr;
        if (part.p_type == PT_LOAD) end = at + part.p_memsz;
        if (part.p_type == PT_DYNAMIC) tables = TablesOf(*info, At<const ElfW(Dyn)*>(at));
    }
    if (search.scope == kFaultAll) watched[watchedCount++] = {info->dlpi_addr, end};
    TakeOverAll(*info, tables, search.scope);
    return 1;
}

// Whether what is watched really is behind a call: a word on the stack may be left from an earlier.
bool IsBehind() {
    void* frames[128];
    const int count = backtrace(frames, 128);
    return std::any_of(frames, frames + count, [](void* frame) {
        return PlaceOf(reinterpret_cast<std::uintptr_t>(frame)) != 0;
    });
}

// Whether the innermost code that is not the C runtime's is OpenSSL's.
bool IsInOpenssl() {
    void* frames[16];
    const int count = backtrace(frames, 16);
    for (int i = 2; i < count; ++i) {
        Dl_info info{};
        if (dladdr(frames[i], &info) == 0 || info.dli_fname == nullptr) return false;
        const std::string_view file = info.dli_fname;
        if (file.find("libcrypto.so") != file.npos) return true;
        if (file.find("/libc.so") == file.npos) return false;
    }
    return false;
}

void NoteCrash(int number) {
    record->theirs = IsInOpenssl() ? 1 : 0;
    signal(number, SIG_DFL);
    raise(number);
}

}  // namespace

void FaultsTellCrashes() {
    void* frames[1];
    backtrace(frames, 1);  // loads what it needs while there is memory
    for (const int number : {SIGSEGV, SIGABRT}) signal(number, NoteCrash);
}

void* faults_decide(std::uint64_t slot, const std::uintptr_t* stack, std::uintptr_t from) {
    void* const real = slots[slot].real;
    if (slot == startsAt) __atomic_store_n(&armed, true, __ATOMIC_RELAXED);
    if (!__atomic_load_n(&armed, __ATOMIC_RELAXED)) return real;
    std::uint32_t place = PlaceOf(from);
    // A program may have one place that allocates for all of OpenSSL.
    if (place == 0 || Has(kMemory, slots[slot].row->symbol)) {
        place = place * 31 + PlaceOnStack(stack);
    }
    if (place == 0) return real;  // nobody's who is watched
    const std::uint32_t nth = __atomic_add_fetch(&record->calls, 1, __ATOMIC_RELAXED);
    if (nth <= kFaultCalls) {
        record->log[nth - 1] = {static_cast<std::uint32_t>(slot), place};
    }
    if (nth != record->target || !IsBehind()) return real;
    record->failed = 1;
    return Failure(slots[slot].row, real);
}

bool FaultsWatch(const char* file, FaultScope scope) {
    Search search{file, scope, false};
    dl_iterate_phdr(Watch, &search);
    return search.found;
}

void FaultsKeepIn(FaultRecord* place) {
    record = place;
}

FaultRecord* FaultsKept() {
    return record;
}

void FaultsArmAt(const char* symbol, std::uint32_t target) {
    record->target = target;
    for (std::uint32_t slot = 0; slot < record->slots && startsAt == kNoSlot; ++slot) {
        if (std::string_view(record->names[slot]) == symbol) startsAt = slot;
    }
}

void FaultsArm(std::uint32_t target) {
    record->target = target;
    record->calls = 0;
    record->failed = 0;
    record->theirs = 0;
    __atomic_store_n(&armed, true, __ATOMIC_RELAXED);
}

void FaultsDisarm() {
    __atomic_store_n(&armed, false, __ATOMIC_RELAXED);
}

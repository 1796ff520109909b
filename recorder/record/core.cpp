// The recorder's core: one for the process, never unloaded. Records what the stand-ins tell it, and
// nothing where there is no recording to write to.
#include <dlfcn.h>
#include <errno.h>
#include <link.h>
#include <pthread.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>

#include "build_id.h"
#include "file/writer.h"
#include "shims/boundary_calls.h"

namespace kesta {
namespace recorder {
namespace {

constexpr std::size_t kWaitForEvent = NumberOf(Boundary::kEvents, "ValtoT_WaitForEvent");
static_assert(kWaitForEvent < kFunctionCount, "polls are recognised by their name");

struct Thread {
    std::uint32_t process;  // the thread's number counts within it
    std::uint32_t number;
    std::uint64_t parent;  // the call that runs
    bool inside;           // a token library's or an event library's call runs
    std::uint64_t polled;  // the export whose polls found nothing so far
    std::int32_t nothing;  // what they returned
};

thread_local Thread t_thread;

std::uint64_t Now(clockid_t clock) {
    timespec time;
    clock_gettime(clock, &time);
    return static_cast<std::uint64_t>(time.tv_sec) * 1000000000 +
           static_cast<std::uint64_t>(time.tv_nsec);
}

const char* BaseName(const char* path) {
    const char* const slash = std::strrchr(path, '/');
    return slash == nullptr ? path : slash + 1;
}

#if defined(__aarch64__)
constexpr const char* kMachine = "aarch64";
#else
constexpr const char* kMachine = "x86_64";
#endif

// Never destroyed: threads may still call while the process ends.
class Core {
public:
    Core() {
        const char* const path = std::getenv(kFileVariable);
        const char* const key = std::getenv(kKeyVariable);
        if (path == nullptr || key == nullptr || !ReadKey(key) || !writer_.Open(path)) return;
        const char* const full = std::getenv(kFullVariable);
        discretion_.full = full != nullptr && std::strcmp(full, "1") == 0;
        pthread_atfork(nullptr, nullptr, &Core::Forked);
    }

    bool records() const { return writer_.IsOpen(); }

    void Attach(int boundary, void* handle) {
        link_map* map = nullptr;
        if (handle == nullptr || dlinfo(handle, RTLD_DI_LINKMAP, &map) != 0) return;
        struct stat status = {};
        stat(map->l_name, &status);
        char build[64];
        Packer packer;
        packer.Array(6);
        packer.Number(kLibrary);
        packer.UnsignedNumber(ProcessNumber());
        packer.String(NameOf(static_cast<Boundary>(boundary)));
        packer.String(BaseName(map->l_name));
        packer.UnsignedNumber(static_cast<std::uint64_t>(status.st_size));
        packer.String(ReadBuildId(map->l_addr, build, sizeof build));
        Write(packer);
    }

    void Enter(Span& span) {
        Thread& thread = ThisThread();
        const bool beneath = BoundaryOf(span.live.function) != Boundary::kExports;
        span.nested = beneath && thread.inside;
        if (span.nested) return;
        if (beneath) thread.inside = true;
        span.parent = thread.parent;
        span.live.NoteRoom();
        // Most polls find nothing. They are told when they end, and only the first of them.
        if (span.live.function != kWaitForEvent) {
            TellBeginning(span, thread);
            thread.parent = span.number;
        }
        span.start = Now(CLOCK_MONOTONIC);
    }

    void Leave(Span& span) {
        const std::uint64_t end = Now(CLOCK_MONOTONIC);
        Thread& thread = ThisThread();
        if (span.nested) return;
        if (BoundaryOf(span.live.function) != Boundary::kExports) thread.inside = false;
        thread.parent = span.parent;
        if (!span.told) {
            if (IsRepeatedPoll(span, thread)) return;
            TellBeginning(span, thread);
        }
        TellEnd(span, end);
    }

private:
    static void Forked();

    bool ReadKey(const char* hex) {
        if (std::strlen(hex) != 2 * kKeySize) return false;
        for (std::size_t i = 0; i < kKeySize; ++i) {
            const char pair[3] = {hex[2 * i], hex[2 * i + 1], '\0'};
            char* end = nullptr;
            discretion_.key[i] = static_cast<unsigned char>(std::strtoul(pair, &end, 16));
            if (*end != '\0') return false;
        }
        return true;
    }

    static bool IsRepeatedPoll(const Span& span, Thread& thread) {
        if (!span.live.returned || span.live.Code() == 0) {
            thread.polled = 0;
            return false;
        }
        const bool repeated =
            span.parent != 0 && thread.polled == span.parent && thread.nothing == span.live.Code();
        thread.polled = span.parent;
        thread.nothing = span.live.Code();
        return repeated;
    }

    // A forked process is another one, whose first record tells of it.
    std::uint32_t ProcessNumber() {
        const std::uint32_t known = process_.load(std::memory_order_acquire);
        if (known != 0) return known;
        pthread_mutex_lock(&naming_);
        std::uint32_t number = process_.load(std::memory_order_relaxed);
        if (number == 0) {
            number = static_cast<std::uint32_t>(writer_.NextProcess());
            TellProcess(number);
            process_.store(number, std::memory_order_release);
        }
        pthread_mutex_unlock(&naming_);
        return number;
    }

    Thread& ThisThread() {
        Thread& thread = t_thread;
        const std::uint32_t process = ProcessNumber();
        if (thread.process != process) {
            thread = {};
            thread.process = process;
            thread.number = threads_.fetch_add(1, std::memory_order_relaxed) + 1;
        }
        return thread;
    }

    void TellProcess(std::uint32_t number) {
        Packer packer;
        packer.Array(7);
        packer.Number(kProcess);
        packer.UnsignedNumber(number);
        packer.UnsignedNumber(static_cast<std::uint64_t>(getpid()));
        packer.UnsignedNumber(Now(CLOCK_REALTIME));
        packer.UnsignedNumber(Now(CLOCK_MONOTONIC));
        packer.String(program_invocation_short_name);
        packer.String(kMachine);
        Write(packer);
    }

    void TellBeginning(Span& span, const Thread& thread) {
        span.number = writer_.NextCall();
        span.told = true;
        Packer packer;
        packer.Array(8);
        packer.Number(kEnter);
        packer.UnsignedNumber(span.number);
        packer.UnsignedNumber(span.parent);
        packer.UnsignedNumber(thread.process);
        packer.UnsignedNumber(thread.number);
        packer.UnsignedNumber(span.start != 0 ? span.start : Now(CLOCK_MONOTONIC));
        packer.UnsignedNumber(span.live.function);
        PackArguments(packer, span.live, discretion_);
        Write(packer);
    }

    void TellEnd(const Span& span, std::uint64_t end) {
        Packer packer;
        packer.Array(7);
        packer.Number(kLeave);
        packer.UnsignedNumber(span.number);
        packer.UnsignedNumber(end);
        packer.Number(span.live.how());
        PackResult(packer, span.live);
        if (span.lastError == nullptr) {
            packer.Nil();
        } else {
            packer.Number(__atomic_load_n(span.lastError, __ATOMIC_RELAXED));
        }
        PackOutputs(packer, span.live, discretion_);
        Write(packer);
    }

    void Write(const Packer& packer) {
        if (packer.data() != nullptr) writer_.append(packer.data(), packer.size());
    }

    Writer writer_;
    Discretion discretion_;
    std::atomic<std::uint32_t> process_{0};
    std::atomic<std::uint32_t> threads_{0};
    pthread_mutex_t naming_ = PTHREAD_MUTEX_INITIALIZER;
};

Core& TheCore() {
    alignas(Core) static unsigned char room[sizeof(Core)];
    static Core* const built = new (room) Core;
    return *built;
}

// Another thread of the parent may have held the lock.
void Core::Forked() {
    Core& mine = TheCore();
    mine.naming_ = PTHREAD_MUTEX_INITIALIZER;
    mine.process_.store(0, std::memory_order_relaxed);
    mine.threads_.store(0, std::memory_order_relaxed);
}

}  // namespace
}  // namespace recorder
}  // namespace kesta

void kesta_boundary_attach(int boundary, void* handle) {
    if (kesta::recorder::TheCore().records()) kesta::recorder::TheCore().Attach(boundary, handle);
}

void kesta_boundary_enter(kesta::recorder::Span* span) {
    if (kesta::recorder::TheCore().records()) kesta::recorder::TheCore().Enter(*span);
}

void kesta_boundary_leave(kesta::recorder::Span* span) {
    if (kesta::recorder::TheCore().records()) kesta::recorder::TheCore().Leave(*span);
}

// Recording, the real libraries answer.
void kesta_boundary_answer(kesta::recorder::Span*) {}

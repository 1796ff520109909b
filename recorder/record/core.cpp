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

constexpr std::size_t kWaitForEvent = numberOf(Boundary::kEvents, "ValtoT_WaitForEvent");
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

std::uint64_t now(clockid_t clock) {
    timespec time;
    clock_gettime(clock, &time);
    return static_cast<std::uint64_t>(time.tv_sec) * 1000000000 +
           static_cast<std::uint64_t>(time.tv_nsec);
}

const char* baseName(const char* path) {
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
        if (path == nullptr || key == nullptr || !readKey(key) || !m_writer.open(path)) return;
        const char* const full = std::getenv(kFullVariable);
        m_discretion.full = full != nullptr && std::strcmp(full, "1") == 0;
        pthread_atfork(nullptr, nullptr, &Core::forked);
    }

    bool records() const { return m_writer.isOpen(); }

    void attach(int boundary, void* handle) {
        link_map* map = nullptr;
        if (handle == nullptr || dlinfo(handle, RTLD_DI_LINKMAP, &map) != 0) return;
        struct stat status = {};
        stat(map->l_name, &status);
        char build[64];
        Packer packer;
        packer.array(6);
        packer.number(kLibrary);
        packer.unsignedNumber(processNumber());
        packer.string(nameOf(static_cast<Boundary>(boundary)));
        packer.string(baseName(map->l_name));
        packer.unsignedNumber(static_cast<std::uint64_t>(status.st_size));
        packer.string(readBuildId(map->l_addr, build, sizeof build));
        write(packer);
    }

    void enter(Span& span) {
        Thread& thread = thisThread();
        const bool beneath = boundaryOf(span.live.function) != Boundary::kExports;
        span.nested = beneath && thread.inside;
        if (span.nested) return;
        if (beneath) thread.inside = true;
        span.parent = thread.parent;
        span.live.noteRoom();
        // Most polls find nothing. They are told when they end, and only the first of them.
        if (span.live.function != kWaitForEvent) {
            tellBeginning(span, thread);
            thread.parent = span.number;
        }
        span.start = now(CLOCK_MONOTONIC);
    }

    void leave(Span& span) {
        const std::uint64_t end = now(CLOCK_MONOTONIC);
        Thread& thread = thisThread();
        if (span.nested) return;
        if (boundaryOf(span.live.function) != Boundary::kExports) thread.inside = false;
        thread.parent = span.parent;
        if (!span.told) {
            if (isRepeatedPoll(span, thread)) return;
            tellBeginning(span, thread);
        }
        tellEnd(span, end);
    }

private:
    static void forked();

    bool readKey(const char* hex) {
        if (std::strlen(hex) != 2 * kKeySize) return false;
        for (std::size_t i = 0; i < kKeySize; ++i) {
            const char pair[3] = {hex[2 * i], hex[2 * i + 1], '\0'};
            char* end = nullptr;
            m_discretion.key[i] = static_cast<unsigned char>(std::strtoul(pair, &end, 16));
            if (*end != '\0') return false;
        }
        return true;
    }

    static bool isRepeatedPoll(const Span& span, Thread& thread) {
        if (!span.live.returned || span.live.code() == 0) {
            thread.polled = 0;
            return false;
        }
        const bool repeated =
            span.parent != 0 && thread.polled == span.parent && thread.nothing == span.live.code();
        thread.polled = span.parent;
        thread.nothing = span.live.code();
        return repeated;
    }

    // A forked process is another one, whose first record tells of it.
    std::uint32_t processNumber() {
        const std::uint32_t known = m_process.load(std::memory_order_acquire);
        if (known != 0) return known;
        pthread_mutex_lock(&m_naming);
        std::uint32_t number = m_process.load(std::memory_order_relaxed);
        if (number == 0) {
            number = static_cast<std::uint32_t>(m_writer.nextProcess());
            tellProcess(number);
            m_process.store(number, std::memory_order_release);
        }
        pthread_mutex_unlock(&m_naming);
        return number;
    }

    Thread& thisThread() {
        Thread& thread = t_thread;
        const std::uint32_t process = processNumber();
        if (thread.process != process) {
            thread = {};
            thread.process = process;
            thread.number = m_threads.fetch_add(1, std::memory_order_relaxed) + 1;
        }
        return thread;
    }

    void tellProcess(std::uint32_t number) {
        Packer packer;
        packer.array(7);
        packer.number(kProcess);
        packer.unsignedNumber(number);
        packer.unsignedNumber(static_cast<std::uint64_t>(getpid()));
        packer.unsignedNumber(now(CLOCK_REALTIME));
        packer.unsignedNumber(now(CLOCK_MONOTONIC));
        packer.string(program_invocation_short_name);
        packer.string(kMachine);
        write(packer);
    }

    void tellBeginning(Span& span, const Thread& thread) {
        span.number = m_writer.nextCall();
        span.told = true;
        Packer packer;
        packer.array(8);
        packer.number(kEnter);
        packer.unsignedNumber(span.number);
        packer.unsignedNumber(span.parent);
        packer.unsignedNumber(thread.process);
        packer.unsignedNumber(thread.number);
        packer.unsignedNumber(span.start != 0 ? span.start : now(CLOCK_MONOTONIC));
        packer.unsignedNumber(span.live.function);
        packArguments(packer, span.live, m_discretion);
        write(packer);
    }

    void tellEnd(const Span& span, std::uint64_t end) {
        Packer packer;
        packer.array(7);
        packer.number(kLeave);
        packer.unsignedNumber(span.number);
        packer.unsignedNumber(end);
        packer.number(span.live.how());
        packResult(packer, span.live);
        if (span.lastError == nullptr) {
            packer.nil();
        } else {
            packer.number(__atomic_load_n(span.lastError, __ATOMIC_RELAXED));
        }
        packOutputs(packer, span.live, m_discretion);
        write(packer);
    }

    void write(const Packer& packer) {
        if (packer.data() != nullptr) m_writer.append(packer.data(), packer.size());
    }

    Writer m_writer;
    Discretion m_discretion;
    std::atomic<std::uint32_t> m_process{0};
    std::atomic<std::uint32_t> m_threads{0};
    pthread_mutex_t m_naming = PTHREAD_MUTEX_INITIALIZER;
};

Core& core() {
    alignas(Core) static unsigned char room[sizeof(Core)];
    static Core* const built = new (room) Core;
    return *built;
}

// Another thread of the parent may have held the lock.
void Core::forked() {
    Core& mine = core();
    mine.m_naming = PTHREAD_MUTEX_INITIALIZER;
    mine.m_process.store(0, std::memory_order_relaxed);
    mine.m_threads.store(0, std::memory_order_relaxed);
}

}  // namespace
}  // namespace recorder
}  // namespace kesta

void kesta_boundary_attach(int boundary, void* handle) {
    if (kesta::recorder::core().records()) kesta::recorder::core().attach(boundary, handle);
}

void kesta_boundary_enter(kesta::recorder::Span* span) {
    if (kesta::recorder::core().records()) kesta::recorder::core().enter(*span);
}

void kesta_boundary_leave(kesta::recorder::Span* span) {
    if (kesta::recorder::core().records()) kesta::recorder::core().leave(*span);
}

// Recording, the real libraries answer.
void kesta_boundary_answer(kesta::recorder::Span*) {}

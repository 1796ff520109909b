// The replayer's core, in the place of the recorder's: what the stand-ins tell goes to one
// replayer.
#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <stdexcept>

#include "replayer.h"

namespace kesta {
namespace recorder {
namespace {

ReplayState* MapState() {
    const char* const path = std::getenv(kReplayStateVariable);
    const int file = path == nullptr ? -1 : open(path, O_RDWR | O_CLOEXEC);
    struct stat status;
    if (file < 0 || fstat(file, &status) != 0) return nullptr;
    void* const base = mmap(nullptr, static_cast<std::size_t>(status.st_size),
                            PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    close(file);
    return base == MAP_FAILED ? nullptr : static_cast<ReplayState*>(base);
}

Replayer* MakeReplayer() {
    const char* const path = std::getenv(kReplayFileVariable);
    const char* const mode = std::getenv(kReplayModeVariable);
    ReplayState* const state = MapState();
    if (path == nullptr || mode == nullptr || state == nullptr) {
        std::fputs("ukey replay: a process cannot reach the recording\n", stderr);
        return nullptr;
    }
    try {
        return new Replayer(path, mode, *state);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "ukey replay: %s: %s\n", path, error.what());
        return nullptr;
    }
}

Replayer* TheReplayer() {
    static Replayer* const one = [] {
        Replayer* const made = MakeReplayer();
        if (made != nullptr) {
            pthread_atfork(nullptr, nullptr, [] { TheReplayer()->Forked(); });
        }
        return made;
    }();
    return one;
}

[[noreturn]] void WaitForCancellation() {
    constexpr timespec kLong = {1, 0};
    for (;;) nanosleep(&kLong, nullptr);
}

}  // namespace
}  // namespace recorder
}  // namespace kesta

using namespace kesta::recorder;

void kesta_boundary_attach(int, void*) {}

// Without a recording nothing is called: never a real key.
void kesta_boundary_enter(Span* span) {
    if (TheReplayer() == nullptr) {
        span->refused = true;
    } else {
        TheReplayer()->Enter(*span);
    }
}

void kesta_boundary_leave(Span* span) {
    if (TheReplayer() != nullptr) TheReplayer()->Leave(*span);
}

void kesta_boundary_answer(Span* span) {
    span->live.result = static_cast<std::uint64_t>(std::int64_t{kReplayDiffers});
    if (TheReplayer() == nullptr) return;
    switch (TheReplayer()->Answer(*span)) {
        case Then::kThrow:
            throw std::runtime_error("as in the recording");
        case Then::kWaitForCancellation:
            WaitForCancellation();
        case Then::kReturn:
            break;
    }
}

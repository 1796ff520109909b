#include <errno.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>

#include "kit/language.h"
#include "kit/text.h"
#include "replay/script.h"
#include "replay/state.h"
#include "run.h"

namespace kesta {
namespace recorder {

using kit::_;
using kit::Fill;

namespace {

// The state's file, gone with this object.
class StateFile {
public:
    explicit StateFile(std::size_t size) : size_(size) {
        const char* const folder = std::getenv("TMPDIR");
        path_ = std::string(folder != nullptr ? folder : "/tmp") + "/ukey-replay-XXXXXX";
        const int file = mkostemp(path_.data(), O_CLOEXEC);
        void* base = MAP_FAILED;
        if (file >= 0 && ftruncate(file, static_cast<off_t>(size)) == 0) {
            base = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
        }
        const int reason = errno;
        if (file >= 0) close(file);
        if (base == MAP_FAILED)
            throw CannotRun(Fill(_("{1}: {2}"), {path_, kit::SystemText(reason)}));
        state_ = static_cast<ReplayState*>(base);
    }
    ~StateFile() {
        munmap(state_, size_);
        unlink(path_.c_str());
    }
    StateFile(const StateFile&) = delete;
    StateFile& operator=(const StateFile&) = delete;

    const std::string& path() const { return path_; }
    ReplayState& state() { return *state_; }
    unsigned char* Marks() { return reinterpret_cast<unsigned char*>(state_ + 1); }

private:
    std::size_t size_;
    std::string path_;
    ReplayState* state_ = nullptr;
};

bool WasLoaded(const Recording& recording, const char* boundary) {
    return std::any_of(recording.libraries.begin(), recording.libraries.end(),
                       [boundary](const Library& library) { return library.boundary == boundary; });
}

// How often a client polls, stops a wait, or begins one that tells nothing is a matter of time.
bool IsMatterOfTime(const Script& script, const Call& call) {
    const Call* const above = script.FindCall(call.parent);
    return IsIdlePoll(call) || call.function == kStopDetectUKey || IsIdleWait(call) ||
           (above != nullptr && IsIdleWait(*above));
}

// The first recorded call that nobody made.
std::string Missing(const Script& script, const unsigned char* seen) {
    const auto& calls = script.recording().calls;
    for (std::size_t i = 0; i < calls.size(); ++i) {
        if (seen[i] != 0 || IsMatterOfTime(script, calls[i])) continue;
        return Fill(_("call {1}, {2} was recorded, and the command ended without it"),
                    {std::to_string(calls[i].number), script.FunctionOf(calls[i]).name});
    }
    return {};
}

}  // namespace

Replayed Replay(const std::string& file, bool tolerant, bool timed,
                const std::vector<std::string>& command) {
    const Script script(file);
    const Recording& recording = script.recording();
    auto variables = LoaderVariables(RecorderFolder());
    StateFile shared(sizeof(ReplayState) + script.processes().size() + recording.calls.size() + 1);
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    shared.state().start = static_cast<std::uint64_t>(now.tv_sec) * 1000000000 +
                           static_cast<std::uint64_t>(now.tv_nsec);
    variables[kReplayFileVariable] = AbsolutePath(file);
    variables[kReplayStateVariable] = shared.path();
    variables[kReplayModeVariable] = std::string(tolerant ? "t" : "") + (timed ? "d" : "");
    variables[kReplayTokenVariable] = WasLoaded(recording, "token") ? "1" : "0";
    variables[kReplayEventsVariable] = WasLoaded(recording, "events") ? "1" : "0";
    Replayed replayed;
    replayed.status = Run(command, variables).status;
    if (__atomic_load_n(&shared.state().differs, __ATOMIC_ACQUIRE) == 2) {
        replayed.difference = shared.state().text;
    } else if (!tolerant) {
        replayed.difference = Missing(script, shared.Marks() + script.processes().size());
    }
    return replayed;
}

}  // namespace recorder
}  // namespace kesta

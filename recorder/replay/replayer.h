// Follows a recording while a client runs: says what each call is to do, and what differs.
#ifndef KESTA_RECORDER_REPLAYER_H
#define KESTA_RECORDER_REPLAYER_H

#include <atomic>
#include <mutex>
#include <set>

#include "script.h"
#include "shims/boundary_calls.h"
#include "state.h"

namespace kesta {
namespace recorder {

// What a token call is to do, outside of every lock.
enum class Then { kReturn, kThrow, kWaitForCancellation };

class Replayer {
public:
    // mode holds letters: t tolerant, d timed. The state outlives the replayer.
    Replayer(const std::string& path, const std::string& mode, ReplayState& state);

    void Enter(Span& span);
    void Leave(Span& span);
    Then Answer(Span& span);
    void Forked();

private:
    // Differs between replayers, and between a process and its forks.
    static unsigned NewGeneration();

    struct Thread {
        unsigned generation = 0;
        ThreadScript* script = nullptr;
        std::size_t next = 0;
        std::uint64_t inside = 0;  // the export that runs
        bool stopped = false;      // the latest export was StopDetectUKey
    };

    Thread& ThisThread(const Span& span);
    ProcessScript* ClaimProcess(const Span& span);
    void ClaimThread(Thread& thread, const Span& span);
    void Begin(Span& span);
    void Expect(Thread& thread, Span& span);
    bool IsLateWait(const Thread& thread, const Span& span) const;
    void AwaitStop(Span& span, unsigned stops);
    void CompareEnd(Thread& thread, const Span& span);
    Then Poll(Thread& thread, Span& span);
    Then Perform(const Call& call, Span& span);
    const Call* Tolerated(const Span& span);
    bool IsDue(const Call& call) const;
    void SkipIdlePolls(Thread& thread, std::uint64_t parent);
    void SkipRepeatedStops(Thread& thread, const Span& span);
    static const Call* Following(const Thread& thread);
    void Take(Thread& thread, const Call& call);
    void See(const Call& call);

    bool Differs() const;
    void Differ(const std::string& text);
    void Differ(const Call& call, const Difference& difference);

    Script script_;
    std::atomic<unsigned> stops_{0};  // calls of StopDetectUKey
    ReplayState& state_;
    bool tolerant_;
    bool timed_;
    std::recursive_mutex mutex_;
    unsigned generation_ = NewGeneration();
    ProcessScript* process_ = nullptr;
    std::set<std::uint64_t> used_;  // tolerant: calls that have answered
};

}  // namespace recorder
}  // namespace kesta

#endif

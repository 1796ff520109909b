// Follows a recording while a client runs: says what each call is to do, and what differs.
#ifndef KESTA_RECORDER_REPLAYER_H
#define KESTA_RECORDER_REPLAYER_H

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

    void enter(Span& span);
    void leave(Span& span);
    Then answer(Span& span);
    void forked();

private:
    // Differs between replayers, and between a process and its forks.
    static unsigned newGeneration();

    struct Thread {
        unsigned generation = 0;
        ThreadScript* script = nullptr;
        std::size_t next = 0;
        std::uint64_t inside = 0;  // the export that runs
        bool stopped = false;      // the latest export was StopDetectUKey
    };

    Thread& thisThread(const Span& span);
    ProcessScript* claimProcess(const Span& span);
    void claimThread(Thread& thread, const Span& span);
    void expect(Thread& thread, Span& span);
    void compareEnd(Thread& thread, const Span& span);
    Then poll(Thread& thread, Span& span);
    Then perform(const Call& call, Span& span);
    const Call* tolerated(const Span& span);
    bool isDue(const Call& call) const;
    void skipIdlePolls(Thread& thread, std::uint64_t parent);
    void skipRepeatedStops(Thread& thread, const Span& span);
    static const Call* following(const Thread& thread);
    void take(Thread& thread, const Call& call);
    void see(const Call& call);

    bool differs() const;
    void differ(const std::string& text);
    void differ(const Call& call, const Difference& difference);

    Script m_script;
    ReplayState& m_state;
    bool m_tolerant;
    bool m_timed;
    std::recursive_mutex m_mutex;
    unsigned m_generation = newGeneration();
    ProcessScript* m_process = nullptr;
    std::set<std::uint64_t> m_used;  // tolerant: calls that have answered
};

}  // namespace recorder
}  // namespace kesta

#endif

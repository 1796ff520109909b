// A recording, ordered for replaying: what each process did on each of its threads.
#ifndef KESTA_RECORDER_SCRIPT_H
#define KESTA_RECORDER_SCRIPT_H

#include <map>
#include <vector>

#include "match.h"

namespace kesta {
namespace recorder {

constexpr std::size_t kWaitForEvent = numberOf(Boundary::kEvents, "ValtoT_WaitForEvent");
constexpr std::size_t kStopDetectUKey = numberOf(Boundary::kExports, "StopDetectUKey");

struct ThreadScript {
    std::vector<const Call*> calls;
    bool claimed = false;
};

using ProcessScript = std::map<std::uint64_t, ThreadScript>;  // by the thread's number

// A poll that found no event.
inline bool isIdlePoll(const Call& call) {
    return call.function == kWaitForEvent && call.ended() && call.how == kReturned &&
           call.result != 0;
}

class Script {
public:
    explicit Script(const std::string& path);

    const Recording& recording() const { return m_recording; }
    const Discretion& discretion() const { return m_discretion; }
    bool exact() const { return m_recording.full; }
    // In the order of their numbers.
    const std::vector<std::uint64_t>& processes() const { return m_order; }
    ProcessScript& process(std::uint64_t number) { return m_processes.at(number); }
    const Call* call(std::uint64_t number) const;

    bool fits(const Call& call, const LiveCall& live) const;
    const Function& functionOf(const Call& call) const { return m_recording.functionOf(call); }

private:
    Recording m_recording;
    Discretion m_discretion;
    std::vector<std::uint64_t> m_order;
    std::map<std::uint64_t, ProcessScript> m_processes;
    std::map<std::uint64_t, const Call*> m_calls;
};

// Throws BadRecording where this version's functions are not those that were recorded.
void requireSameFunctions(const Recording& recording);

}  // namespace recorder
}  // namespace kesta

#endif

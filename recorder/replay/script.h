// A recording, ordered for replaying: what each process did on each of its threads.
#ifndef KESTA_RECORDER_SCRIPT_H
#define KESTA_RECORDER_SCRIPT_H

#include <map>
#include <vector>

#include "kesta_unified_zrkukey.h"
#include "match.h"

namespace kesta {
namespace recorder {

constexpr std::size_t kWaitForEvent = NumberOf(Boundary::kEvents, "ValtoT_WaitForEvent");
constexpr std::size_t kStopDetectUKey = NumberOf(Boundary::kExports, "StopDetectUKey");

constexpr std::size_t kWaitForKeyEvent = NumberOf(Boundary::kExports, "WaitForKeyEvent");

struct ThreadScript {
    std::vector<const Call*> calls;
    bool claimed = false;
};

using ProcessScript = std::map<std::uint64_t, ThreadScript>;  // by the thread's number

// A poll that found no event.
inline bool IsIdlePoll(const Call& call) {
    return call.function == kWaitForEvent && call.ended() && call.how == kReturned &&
           call.result != 0;
}

// A wait that told of no event: it was stopped, or its process ended meanwhile.
inline bool IsIdleWait(const Call& call) {
    return call.function == kWaitForKeyEvent &&
           (!call.ended() || (call.how == kReturned && call.outputs[0] == KESTA_EVENT_STOPPED));
}

class Script {
public:
    explicit Script(const std::string& path);

    const Recording& recording() const { return recording_; }
    const Discretion& discretion() const { return discretion_; }
    bool Exact() const { return recording_.full; }
    // In the order of their numbers.
    const std::vector<std::uint64_t>& processes() const { return order_; }
    ProcessScript& FindProcess(std::uint64_t number) { return processes_.at(number); }
    const Call* FindCall(std::uint64_t number) const;

    bool Fits(const Call& call, const LiveCall& live) const;
    const Function& FunctionOf(const Call& call) const { return recording_.FunctionOf(call); }

private:
    Recording recording_;
    Discretion discretion_;
    std::vector<std::uint64_t> order_;
    std::map<std::uint64_t, ProcessScript> processes_;
    std::map<std::uint64_t, const Call*> calls_;
};

// Throws BadRecording where this version's functions are not those that were recorded.
void RequireSameFunctions(const Recording& recording);

}  // namespace recorder
}  // namespace kesta

#endif

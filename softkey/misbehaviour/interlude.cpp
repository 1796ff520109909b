#include "softkey/misbehaviour/interlude.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>

#include "softkey/misbehaviour/misbehaviour.h"

namespace softkey {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr milliseconds kStep{20};

}  // namespace

void WaitAsPlanned(const Misbehaviour& plan, const std::string& home, const Pause& pause) {
    const Clock::time_point end = Clock::now() + milliseconds(plan.delayMs);
    for (Clock::time_point now = Clock::now(); now < end; now = Clock::now()) {
        pause(std::min(kStep, std::chrono::ceil<milliseconds>(end - now)));
    }
    while (plan.hangs && IsMisbehaving(home)) pause(kStep);
}

void FailAsPlanned(const Misbehaviour& plan) {
    if (plan.crash == Misbehaviour::Crash::kFault) std::raise(SIGSEGV);
    // Also where a handler of the client's came back, which it could not from a true fault.
    if (plan.crash != Misbehaviour::Crash::kNone) std::abort();
    if (plan.throws) throw PlannedException();
}

}  // namespace softkey

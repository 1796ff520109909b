// What a plan does half way through a call: it delays, hangs, crashes, throws.
#ifndef SOFTKEY_MISBEHAVIOUR_INTERLUDE_H
#define SOFTKEY_MISBEHAVIOUR_INTERLUDE_H

#include <chrono>
#include <functional>
#include <stdexcept>
#include <string>

#include "softkey/misbehaviour/effect.h"

namespace softkey {

// The one exception that leaves an entry point.
struct PlannedException : std::runtime_error {
    PlannedException() : std::runtime_error("the misbehaviour plan wants an exception here") {}
};

// Waits that long. Throws when the call must end meanwhile.
using Pause = std::function<void(std::chrono::milliseconds)>;

// The delay and the hang, in short pauses. A hang ends with the plan, if nothing ends it before.
void WaitAsPlanned(const Misbehaviour& plan, const std::string& home, const Pause& pause);
// The crash, and the exception.
void FailAsPlanned(const Misbehaviour& plan);

}  // namespace softkey

#endif

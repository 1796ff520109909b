// What the stand-ins for the recorded libraries call: the recorder's core while recording, the
// replayer's while replaying.
#ifndef KESTA_RECORDER_BOUNDARY_CALLS_H
#define KESTA_RECORDER_BOUNDARY_CALLS_H

#include <cstdint>

#include "record/values.h"

namespace kesta {
namespace recorder {

// What every call returns from the first difference of a replay on.
constexpr int kReplayDiffers = -7900;

// One call from its beginning to its end.
struct Span {
    LiveCall live;
    int* lastError;  // null at the token libraries' boundaries
    std::uint64_t number = 0;
    std::uint64_t parent = 0;
    std::uint64_t start = 0;
    bool told = false;     // whether the beginning was recorded
    bool refused = false;  // set by a replay: the function is not called, and this is returned
    int refusal = kReplayDiffers;
    bool late = false;    // a wait that a replay's client began after all that was recorded
    bool nested = false;  // a library's call of itself is its own business
};

}  // namespace recorder
}  // namespace kesta

extern "C" {
#pragma GCC visibility push(default)

// A library's stand-in is loaded. handle is the real library's.
void kesta_boundary_attach(int boundary, void* handle);
void kesta_boundary_enter(kesta::recorder::Span* span);
// span->live says how it ended.
void kesta_boundary_leave(kesta::recorder::Span* span);
// Replaying: does to the arguments what the recording tells, and sets span->live.result. It throws
// where the recorded call did.
void kesta_boundary_answer(kesta::recorder::Span* span);

#pragma GCC visibility pop
}

#endif

// What a plan of misbehaviour makes of one call.
#ifndef SOFTKEY_MISBEHAVIOUR_EFFECT_H
#define SOFTKEY_MISBEHAVIOUR_EFFECT_H

#include <cstdint>
#include <optional>

namespace softkey {

// How much one key holds at most; unset is no limit.
struct Limits {
    std::optional<std::uint64_t> pairs;
    std::optional<std::uint64_t> objects;
    std::optional<std::uint64_t> bytes;

    bool Any() const { return pairs || objects || bytes; }
};

// What the call at hand must do. Half way through its work come delay, removal, hang, crash and
// exception, in this order.
struct Misbehaviour {
    enum class Removal { kNone, kBefore, kDuring, kMoment };
    enum class Crash { kNone, kAbort, kFault };
    enum class Output { kTrue, kNone, kGarbage, kCut, kUnterminated };

    std::uint32_t delayMs = 0;  // work this much longer
    Removal removal = Removal::kNone;
    std::optional<std::uint32_t> slot;  // where a key that was pulled out for a moment comes back
    bool hangs = false;
    Crash crash = Crash::kNone;
    bool throws = false;                    // throw an exception out of the entry point
    bool exclusive = false;                 // the process that calls first keeps the key to itself
    std::optional<std::int32_t> code;       // answer this code instead of working
    std::optional<std::int32_t> codeAfter;  // work, tell nothing of it, and answer this code
    Output output = Output::kTrue;          // what is written instead of the true output
    std::optional<std::uint32_t> length;    // write this length over the true one
    std::uint32_t repeat = 0;               // deliver the event this many times more
    std::uint32_t bounce = 0;  // follow the event by this many pairs of opposite and same
    std::uint32_t late = 0;    // deliver the event after this many later ones
    bool loses = false;        // deliver the event never
    Limits limits;             // of the plan as a whole

    // Something happens half way through the work.
    bool HasInterlude() const {
        return delayMs != 0 || removal == Removal::kDuring || removal == Removal::kMoment ||
               hangs || crash != Crash::kNone || throws;
    }
    // Nothing of the answer reaches the caller.
    bool AnswerIsLost() const { return codeAfter || output == Output::kNone; }
};

}  // namespace softkey

#endif

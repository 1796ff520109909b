// What a plan of misbehaviour makes of one call.
#ifndef SOFTKEY_MISBEHAVIOUR_EFFECT_H
#define SOFTKEY_MISBEHAVIOUR_EFFECT_H

#include <cstdint>
#include <optional>

namespace softkey {

// What the call at hand must do. An entry point honours the fields in this order.
struct Misbehaviour {
    enum class Removal { kNone, kBefore, kDuring };

    std::uint32_t delayMs = 0;            // wait first
    Removal removal = Removal::kNone;     // pull the key out before, or half way through, the work
    std::optional<std::int32_t> code;     // answer this code instead of working
    std::optional<std::uint32_t> length;  // write this length over the true one
    std::uint32_t repeat = 0;             // deliver the event this many times more
    std::uint32_t bounce = 0;  // follow the event by this many pairs of opposite and same
    bool throws = false;       // throw an exception out of the entry point

    bool Empty() const {
        return delayMs == 0 && removal == Removal::kNone && !code && !length && repeat == 0 &&
               bounce == 0 && !throws;
    }
};

}  // namespace softkey

#endif

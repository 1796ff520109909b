// The plan of misbehaviour as read from its JSON text. docs/misbehaviour.md describes the text.
#ifndef SOFTKEY_MISBEHAVIOUR_MISBEHAVIOUR_PLAN_H
#define SOFTKEY_MISBEHAVIOUR_MISBEHAVIOUR_PLAN_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "softkey/misbehaviour/effect.h"
#include "softkey/misbehaviour/entry_traits.h"

namespace softkey {

constexpr std::int64_t kLongestPlan = 1 << 20;  // bytes

// A plan that is not accepted; the text names the field, as in "rules[2].code: …".
struct PlanError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// One field of a rule that does something, for those entry points that have all of the traits.
struct PlannedEffect {
    unsigned traits;
    std::function<void(Misbehaviour&)> apply;
};

struct MisbehaviourRule {
    std::string entry;  // "*": each entry point of the token library that uses a key
    std::optional<std::string> serial;
    // Which calls, counted from 1: first to last, each every-th of them, by the given chance.
    std::uint64_t first = 1;
    std::uint64_t last = UINT64_MAX;
    std::uint64_t every = 1;
    double chance = 1;
    std::vector<PlannedEffect> effects;
};

struct MisbehaviourPlanText {
    using Serial = std::function<std::string()>;
    using Count = std::function<std::uint64_t(std::size_t)>;

    std::uint64_t seed = 0;
    std::vector<MisbehaviourRule> rules;
    Limits limits;
    std::vector<std::uint32_t> foreign;      // slots with a device that is no key
    std::optional<std::uint32_t> triesLeft;  // at most, of each key when the plan is set

    // What the rules together want of this call; where two set the same field the later one wins.
    // serial is asked for the key that is meant when a rule needs to know; count(i) counts one more
    // call that rule i may be for and says which one it is.
    Misbehaviour EffectOn(const std::string& entry, const Serial& serial, const Count& count) const;
    // The same for a call that is this one for each rule.
    Misbehaviour EffectOn(const std::string& entry, std::uint64_t call,
                          const std::string& serial = {}) const;
};

// The names of a rule's fields, which docs/misbehaviour.md explains.
std::vector<std::string> MisbehaviourFields();

// Throws PlanError.
MisbehaviourPlanText ParseMisbehaviourPlan(const std::string& text);

}  // namespace softkey

#endif

// The plan of misbehaviour as read from its JSON text. docs/softkey.md describes the text.
#ifndef SOFTKEY_MISBEHAVIOUR_MISBEHAVIOUR_PLAN_H
#define SOFTKEY_MISBEHAVIOUR_MISBEHAVIOUR_PLAN_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "softkey/misbehaviour/effect.h"

namespace softkey {

// A plan that is not accepted; the text names the field, as in "rules[2].code: …".
struct PlanError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// The entry points that a plan may name: those of the token library, then those of the event
// library. A count's place in the file of counts is the name's place here.
const std::vector<std::string>& MisbehaviourEntryPoints();
std::optional<std::size_t> MisbehaviourEntryIndex(const std::string& name);

struct MisbehaviourRule {
    std::string entry;
    // Which calls, counted from 1: first to last, each every-th of them, by the given chance.
    std::uint64_t first = 1;
    std::uint64_t last = UINT64_MAX;
    std::uint64_t every = 1;
    double chance = 1;
    Misbehaviour effect;
};

struct MisbehaviourPlanText {
    std::uint64_t seed = 0;
    std::vector<MisbehaviourRule> rules;

    // What the rules together want of this call; where two set the same field the later one wins.
    Misbehaviour EffectOn(const std::string& entry, std::uint64_t call) const;
};

// Throws PlanError.
MisbehaviourPlanText ParseMisbehaviourPlan(const std::string& text);

}  // namespace softkey

#endif

// The fields of a rule that do something.
#ifndef SOFTKEY_MISBEHAVIOUR_PLANNED_EFFECTS_H
#define SOFTKEY_MISBEHAVIOUR_PLANNED_EFFECTS_H

#include <string>
#include <vector>

#include "softkey/misbehaviour/misbehaviour_plan.h"
#include "softkey/misbehaviour/plan_fields.h"

namespace softkey {

std::vector<std::string> EffectNames();

// Those of a rule, for an entry point of these traits. Throws PlanError for what it cannot do.
std::vector<PlannedEffect> ParseEffects(const PlanFields& rule, const std::string& entry,
                                        unsigned traits);

}  // namespace softkey

#endif

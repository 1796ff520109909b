// What a plan does to keys and slots at the moment when it is set or ends.
#ifndef SOFTKEY_MISBEHAVIOUR_STATE_EFFECTS_H
#define SOFTKEY_MISBEHAVIOUR_STATE_EFFECTS_H

#include <string>

#include "softkey/misbehaviour/misbehaviour_plan.h"

namespace softkey {

// Foreign devices come and go with their events, and PIN tries are taken away. Does nothing where
// no key was ever made. Throws Failure.
void FollowPlan(const std::string& home, const MisbehaviourPlanText& before,
                const MisbehaviourPlanText& after);

}  // namespace softkey

#endif

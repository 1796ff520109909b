// Misbehaviour on request: what a plan, set by `softkey misbehave`, makes an entry point do.
//
// The plan is a file in the state folder, the numbers of calls so far are another. Both outlive
// processes, so "the third signature" means the third one since the plan was set, by whichever
// process. Without a plan a call costs one look at the folder.
#ifndef SOFTKEY_MISBEHAVIOUR_MISBEHAVIOUR_H
#define SOFTKEY_MISBEHAVIOUR_MISBEHAVIOUR_H

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "softkey/misbehaviour/effect.h"
#include "softkey/misbehaviour/misbehaviour_plan.h"  // PlanError

namespace softkey {

bool IsMisbehaving(const std::string& home);  // a plan is in force

// Counts one call of the entry point and says what the plan wants of it. home is the state folder;
// serial is asked for the key that is meant when a rule is for one key alone. What keeps the plan
// from being read or the call from being counted is the code that is answered: kStateDamaged,
// kStateFull, kStateBusy, kStateUnreachable.
Misbehaviour NextMisbehaviour(
    const std::string& home, const char* entryPoint,
    const std::function<std::string()>& serial = [] { return std::string(); }) noexcept;

// The slots in which the plan puts a device that is no key.
std::vector<std::uint32_t> ForeignSlots(const std::string& home);

// Checks a plan, puts it in force and sets all counts to zero. Throws PlanError for a bad plan,
// Failure when the files cannot be written; the plan in force then stays. What the plan does at
// once to keys and slots is done last.
void SetMisbehaviour(const std::string& home, const std::string& planText);
// True when there was a plan.
bool ClearMisbehaviour(const std::string& home);
// The plan in force as it was given; empty without one.
std::string MisbehaviourPlan(const std::string& home);
// The calls counted since the plan was set, by entry point, without those never called.
std::map<std::string, std::uint64_t> MisbehaviourCounts(const std::string& home);

}  // namespace softkey

#endif

// Plans of misbehaviour that `softkey misbehave` knows by name.
#ifndef SOFTKEY_COMMAND_READY_PLANS_H
#define SOFTKEY_COMMAND_READY_PLANS_H

#include <string>
#include <vector>

namespace softkey::command {

struct ReadyPlan {
    const char* name;
    const char* teaches;  // one sentence; docs/misbehaviour.md has the same
    const char* text;
};

const std::vector<ReadyPlan>& ReadyPlans();
// Null for a name that is none.
const ReadyPlan* FindReadyPlan(const std::string& name);

}  // namespace softkey::command

#endif

// Misbehaviour on request: what a plan, set by `softkey misbehave`, makes an entry point do.
//
// The plan is a file in the state folder, the numbers of calls so far are another. Both outlive
// processes, so "the third signature" means the third one since the plan was set, by whichever
// process. Without a plan a call costs one look at the folder.
#ifndef SOFTKEY_MISBEHAVIOUR_MISBEHAVIOUR_H
#define SOFTKEY_MISBEHAVIOUR_MISBEHAVIOUR_H

#include <cstdint>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>

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

// Counts one call of the entry point and says what the plan wants of it. home is the state folder.
// A plan that cannot be read answers the code kStateDamaged.
Misbehaviour NextMisbehaviour(const std::string& home, const char* entryPoint) noexcept;

// A plan that is not accepted; the text names the field, as in "rules[2].code: …".
struct PlanError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Checks a plan, puts it in force and sets all counts to zero. Throws PlanError for a bad plan,
// std::system_error when the files cannot be written; the plan in force then stays.
void SetMisbehaviour(const std::string& home, const std::string& planText);
// True when there was a plan.
bool ClearMisbehaviour(const std::string& home);
// The plan in force as it was given; empty without one.
std::string MisbehaviourPlan(const std::string& home);
// The calls counted since the plan was set, by entry point, without those never called.
std::map<std::string, std::uint64_t> MisbehaviourCounts(const std::string& home);

}  // namespace softkey

#endif

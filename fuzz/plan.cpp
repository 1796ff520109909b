// A plan of misbehaviour: read or refused; what was read can be asked about any call.
#include "softkey/misbehaviour/misbehaviour_plan.h"
#include "softkey_fuzz.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    try {
        const softkey::MisbehaviourPlanText plan =
            softkey::ParseMisbehaviourPlan(TextOf(data, size));
        for (const std::uint64_t call : {std::uint64_t{1}, std::uint64_t{7}, UINT64_MAX}) {
            for (const auto& entry : softkey::MisbehaviourEntryPoints()) plan.EffectOn(entry, call);
        }
        for (const auto& rule : plan.rules) {
            FUZZ_EXPECT(rule.entry == "*" || softkey::MisbehaviourEntryIndex(rule.entry));
            FUZZ_EXPECT(rule.first >= 1 && rule.every >= 1);
        }
    } catch (const softkey::PlanError& error) {
        FUZZ_EXPECT(*error.what() != '\0');
    }
    return 0;
}

#include "softkey/misbehaviour/misbehaviour_plan.h"

#include <cmath>

#include "softkey/misbehaviour/planned_effects.h"
#include "softkey/sentence.h"

namespace softkey {
namespace {

constexpr const char* kSelectors[] = {"entry", "serial", "call", "to", "every", "chance"};
constexpr const char* kAllEntries = "*";
// What some entry point or other that uses a key can do.
constexpr unsigned kOfAnyKey = ~static_cast<unsigned>(kDelivers);

bool IsFor(const MisbehaviourRule& rule, const std::string& entry) {
    if (rule.entry == entry) return true;
    return rule.entry == kAllEntries && (TraitsOf(entry) & kUsesKey) != 0;
}

std::string ParseEntry(const PlanFields& rule) {
    if (!rule.Has("entry")) RejectField(rule.Name("entry"), "is missing");
    const PlanJson& value = rule.Value("entry");
    // Not by the operator of PlanJson, which needs memory and may not throw.
    if (value.is_string() && value.get_ref<const std::string&>() == kAllEntries) return kAllEntries;
    if (!value.is_string() || !MisbehaviourEntryIndex(value.get<std::string>())) {
        RejectField(rule.Name("entry"),
                    Sentence("must be the name of an entry point, not {1}", {value.dump()}));
    }
    return value.get<std::string>();
}

std::optional<std::string> ParseSerial(const PlanFields& fields, const std::string& entry) {
    const auto serial = fields.Text("serial");
    if (serial && entry != kAllEntries && (TraitsOf(entry) & kAboutKey) == 0) {
        RejectField(fields.Name("serial"), Sentence("{1} works with no key", {entry}));
    }
    return serial;
}

void ParseChance(const PlanFields& fields, MisbehaviourRule& rule) {
    if (!fields.Has("chance")) return;
    const PlanJson& chance = fields.Value("chance");
    if (!chance.is_number() || !(chance.get<double>() >= 0 && chance.get<double>() <= 1)) {
        RejectField(fields.Name("chance"),
                    Sentence("must be a number from 0 to 1, not {1}", {chance.dump()}));
    }
    rule.chance = chance.get<double>();
}

// Which calls the rule is for.
void ParseSelection(const PlanFields& fields, MisbehaviourRule& rule) {
    rule.serial = ParseSerial(fields, rule.entry);
    const auto call = fields.Number("call", 1, UINT32_MAX);
    const auto to = fields.Number("to", 1, UINT32_MAX);
    if (call) rule.first = rule.last = *call;
    if (to) {
        if (!call) RejectField(fields.Name("to"), "needs a \"call\" to start from");
        if (*to < *call) RejectField(fields.Name("to"), "must not come before \"call\"");
        rule.last = *to;
    }
    const auto every = fields.Number("every", 1, UINT32_MAX);
    if (every && call) RejectField(fields.Name("every"), "does not go with \"call\"");
    rule.every = every.value_or(1);
    ParseChance(fields, rule);
}

MisbehaviourRule ParseRule(const PlanJson& value, const std::string& path) {
    const PlanFields fields(value, path);
    fields.AllowOnly(MisbehaviourFields());
    MisbehaviourRule rule;
    rule.entry = ParseEntry(fields);
    ParseSelection(fields, rule);
    const bool all = rule.entry == kAllEntries;
    rule.effects = ParseEffects(fields, rule.entry, all ? kOfAnyKey : TraitsOf(rule.entry));
    if (rule.effects.empty()) {
        RejectField(path,
                    Sentence("does nothing; give {1}", {Listed(EffectNames(), translate(" or "))}));
    }
    return rule;
}

void ParseRules(const PlanFields& fields, std::vector<MisbehaviourRule>& rules) {
    const PlanJson& list = fields.Value("rules");
    if (!list.is_array() || list.empty()) {
        RejectField("rules", "must be a list of at least one rule");
    }
    for (std::size_t i = 0; i < list.size(); ++i) {
        rules.push_back(ParseRule(list[i], "rules[" + std::to_string(i) + "]"));
    }
}

Limits ParseLimits(const PlanFields& fields) {
    Limits limits;
    if (!fields.Has("limits")) return limits;
    const PlanFields object = fields.Object("limits");
    object.AllowOnly({"pairs", "objects", "bytes"});
    limits.pairs = object.Number("pairs", 0, UINT32_MAX);
    limits.objects = object.Number("objects", 0, UINT32_MAX);
    limits.bytes = object.Number("bytes", 0, UINT32_MAX);
    if (!limits.Any()) RejectField("limits", "limits nothing; give pairs, objects or bytes");
    return limits;
}

// A number from 0 to 1, below 1, that depends on nothing but its arguments: the same plan gives
// the same misbehaviour in every run. The mixing steps are those of SplitMix64.
double Draw(std::uint64_t seed, std::uint64_t rule, std::uint64_t call) {
    std::uint64_t bits = seed;
    for (const std::uint64_t part : {rule, call}) {
        bits += 0x9E3779B97F4A7C15u * (part + 1);
        bits = (bits ^ (bits >> 30)) * 0xBF58476D1CE4E5B9u;
        bits = (bits ^ (bits >> 27)) * 0x94D049BB133111EBu;
        bits ^= bits >> 31;
    }
    return std::ldexp(static_cast<double>(bits >> 11), -53);
}

}  // namespace

std::vector<std::string> MisbehaviourFields() {
    std::vector<std::string> names(std::begin(kSelectors), std::end(kSelectors));
    for (std::string& name : EffectNames()) names.push_back(std::move(name));
    return names;
}

Misbehaviour MisbehaviourPlanText::EffectOn(const std::string& entry, const Serial& serial,
                                            const Count& count) const {
    Misbehaviour effect;
    const unsigned traits = TraitsOf(entry);
    for (std::size_t i = 0; i < rules.size(); ++i) {
        const MisbehaviourRule& rule = rules[i];
        if (!IsFor(rule, entry) || (rule.serial && *rule.serial != serial())) continue;
        const std::uint64_t call = count(i);
        if (call < rule.first || call > rule.last || call % rule.every != 0) continue;
        if (Draw(seed, i, call) >= rule.chance) continue;
        for (const PlannedEffect& planned : rule.effects) {
            if ((traits & planned.traits) == planned.traits) planned.apply(effect);
        }
    }
    if ((traits & kUsesKey) != 0) effect.limits = limits;
    return effect;
}

Misbehaviour MisbehaviourPlanText::EffectOn(const std::string& entry, std::uint64_t call,
                                            const std::string& serial) const {
    return EffectOn(
        entry, [&serial] { return serial; }, [call](std::size_t) { return call; });
}

MisbehaviourPlanText ParseMisbehaviourPlan(const std::string& text) {
    if (text.size() > kLongestPlan) RejectField("plan", "is longer than 1 MiB");
    PlanJson json = ReadPlanJson(text);
    const Emptied emptied(json);
    const PlanFields fields(json, "");
    fields.AllowOnly({"seed", "rules", "limits", "foreign", "tries_left"});
    MisbehaviourPlanText plan;
    plan.seed = fields.Number("seed", 0, UINT64_MAX).value_or(0);
    plan.limits = ParseLimits(fields);
    plan.foreign = fields.Numbers("foreign");
    if (const auto tries = fields.Number("tries_left", 0, 255)) {
        plan.triesLeft = static_cast<std::uint32_t>(*tries);
    }
    if (fields.Has("rules")) {
        ParseRules(fields, plan.rules);
    } else if (!plan.limits.Any() && plan.foreign.empty() && !plan.triesLeft) {
        RejectField("rules", "is missing");
    }
    return plan;
}

}  // namespace softkey

#include "softkey/misbehaviour/planned_effects.h"

#include "softkey/sentence.h"

namespace softkey {
namespace {

constexpr std::uint64_t kLongestDelayMs = 600000;
constexpr std::uint64_t kMostRepetitions = 1000;

// Adds what a field says to the effects; a reader knows the field's form.
using Read = void (*)(const PlanFields&, const char* name, PlannedEffect&);

template <auto member, std::uint64_t least, std::uint64_t most>
void Number(const PlanFields& rule, const char* name, PlannedEffect& effect) {
    const auto value = static_cast<std::uint32_t>(*rule.Number(name, least, most));
    effect.apply = [value](Misbehaviour& all) { all.*member = value; };
}

template <auto member>
void Flag(const PlanFields& rule, const char* name, PlannedEffect& effect) {
    rule.True(name);
    effect.apply = [](Misbehaviour& all) { all.*member = true; };
}

template <auto member>
void Code(const PlanFields& rule, const char* name, PlannedEffect& effect) {
    const std::int32_t code = rule.Code(name);
    effect.apply = [code](Misbehaviour& all) { all.*member = code; };
}

void Removal(const PlanFields& rule, const char* name, PlannedEffect& effect) {
    using Kind = Misbehaviour::Removal;
    constexpr Kind kKinds[] = {Kind::kBefore, Kind::kDuring, Kind::kMoment};
    const Kind kind = kKinds[rule.Choice(name, {"before", "during", "moment"})];
    effect.apply = [kind](Misbehaviour& all) { all.removal = kind; };
}

void Slot(const PlanFields& rule, const char* name, PlannedEffect& effect) {
    Number<&Misbehaviour::slot, 0, UINT32_MAX>(rule, name, effect);
    if (!rule.Has("remove") || rule.Value("remove") != "moment") {
        RejectField(rule.Name(name), "needs \"remove\": \"moment\"");
    }
}

void Crash(const PlanFields& rule, const char* name, PlannedEffect& effect) {
    using Kind = Misbehaviour::Crash;
    constexpr Kind kKinds[] = {Kind::kAbort, Kind::kFault};
    const Kind kind = kKinds[rule.Choice(name, {"abort", "fault"})];
    effect.apply = [kind](Misbehaviour& all) { all.crash = kind; };
}

void Output(const PlanFields& rule, const char* name, PlannedEffect& effect) {
    using Kind = Misbehaviour::Output;
    struct Row {
        Kind kind;
        unsigned traits;
    };
    constexpr Row kRows[] = {{Kind::kNone, kOutput},
                             {Kind::kGarbage, kOutput},
                             {Kind::kCut, kDivisible},
                             {Kind::kUnterminated, kBounded}};
    const Row row = kRows[rule.Choice(name, {"none", "garbage", "cut", "unterminated"})];
    effect.traits |= row.traits;
    effect.apply = [kind = row.kind](Misbehaviour& all) { all.output = kind; };
}

struct Field {
    const char* name;
    unsigned traits;  // what an entry point needs
    Read read;
    const char* lack = nullptr;  // what is wrong with one that has not
};

constexpr const char* kNoCode = N_("{1} answers a text, not a code");
constexpr const char* kNoKey = N_("{1} works with no key");
constexpr const char* kNoEvents = N_("{1} delivers no events");

constexpr Field kFields[] = {
    {"code", kAnswersCode, Code<&Misbehaviour::code>, kNoCode},
    {"code_after", kAnswersCode, Code<&Misbehaviour::codeAfter>, kNoCode},
    {"delay_ms", kAnyEntry, Number<&Misbehaviour::delayMs, 1, kLongestDelayMs>},
    {"remove", kUsesKey, Removal, kNoKey},
    {"slot", kUsesKey, Slot, kNoKey},
    {"exclusive", kUsesKey, Flag<&Misbehaviour::exclusive>, kNoKey},
    {"hang", kAnyEntry, Flag<&Misbehaviour::hangs>},
    {"crash", kAnyEntry, Crash},
    {"throw", kAnyEntry, Flag<&Misbehaviour::throws>},
    {"output", kOutput, Output, N_("{1} hands nothing out")},
    {"length", kLength, Number<&Misbehaviour::length, 0, UINT32_MAX>, N_("{1} writes no length")},
    {"repeat", kDelivers, Number<&Misbehaviour::repeat, 1, kMostRepetitions>, kNoEvents},
    {"bounce", kDelivers, Number<&Misbehaviour::bounce, 1, kMostRepetitions>, kNoEvents},
    {"lose", kDelivers, Flag<&Misbehaviour::loses>, kNoEvents},
    {"late", kDelivers, Number<&Misbehaviour::late, 1, kMostRepetitions>, kNoEvents},
};

}  // namespace

std::vector<std::string> EffectNames() {
    std::vector<std::string> names;
    for (const Field& field : kFields) names.emplace_back(field.name);
    return names;
}

std::vector<PlannedEffect> ParseEffects(const PlanFields& rule, const std::string& entry,
                                        unsigned traits) {
    std::vector<PlannedEffect> effects;
    for (const Field& field : kFields) {
        if (!rule.Has(field.name)) continue;
        PlannedEffect effect{field.traits, {}};
        if ((traits & effect.traits) != effect.traits) {
            RejectField(rule.Name(field.name), Sentence(field.lack, {entry}));
        }
        field.read(rule, field.name, effect);
        if ((traits & effect.traits) != effect.traits) {
            RejectField(rule.Name(field.name),
                        Sentence("{1} cannot have {2}", {entry, rule.Value(field.name).dump()}));
        }
        effects.push_back(std::move(effect));
    }
    return effects;
}

}  // namespace softkey

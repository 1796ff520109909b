#include "softkey/misbehaviour/misbehaviour_plan.h"

#include <algorithm>
#include <cmath>
#include <initializer_list>
#include <nlohmann/json.hpp>
#include <string_view>

#include "kesta/event_library.h"
#include "kesta/token_library.h"
#include "softkey/codes.h"

namespace softkey {
namespace {

using Json = nlohmann::json;

constexpr std::uint64_t kLongestDelayMs = 600000;
constexpr std::uint64_t kMostRepetitions = 1000;

struct NamedCode {
    const char* name;
    std::int32_t value;
};

constexpr NamedCode kNamedCodes[] = {
#define SOFTKEY_NAMED(name, value, english, chinese) {#name, value},
    SOFTKEY_CODES(SOFTKEY_NAMED)
#undef SOFTKEY_NAMED
};

bool IsOneOf(std::string_view name, std::initializer_list<std::string_view> names) {
    return std::find(names.begin(), names.end(), name) != names.end();
}

bool OfEventLibrary(const std::string& entry) {
    return entry.rfind("ValtoT_", 0) == 0;
}

bool HasLength(const std::string& entry) {
    return IsOneOf(entry,
                   {"GetCertInfo", "GMUsbKeyCriticalSign", "GMUsbKeyCommonSign", "GMUSBKeyAsymDec2",
                    "GetPinInfo", "GetCertInfo_UOS", "Batch_Sign", "ValtoT_GetSlotList"});
}

// What these do takes long enough to be interrupted.
bool WorksOnKey(const std::string& entry) {
    return IsOneOf(
        entry,
        {"SetLabel", "SetData", "GMWritePKCS7", "GMImportPriKey", "DelCertAndTempKey", "VerifyPIN",
         "VerifyAndCachePin", "ChangePin", "CustInitCard", "GMCreatePKCS10", "GMCreatePKCS10Ex",
         "GMUsbKeyCriticalSign", "GMUsbKeyCommonSign", "GMUSBKeyAsymDec2", "Batch_Sign"});
}

bool UsesKey(const std::string& entry) {
    return !OfEventLibrary(entry) &&
           !IsOneOf(entry, {"X_ErrorConvert_UOS", "UOS_SetCharset", "UOS_SetLanguage"});
}

[[noreturn]] void Reject(const std::string& field, const std::string& reason) {
    throw PlanError(field + ": " + reason);
}

// One object of the plan, under the name that error texts give it.
class Fields {
public:
    Fields(const Json& object, std::string path) : object_(object), path_(std::move(path)) {
        if (!object_.is_object()) Reject(path_.empty() ? "plan" : path_, "must be an object");
    }

    std::string Name(const std::string& field) const {
        return path_.empty() ? field : path_ + "." + field;
    }

    bool Has(const char* field) const { return object_.contains(field); }
    const Json& Value(const char* field) const { return object_.at(field); }

    void AllowOnly(std::initializer_list<std::string_view> names) const {
        for (const auto& item : object_.items()) {
            if (IsOneOf(item.key(), names)) continue;
            std::string known;
            for (const std::string_view name : names) {
                known += (known.empty() ? "" : ", ") + std::string(name);
            }
            Reject(Name(item.key()), "no such field; known are " + known);
        }
    }

    std::optional<std::uint64_t> Number(const char* field, std::uint64_t least,
                                        std::uint64_t most) const {
        if (!Has(field)) return std::nullopt;
        const Json& value = Value(field);
        const std::string wanted =
            "must be a whole number from " + std::to_string(least) + " to " + std::to_string(most);
        if (!value.is_number_unsigned()) Reject(Name(field), wanted + ", not " + value.dump());
        const auto number = value.get<std::uint64_t>();
        if (number < least || number > most) Reject(Name(field), wanted + ", not " + value.dump());
        return number;
    }

private:
    const Json& object_;
    std::string path_;
};

std::optional<std::int32_t> CodeFromText(const std::string& text) {
    for (const NamedCode& code : kNamedCodes) {
        if (text == std::string(code.name).substr(1)) return code.value;
    }
    const bool hexadecimal = text.size() > 2 && text.size() <= 10 && text.rfind("0x", 0) == 0 &&
                             text.find_first_not_of("0123456789abcdefABCDEF", 2) == text.npos;
    if (!hexadecimal) return std::nullopt;
    return static_cast<std::int32_t>(std::stoul(text, nullptr, 16));
}

std::int32_t ParseCode(const Fields& rule) {
    const Json& value = rule.Value("code");
    std::optional<std::int32_t> code;
    if (value.is_string()) code = CodeFromText(value.get<std::string>());
    if (value.is_number_integer()) {
        const bool fits = value.is_number_unsigned() ? value.get<std::uint64_t>() <= INT32_MAX
                                                     : value.get<std::int64_t>() >= INT32_MIN;
        if (fits) code = value.get<std::int32_t>();
    }
    if (!code) {
        Reject(rule.Name("code"),
               "must be a signed 32-bit number, a text such as \"0x5B12\", or the name of a code "
               "such as \"KeyRemoved\", not " +
                   value.dump());
    }
    return *code;
}

std::string ParseEntry(const Fields& rule) {
    if (!rule.Has("entry")) Reject(rule.Name("entry"), "is missing");
    const Json& value = rule.Value("entry");
    if (!value.is_string() || !MisbehaviourEntryIndex(value.get<std::string>())) {
        Reject(rule.Name("entry"), "must be the name of an entry point, not " + value.dump());
    }
    return value.get<std::string>();
}

// Which calls the rule is for.
void ParseSelection(const Fields& fields, MisbehaviourRule& rule) {
    const auto call = fields.Number("call", 1, UINT32_MAX);
    const auto to = fields.Number("to", 1, UINT32_MAX);
    if (call) rule.first = rule.last = *call;
    if (to) {
        if (!call) Reject(fields.Name("to"), "needs a \"call\" to start from");
        if (*to < *call) Reject(fields.Name("to"), "must not come before \"call\"");
        rule.last = *to;
    }
    const auto every = fields.Number("every", 1, UINT32_MAX);
    if (every && call) Reject(fields.Name("every"), "does not go with \"call\"");
    rule.every = every.value_or(1);
    if (!fields.Has("chance")) return;
    const Json& chance = fields.Value("chance");
    if (!chance.is_number() || !(chance.get<double>() >= 0 && chance.get<double>() <= 1)) {
        Reject(fields.Name("chance"), "must be a number from 0 to 1, not " + chance.dump());
    }
    rule.chance = chance.get<double>();
}

void ParseRemoval(const Fields& fields, MisbehaviourRule& rule) {
    if (!fields.Has("remove")) return;
    const Json& value = fields.Value("remove");
    if (value == "before") {
        rule.effect.removal = Misbehaviour::Removal::kBefore;
    } else if (value == "during") {
        rule.effect.removal = Misbehaviour::Removal::kDuring;
    } else {
        Reject(fields.Name("remove"), "must be \"before\" or \"during\", not " + value.dump());
    }
    if (!UsesKey(rule.entry)) Reject(fields.Name("remove"), rule.entry + " works with no key");
    if (rule.effect.removal == Misbehaviour::Removal::kDuring && !WorksOnKey(rule.entry)) {
        Reject(fields.Name("remove"), rule.entry + " only looks at the key; use \"before\"");
    }
}

void ParseEventEffects(const Fields& fields, MisbehaviourRule& rule) {
    for (const char* field : {"repeat", "bounce", "throw"}) {
        if (fields.Has(field) && rule.entry != "ValtoT_WaitForEvent") {
            Reject(fields.Name(field), "is for ValtoT_WaitForEvent alone");
        }
    }
    const auto repeat = fields.Number("repeat", 1, kMostRepetitions);
    const auto bounce = fields.Number("bounce", 1, kMostRepetitions);
    rule.effect.repeat = static_cast<std::uint32_t>(repeat.value_or(0));
    rule.effect.bounce = static_cast<std::uint32_t>(bounce.value_or(0));
    if (!fields.Has("throw")) return;
    if (fields.Value("throw") != true) Reject(fields.Name("throw"), "must be true where it stands");
    rule.effect.throws = true;
}

void ParseEffect(const Fields& fields, MisbehaviourRule& rule) {
    rule.effect.delayMs =
        static_cast<std::uint32_t>(fields.Number("delay_ms", 1, kLongestDelayMs).value_or(0));
    if (fields.Has("code")) {
        if (rule.entry == "X_ErrorConvert_UOS") {
            Reject(fields.Name("code"), "X_ErrorConvert_UOS answers a text, not a code");
        }
        rule.effect.code = ParseCode(fields);
    }
    const auto length = fields.Number("length", 0, UINT32_MAX);
    if (length && !HasLength(rule.entry)) {
        Reject(fields.Name("length"), rule.entry + " writes no length");
    }
    if (length) rule.effect.length = static_cast<std::uint32_t>(*length);
    ParseRemoval(fields, rule);
    ParseEventEffects(fields, rule);
}

MisbehaviourRule ParseRule(const Json& value, const std::string& path) {
    const Fields fields(value, path);
    fields.AllowOnly({"entry", "call", "to", "every", "chance", "code", "delay_ms", "remove",
                      "length", "repeat", "bounce", "throw"});
    MisbehaviourRule rule;
    rule.entry = ParseEntry(fields);
    ParseSelection(fields, rule);
    ParseEffect(fields, rule);
    if (rule.effect.Empty()) {
        Reject(path, "does nothing; give code, delay_ms, remove, length, repeat, bounce or throw");
    }
    return rule;
}

// Follows the parser through the text, to name the place where it stops.
class Place {
public:
    void Follow(Json::parse_event_t event, const Json& parsed) {
        using Event = Json::parse_event_t;
        if (event == Event::key) levels_.back().key = parsed.get<std::string>();
        if (event == Event::object_start || event == Event::array_start) {
            if (levels_.size() == kDeepest) Reject(Name(), "is nested too deeply");
            levels_.push_back({event == Event::array_start, 0, {}});
        }
        if (event == Event::object_end || event == Event::array_end) levels_.pop_back();
        const bool ended =
            event == Event::object_end || event == Event::array_end || event == Event::value;
        if (ended && !levels_.empty()) ++levels_.back().index;
    }

    std::string Name() const {
        std::string name;
        for (const Level& level : levels_) {
            if (level.list) {
                name += "[" + std::to_string(level.index) + "]";
            } else if (!level.key.empty()) {
                name += (name.empty() ? "" : ".") + level.key;
            }
        }
        return name.empty() ? "plan" : name;
    }

private:
    struct Level {
        bool list;
        std::size_t index;
        std::string key;
    };
    static constexpr std::size_t kDeepest = 8;
    std::vector<Level> levels_;
};

Json ReadJson(const std::string& text) {
    Place place;
    try {
        return Json::parse(text, [&place](int, Json::parse_event_t event, Json& parsed) {
            place.Follow(event, parsed);
            return true;
        });
    } catch (const Json::parse_error& error) {
        throw PlanError("the plan is not JSON, at byte " + std::to_string(error.byte));
    } catch (const Json::exception&) {
        Reject(place.Name(), "is a number beyond what a number can hold");
    }
}

void Merge(const Misbehaviour& from, Misbehaviour& into) {
    if (from.delayMs != 0) into.delayMs = from.delayMs;
    if (from.removal != Misbehaviour::Removal::kNone) into.removal = from.removal;
    if (from.code) into.code = from.code;
    if (from.length) into.length = from.length;
    if (from.repeat != 0) into.repeat = from.repeat;
    if (from.bounce != 0) into.bounce = from.bounce;
    if (from.throws) into.throws = true;
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

const std::vector<std::string>& MisbehaviourEntryPoints() {
    static const auto* const kNames = new std::vector<std::string>{
#define SOFTKEY_ENTRY_NAME(result, name, arguments) #name,
        KESTA_TOKEN_ENTRY_POINTS(SOFTKEY_ENTRY_NAME) KESTA_EVENT_ENTRY_POINTS(SOFTKEY_ENTRY_NAME)
#undef SOFTKEY_ENTRY_NAME
    };
    return *kNames;
}

std::optional<std::size_t> MisbehaviourEntryIndex(const std::string& name) {
    const auto& names = MisbehaviourEntryPoints();
    const auto found = std::find(names.begin(), names.end(), name);
    if (found == names.end()) return std::nullopt;
    return static_cast<std::size_t>(found - names.begin());
}

Misbehaviour MisbehaviourPlanText::EffectOn(const std::string& entry, std::uint64_t call) const {
    Misbehaviour effect;
    for (std::size_t i = 0; i < rules.size(); ++i) {
        const MisbehaviourRule& rule = rules[i];
        if (rule.entry != entry || call < rule.first || call > rule.last) continue;
        if (call % rule.every != 0) continue;
        if (rule.chance < 1 && Draw(seed, i, call) >= rule.chance) continue;
        Merge(rule.effect, effect);
    }
    return effect;
}

MisbehaviourPlanText ParseMisbehaviourPlan(const std::string& text) {
    const Json json = ReadJson(text);
    const Fields fields(json, "");
    fields.AllowOnly({"seed", "rules"});
    MisbehaviourPlanText plan;
    plan.seed = fields.Number("seed", 0, UINT64_MAX).value_or(0);
    if (!fields.Has("rules")) Reject("rules", "is missing");
    const Json& rules = fields.Value("rules");
    if (!rules.is_array() || rules.empty()) Reject("rules", "must be a list of at least one rule");
    for (std::size_t i = 0; i < rules.size(); ++i) {
        plan.rules.push_back(ParseRule(rules[i], "rules[" + std::to_string(i) + "]"));
    }
    return plan;
}

}  // namespace softkey

#include "softkey/misbehaviour/misbehaviour_plan.h"

#include <gtest/gtest.h>

#include "softkey/codes.h"

namespace {

using softkey::Misbehaviour;
using softkey::ParseMisbehaviourPlan;
using softkey::PlanError;

std::string WithRule(const std::string& fields) {
    return R"({"rules": [{)" + fields + "}]}";
}

Misbehaviour EffectOf(const std::string& fields, const std::string& entry, std::uint64_t call) {
    return ParseMisbehaviourPlan(WithRule(fields)).EffectOn(entry, call);
}

// The text of the error, or "accepted".
std::string ErrorOf(const std::string& plan) {
    try {
        ParseMisbehaviourPlan(plan);
        return "accepted";
    } catch (const PlanError& error) {
        return error.what();
    }
}

std::string RuleErrorOf(const std::string& fields) {
    return ErrorOf(WithRule(fields));
}

TEST(MisbehaviourPlan, Knows_all_entry_points_of_both_libraries) {
    EXPECT_EQ(34U, softkey::MisbehaviourEntryPoints().size());
    EXPECT_EQ(0U, softkey::MisbehaviourEntryIndex("CheckDeviceEx"));
    EXPECT_EQ(28U, softkey::MisbehaviourEntryIndex("SetCachePinFlag"));
    EXPECT_EQ(33U, softkey::MisbehaviourEntryIndex("ValtoT_ContextFinal"));
    EXPECT_FALSE(softkey::MisbehaviourEntryIndex("Initialize"));
}

TEST(MisbehaviourPlan, A_rule_for_one_call_is_for_that_call_alone) {
    const std::string rule = R"("entry": "VerifyPIN", "call": 3, "code": 23330)";
    EXPECT_FALSE(EffectOf(rule, "VerifyPIN", 2).code);
    EXPECT_EQ(23330, EffectOf(rule, "VerifyPIN", 3).code);
    EXPECT_FALSE(EffectOf(rule, "VerifyPIN", 4).code);
    EXPECT_FALSE(EffectOf(rule, "ChangePin", 3).code);
}

TEST(MisbehaviourPlan, A_rule_may_cover_a_range_of_calls) {
    const std::string rule = R"("entry": "VerifyPIN", "call": 2, "to": 4, "delay_ms": 5)";
    std::string hit;
    for (std::uint64_t call = 1; call <= 6; ++call) {
        hit += EffectOf(rule, "VerifyPIN", call).delayMs == 5 ? 'x' : '.';
    }
    EXPECT_EQ(".xxx..", hit);
}

TEST(MisbehaviourPlan, A_rule_may_cover_every_nth_call) {
    const std::string rule = R"("entry": "VerifyPIN", "every": 3, "delay_ms": 5)";
    std::string hit;
    for (std::uint64_t call = 1; call <= 7; ++call) {
        hit += EffectOf(rule, "VerifyPIN", call).delayMs == 5 ? 'x' : '.';
    }
    EXPECT_EQ("..x..x.", hit);
}

TEST(MisbehaviourPlan, A_rule_without_a_selection_is_for_every_call) {
    EXPECT_EQ(-5, EffectOf(R"("entry": "SetData", "code": -5)", "SetData", 1).code);
    EXPECT_EQ(-5, EffectOf(R"("entry": "SetData", "code": -5)", "SetData", 99999).code);
}

TEST(MisbehaviourPlan, Codes_are_numbers_hexadecimal_texts_or_names) {
    EXPECT_EQ(-2147483648,
              EffectOf(R"("entry": "SetData", "code": -2147483648)", "SetData", 1).code);
    EXPECT_EQ(0x5B12, EffectOf(R"("entry": "SetData", "code": "0x5b12")", "SetData", 1).code);
    EXPECT_EQ(-1, EffectOf(R"("entry": "SetData", "code": "0xFFFFFFFF")", "SetData", 1).code);
    EXPECT_EQ(softkey::kKeyRemoved,
              EffectOf(R"("entry": "SetData", "code": "KeyRemoved")", "SetData", 1).code);
}

TEST(MisbehaviourPlan, Removal_says_when) {
    EXPECT_EQ(Misbehaviour::Removal::kBefore,
              EffectOf(R"("entry": "SetData", "remove": "before")", "SetData", 1).removal);
    EXPECT_EQ(Misbehaviour::Removal::kDuring,
              EffectOf(R"("entry": "SetData", "remove": "during")", "SetData", 1).removal);
}

TEST(MisbehaviourPlan, Events_may_repeat_bounce_and_throw) {
    const Misbehaviour effect =
        EffectOf(R"("entry": "ValtoT_WaitForEvent", "repeat": 2, "bounce": 3, "throw": true)",
                 "ValtoT_WaitForEvent", 1);
    EXPECT_EQ(2U, effect.repeat);
    EXPECT_EQ(3U, effect.bounce);
    EXPECT_TRUE(effect.throws);
}

TEST(MisbehaviourPlan, A_length_may_be_zero) {
    EXPECT_EQ(0U, EffectOf(R"("entry": "GetCertInfo", "length": 0)", "GetCertInfo", 1).length);
}

TEST(MisbehaviourPlan, Some_effects_come_half_way_and_some_lose_the_answer) {
    struct Row {
        const char* fields;
        bool halfWay, lost;
    };
    const Row rows[] = {{R"("delay_ms": 1)", true, false},
                        {R"("remove": "during")", true, false},
                        {R"("remove": "moment")", true, false},
                        {R"("hang": true)", true, false},
                        {R"("crash": "abort")", true, false},
                        {R"("throw": true)", true, false},
                        {R"("code_after": 0)", false, true},
                        {R"("output": "none")", false, true},
                        {R"("output": "cut")", false, false},
                        {R"("remove": "before", "code": 1, "exclusive": true)", false, false}};
    for (const Row& row : rows) {
        const Misbehaviour effect =
            EffectOf(R"("entry": "GetLabel", )" + std::string(row.fields), "GetLabel", 1);
        EXPECT_EQ(row.halfWay, effect.HasInterlude()) << row.fields;
        EXPECT_EQ(row.lost, effect.AnswerIsLost()) << row.fields;
    }
}

TEST(MisbehaviourPlan, Rules_add_up_and_the_later_one_wins) {
    const auto plan = ParseMisbehaviourPlan(R"({"rules": [
        {"entry": "GetCertInfo", "code": 1, "delay_ms": 7},
        {"entry": "GetCertInfo", "call": 2, "code": 2, "length": 9}]})");
    const Misbehaviour effect = plan.EffectOn("GetCertInfo", 2);
    EXPECT_EQ(7U, effect.delayMs);
    EXPECT_EQ(2, effect.code);
    EXPECT_EQ(9U, effect.length);
    EXPECT_EQ(1, plan.EffectOn("GetCertInfo", 1).code);
}

TEST(MisbehaviourPlan, A_rule_that_a_call_does_not_meet_leaves_it_to_the_next) {
    const auto plan = ParseMisbehaviourPlan(R"({"rules": [
        {"entry": "SetData", "code": 1},
        {"entry": "GetCertInfo", "serial": "B", "code": 2},
        {"entry": "GetCertInfo", "call": 2, "code": 3},
        {"entry": "GetCertInfo", "chance": 0, "code": 4},
        {"entry": "GetCertInfo", "delay_ms": 7}]})");
    const Misbehaviour effect = plan.EffectOn("GetCertInfo", 1, "A");
    EXPECT_FALSE(effect.code);
    EXPECT_EQ(7U, effect.delayMs);
}

std::string HitsOfChance(const std::string& seed, const std::string& chance) {
    const auto plan = ParseMisbehaviourPlan(
        R"({"seed": )" + seed + R"(, "rules": [{"entry": "SetData", "code": 1, "chance": )" +
        chance + "}]}");
    std::string hits;
    for (std::uint64_t call = 1; call <= 1000; ++call) {
        hits += plan.EffectOn("SetData", call).code ? 'x' : '.';
    }
    return hits;
}

TEST(MisbehaviourPlan, A_chance_depends_on_the_seed_and_nothing_else) {
    EXPECT_EQ(HitsOfChance("7", "0.3"), HitsOfChance("7", "0.3"));
    EXPECT_NE(HitsOfChance("7", "0.3"), HitsOfChance("8", "0.3"));
}

TEST(MisbehaviourPlan, A_chance_is_met_about_as_often_as_it_says) {
    const std::string hits = HitsOfChance("7", "0.3");
    const auto count = std::count(hits.begin(), hits.end(), 'x');
    EXPECT_GT(count, 240);
    EXPECT_LT(count, 360);
    EXPECT_EQ(std::string(1000, '.'), HitsOfChance("7", "0"));
    EXPECT_EQ(std::string(1000, 'x'), HitsOfChance("7", "1"));
}

TEST(MisbehaviourPlan, Text_that_is_no_plan_is_refused) {
    EXPECT_EQ("the plan is not JSON, at byte 1", ErrorOf(""));
    EXPECT_EQ("the plan is not JSON, at byte 6", ErrorOf("{\"a\" 1"));
    EXPECT_EQ("seed: is a number beyond what a number can hold", ErrorOf(R"({"seed": 1e999})"));
    EXPECT_EQ("plan: must be an object", ErrorOf("[]"));
    EXPECT_EQ("rules: is missing", ErrorOf("{}"));
    EXPECT_EQ("rules: must be a list of at least one rule", ErrorOf(R"({"rules": []})"));
    EXPECT_EQ("rules: must be a list of at least one rule", ErrorOf(R"({"rules": 3})"));
    EXPECT_EQ("rules[0]: must be an object", ErrorOf(R"({"rules": [1]})"));
    EXPECT_EQ("sed: no such field; known are seed, rules, limits, foreign, tries_left",
              ErrorOf(R"({"sed": 1, "rules": []})"));
    EXPECT_EQ("seed: must be a whole number from 0 to 18446744073709551615, not -1",
              ErrorOf(R"({"seed": -1, "rules": []})"));
}

TEST(MisbehaviourPlan, The_error_names_the_rule_and_the_field) {
    EXPECT_EQ("rules[1].entry: is missing",
              ErrorOf(R"({"rules": [{"entry": "SetData", "code": 1}, {"code": 2}]})"));
}

TEST(MisbehaviourPlan, A_bad_entry_is_refused) {
    EXPECT_EQ("rules[0].entry: must be the name of an entry point, not \"Sign\"",
              RuleErrorOf(R"("entry": "Sign", "code": 1)"));
    EXPECT_EQ("rules[0].entry: must be the name of an entry point, not 4",
              RuleErrorOf(R"("entry": 4, "code": 1)"));
}

TEST(MisbehaviourPlan, A_bad_selection_is_refused) {
    const std::string entry = R"("entry": "SetData", "code": 1, )";
    EXPECT_EQ("rules[0].call: must be a whole number from 1 to 4294967295, not 0",
              RuleErrorOf(entry + R"("call": 0)"));
    EXPECT_EQ("rules[0].call: must be a whole number from 1 to 4294967295, not \"2\"",
              RuleErrorOf(entry + R"("call": "2")"));
    EXPECT_EQ("rules[0].to: needs a \"call\" to start from", RuleErrorOf(entry + R"("to": 2)"));
    EXPECT_EQ("rules[0].to: must not come before \"call\"",
              RuleErrorOf(entry + R"("call": 3, "to": 2)"));
    EXPECT_EQ("rules[0].every: does not go with \"call\"",
              RuleErrorOf(entry + R"("call": 3, "every": 2)"));
    EXPECT_EQ("rules[0].chance: must be a number from 0 to 1, not 1.5",
              RuleErrorOf(entry + R"("chance": 1.5)"));
    EXPECT_EQ("rules[0].chance: must be a number from 0 to 1, not \"x\"",
              RuleErrorOf(entry + R"("chance": "x")"));
}

TEST(MisbehaviourPlan, A_bad_code_is_refused) {
    for (const std::string code :
         {"2147483648", "-2147483649", "\"0x123456789\"", "\"5\"", "\"0x\"", "\"kKeyRemoved\"",
          "\"\"", "1.5", "null", "true", "18446744073709551615"}) {
        const std::string error = RuleErrorOf(R"("entry": "SetData", "code": )" + code);
        EXPECT_EQ(0U, error.find("rules[0].code: must be a signed 32-bit number")) << error;
    }
}

TEST(MisbehaviourPlan, An_effect_that_the_entry_point_cannot_have_is_refused) {
    EXPECT_EQ("rules[0].code: X_ErrorConvert_UOS answers a text, not a code",
              RuleErrorOf(R"("entry": "X_ErrorConvert_UOS", "code": 1)"));
    EXPECT_EQ("rules[0].length: SetData writes no length",
              RuleErrorOf(R"("entry": "SetData", "length": 1)"));
    EXPECT_EQ("accepted", RuleErrorOf(R"("entry": "GetLabel", "remove": "during")"));
    EXPECT_EQ("rules[0].remove: UOS_SetCharset works with no key",
              RuleErrorOf(R"("entry": "UOS_SetCharset", "remove": "before")"));
    EXPECT_EQ("rules[0].remove: ValtoT_WaitForEvent works with no key",
              RuleErrorOf(R"("entry": "ValtoT_WaitForEvent", "remove": "before")"));
    for (const std::string field : {"repeat", "bounce", "lose", "late"}) {
        EXPECT_EQ("rules[0]." + field + ": SetData delivers no events",
                  RuleErrorOf(R"("entry": "SetData", ")" + field + R"(": 1)"));
        EXPECT_EQ("rules[0]." + field + ": * delivers no events",
                  RuleErrorOf(R"("entry": "*", ")" + field + R"(": 1)"));
    }
    EXPECT_EQ("rules[0].code_after: X_ErrorConvert_UOS answers a text, not a code",
              RuleErrorOf(R"("entry": "X_ErrorConvert_UOS", "code_after": 1)"));
    EXPECT_EQ("rules[0].output: SetData hands nothing out",
              RuleErrorOf(R"("entry": "SetData", "output": "none")"));
    EXPECT_EQ("rules[0].output: ValtoT_WaitForEvent cannot have \"cut\"",
              RuleErrorOf(R"("entry": "ValtoT_WaitForEvent", "output": "cut")"));
    for (const std::string entry : {"GMCreatePKCS10", "X_ErrorConvert_UOS", "GetPinInfo"}) {
        EXPECT_EQ("rules[0].output: " + entry + " cannot have \"unterminated\"",
                  RuleErrorOf(R"("entry": ")" + entry + R"(", "output": "unterminated")"));
    }
    EXPECT_EQ("rules[0].exclusive: UOS_SetLanguage works with no key",
              RuleErrorOf(R"("entry": "UOS_SetLanguage", "exclusive": true)"));
    EXPECT_EQ("rules[0].serial: ValtoT_ContextInit works with no key",
              RuleErrorOf(R"("entry": "ValtoT_ContextInit", "code": 1, "serial": "A")"));
    EXPECT_EQ("rules[0].slot: needs \"remove\": \"moment\"",
              RuleErrorOf(R"("entry": "SetData", "remove": "during", "slot": 1)"));
}

TEST(MisbehaviourPlan, A_bad_effect_is_refused) {
    EXPECT_EQ(
        "rules[0]: does nothing; give code, code_after, delay_ms, remove, slot, exclusive, hang, "
        "crash, throw, output, length, repeat, bounce, lose or late",
        RuleErrorOf(R"("entry": "SetData", "call": 1)"));
    EXPECT_EQ("rules[0].delay_ms: must be a whole number from 1 to 600000, not 600001",
              RuleErrorOf(R"("entry": "SetData", "delay_ms": 600001)"));
    EXPECT_EQ("rules[0].remove: must be \"before\", \"during\" or \"moment\", not \"later\"",
              RuleErrorOf(R"("entry": "SetData", "remove": "later")"));
    EXPECT_EQ("rules[0].throw: must be true where it stands",
              RuleErrorOf(R"("entry": "ValtoT_WaitForEvent", "throw": false)"));
    EXPECT_EQ("rules[0].repeat: must be a whole number from 1 to 1000, not 0",
              RuleErrorOf(R"("entry": "ValtoT_WaitForEvent", "repeat": 0)"));
    EXPECT_EQ(0U, RuleErrorOf(R"("entry": "SetData", "answer": 5)")
                      .find("rules[0].answer: no such field; known are entry, serial, call,"));
    EXPECT_EQ("rules[0].crash: must be \"abort\" or \"fault\", not true",
              RuleErrorOf(R"("entry": "SetData", "crash": true)"));
    EXPECT_EQ("rules[0].output: must be \"none\", \"garbage\", \"cut\" or \"unterminated\", not 3",
              RuleErrorOf(R"("entry": "GetLabel", "output": 3)"));
    EXPECT_EQ("rules[0].serial: must be a text, not \"\"",
              RuleErrorOf(R"("entry": "GetLabel", "code": 1, "serial": "")"));
    EXPECT_EQ(0U, RuleErrorOf(R"("entry": "GetLabel", "code_after": "x")")
                      .find("rules[0].code_after: must be a signed 32-bit number"));
}

// Puts in the field's place what no field takes.
void ExpectNamed(const std::string& before, const std::string& field, const std::string& path,
                 const std::string& after) {
    const auto errorOf = [&](const std::string& value) {
        return ErrorOf(before + "\"" + field + "\": " + value + after);
    };
    const std::string deep = std::string(100000, '[') + std::string(100000, ']');
    EXPECT_EQ(0U, errorOf(deep).find(path + "[0][0]")) << errorOf(deep);
    EXPECT_EQ(path + ": is a number beyond what a number can hold", errorOf("1e400"));
    for (const std::string value : {"null", "[]", "{}", "-1.5", "\"\""}) {
        EXPECT_EQ(0U, errorOf(value).find(path)) << path << " " << value << ": " << errorOf(value);
    }
}

TEST(MisbehaviourPlan, Every_field_is_named_when_its_value_is_too_deep_too_big_or_of_no_kind) {
    for (const std::string& field : softkey::MisbehaviourFields()) {
        const bool events =
            field == "repeat" || field == "bounce" || field == "lose" || field == "late";
        std::string before = R"({"rules": [{)";
        if (events) before += R"("entry": "ValtoT_WaitForEvent", )";
        if (field == "slot") before += R"("remove": "moment", )";
        if (!events && field != "entry") before += R"("entry": "GetCertInfo", )";
        ExpectNamed(before, field, "rules[0]." + field, "}]}");
    }
    for (const std::string field : {"seed", "rules", "limits", "foreign", "tries_left"}) {
        ExpectNamed("{", field, field, "}");
    }
}

TEST(MisbehaviourPlan, What_stands_for_the_whole_plan_is_checked_too) {
    EXPECT_EQ("accepted", ErrorOf(R"({"limits": {"pairs": 1}})"));
    EXPECT_EQ("accepted", ErrorOf(R"({"foreign": [3, 4], "tries_left": 0})"));
    EXPECT_EQ("limits: limits nothing; give pairs, objects or bytes", ErrorOf(R"({"limits": {}})"));
    EXPECT_EQ("limits.pairs: must be a whole number from 0 to 4294967295, not -1",
              ErrorOf(R"({"limits": {"pairs": -1}})"));
    EXPECT_EQ("limits.pair: no such field; known are pairs, objects, bytes",
              ErrorOf(R"({"limits": {"pair": 1}})"));
    EXPECT_EQ("foreign[1]: must be a whole number from 0 to 4294967295, not \"x\"",
              ErrorOf(R"({"foreign": [1, "x"]})"));
    EXPECT_EQ("foreign: must be a list of at least one number", ErrorOf(R"({"foreign": 4})"));
    EXPECT_EQ("tries_left: must be a whole number from 0 to 255, not 256",
              ErrorOf(R"({"tries_left": 256})"));
}

TEST(MisbehaviourPlan, A_rule_may_be_for_one_serial_number) {
    const auto plan =
        ParseMisbehaviourPlan(R"({"rules": [{"entry": "GetLabel", "serial": "A", "code": 5}]})");
    EXPECT_EQ(5, plan.EffectOn("GetLabel", 1, "A").code);
    EXPECT_FALSE(plan.EffectOn("GetLabel", 1, "B").code);
}

TEST(MisbehaviourPlan, A_rule_for_all_entry_points_does_to_each_what_it_can) {
    const auto plan =
        ParseMisbehaviourPlan(R"({"rules": [{"entry": "*", "delay_ms": 5, "length": 7}]})");
    EXPECT_EQ(5U, plan.EffectOn("SetData", 1).delayMs);
    EXPECT_FALSE(plan.EffectOn("SetData", 1).length);
    EXPECT_EQ(7U, plan.EffectOn("GetCertInfo", 1).length);
    EXPECT_EQ(0U, plan.EffectOn("UOS_SetCharset", 1).delayMs);
    EXPECT_EQ(0U, plan.EffectOn("ValtoT_WaitForEvent", 1).delayMs);
}

TEST(MisbehaviourPlan, Limits_hold_for_what_uses_a_key) {
    const auto plan = ParseMisbehaviourPlan(R"({"limits": {"objects": 3}})");
    EXPECT_EQ(3U, plan.EffectOn("SetData", 1).limits.objects);
    EXPECT_FALSE(plan.EffectOn("UOS_SetCharset", 1).limits.Any());
}

TEST(MisbehaviourPlan, What_is_nested_too_deeply_is_refused_by_its_name) {
    const std::string deep = std::string(100000, '[') + std::string(100000, ']');
    EXPECT_EQ("rules[0].code[0][0][0][0][0]: is nested too deeply",
              RuleErrorOf(R"("entry": "VerifyPIN", "code": )" + deep));
}

TEST(MisbehaviourPlan, A_text_of_more_than_a_megabyte_is_refused) {
    const std::string plan = WithRule(R"("entry": "SetData", "code": 1)");
    EXPECT_EQ("accepted", ErrorOf(plan + std::string((1 << 20) - plan.size(), ' ')));
    EXPECT_EQ("plan: is longer than 1 MiB",
              ErrorOf(plan + std::string((1 << 20) - plan.size() + 1, ' ')));
}

TEST(MisbehaviourPlan, A_number_beyond_all_bounds_is_refused_by_its_name) {
    EXPECT_EQ("rules[0].chance: is a number beyond what a number can hold",
              RuleErrorOf(R"("entry": "VerifyPIN", "chance": 1e400)"));
    EXPECT_EQ("seed: is a number beyond what a number can hold",
              ErrorOf(R"({"seed": 1e400, "rules": []})"));
    EXPECT_EQ("rules[1].chance: is a number beyond what a number can hold",
              ErrorOf(R"({"rules": [{"entry": "VerifyPIN"}, {"chance": 1e400}]})"));
    EXPECT_EQ("foreign[3]: is a number beyond what a number can hold",
              ErrorOf(R"({"foreign": [1, [2, 3], {"a": 4}, 1e400]})"));
    EXPECT_EQ("plan: is a number beyond what a number can hold", ErrorOf("1e400"));
}

}  // namespace

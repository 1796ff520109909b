// Plans of misbehaviour: which effect goes with which entry point, each bound, what is drawn.
#include <fcntl.h>
#include <gtest/gtest.h>

#include <map>

#include "softkey/misbehaviour/misbehaviour_plan.h"
#include "softkey/misbehaviour/occupation.h"
#include "softkey/misbehaviour/spoiled_output.h"
#include "softkey/result.h"
#include "softkey/store/file.h"
#include "temporary_folder.h"

using namespace softkey;

namespace {

bool Accepted(const std::string& plan) {
    try {
        ParseMisbehaviourPlan(plan);
        return true;
    } catch (const PlanError&) {
        return false;
    }
}

bool RuleAccepted(const std::string& entry, const std::string& fields) {
    return Accepted(R"({"rules": [{"entry": ")" + entry + "\", " + fields + "}]}");
}

// One letter for each effect that an entry point can have.
std::string EffectsOf(const std::string& entry) {
    const std::pair<char, const char*> effects[] = {
        {'c', R"("code": 1)"},          {'s', R"("delay_ms": 1, "serial": "A")"},
        {'r', R"("remove": "during")"}, {'o', R"("output": "none")"},
        {'h', R"("output": "cut")"},    {'u', R"("output": "unterminated")"},
        {'l', R"("length": 1)"},        {'e', R"("repeat": 1)"}};
    std::string letters;
    for (const auto& [letter, fields] : effects) {
        if (RuleAccepted(entry, fields)) letters += letter;
    }
    return letters;
}

TEST(EntryPoints, have_the_effects_that_their_arguments_allow) {
    const std::string key = "csr", text = key + "oh", room = text + "u", sized = room + "l";
    const std::map<std::string, std::string> others = {{"CheckDeviceEx", room},
                                                       {"GetLabel", room},
                                                       {"GM_GetCertDN", room},
                                                       {"GetMediaID", room},
                                                       {"GetData", room},
                                                       {"GMCreatePKCS10", text},
                                                       {"GMCreatePKCS10Ex", text},
                                                       {"GetPinInfo", text + "l"},
                                                       {"GetCertInfo", sized},
                                                       {"GetCertInfo_UOS", sized},
                                                       {"GMUsbKeyCriticalSign", sized},
                                                       {"GMUsbKeyCommonSign", sized},
                                                       {"GMUSBKeyAsymDec2", sized},
                                                       {"Batch_Sign", sized},
                                                       {"X_ErrorConvert_UOS", "oh"},
                                                       {"UOS_SetCharset", "c"},
                                                       {"UOS_SetLanguage", "c"},
                                                       {"ValtoT_ContextInit", "c"},
                                                       {"ValtoT_ContextFinal", "c"},
                                                       {"ValtoT_GetSlotList", "cohl"},
                                                       {"ValtoT_GetDeviceInfo", "csohu"},
                                                       {"ValtoT_WaitForEvent", "csoe"}};
    for (const std::string& entry : MisbehaviourEntryPoints()) {
        const auto row = others.find(entry);
        EXPECT_EQ(EffectsOf(entry), row != others.end() ? row->second : key) << entry;
    }
}

TEST(PlanBounds, are_kept_on_both_sides) {
    struct Row {
        const char *entry, *field, *least, *below, *most, *above;
    };
    const Row rows[] = {
        {"SetData", "delay_ms", "1", "0", "600000", "600001"},
        {"GetCertInfo", "length", "0", "-1", "4294967295", "4294967296"},
        {"ValtoT_WaitForEvent", "repeat", "1", "0", "1000", "1001"},
        {"ValtoT_WaitForEvent", "bounce", "1", "0", "1000", "1001"},
        {"ValtoT_WaitForEvent", "late", "1", "0", "1000", "1001"},
        {"SetData", "code", "-2147483648", "-2147483649", "2147483647", "2147483648"},
        {"SetData", "code", "\"0x0\"", "\"0x\"", "\"0xFFFFFFFF\"", "\"0x0FFFFFFFF\""},
        {"SetData", "code", "\"0xaF09\"", "\"0xg\"", "\"Ok\"", "\"kOk\""},
        {"SetData", "code", "\"0x9\"", "\"0x/\"", "\"0xf\"", "\"0x~\""},
        {"SetData", "exclusive", "true", "false", "true", "1"},
        {"SetData", "code\": 1, \"call", "1", "0", "4294967295", "4294967296"},
        {"SetData", "code\": 1, \"every", "1", "0", "4294967295", "4294967296"},
        {"SetData", "code\": 1, \"chance", "0", "-0.001", "1", "1.001"},
        {"SetData", "code\": 1, \"call\": 5, \"to", "5", "4", "4294967295", "4294967296"},
        {"SetData", "remove\": \"moment\", \"slot", "0", "-1", "4294967295", "4294967296"}};
    for (const Row& row : rows) {
        const auto accepted = [&](const char* value) {
            return RuleAccepted(row.entry, std::string("\"") + row.field + "\": " + value);
        };
        EXPECT_TRUE(accepted(row.least)) << row.field;
        EXPECT_FALSE(accepted(row.below)) << row.field;
        EXPECT_TRUE(accepted(row.most)) << row.field;
        EXPECT_FALSE(accepted(row.above)) << row.field;
    }
    const std::pair<const char*, bool> plans[] = {
        {R"({"seed": 18446744073709551615, "tries_left": 255})", true},
        {R"({"seed": 18446744073709551616, "tries_left": 255})", false},
        {R"({"seed": 1})", false},
        {R"({"tries_left": 256})", false},
        {R"({"foreign": [0, 4294967295]})", true},
        {R"({"foreign": [4294967296]})", false},
        {R"({"foreign": []})", false},
        {R"({"limits": {"pairs": 0}})", true},
        {R"({"limits": {"objects": 0}})", true},
        {R"({"limits": {"objects": 4294967295}})", true},
        {R"({"limits": {"bytes": 0}})", true},
        {R"({"limits": {"bytes": 4294967296}})", false},
        {R"({"limits": {"bytes": 4294967295}})", true}};
    for (const auto& [plan, good] : plans) EXPECT_EQ(Accepted(plan), good) << plan;
}

// The steps of the generator, done once with other tools.
TEST(Chance, draws_what_seed_rule_and_call_say) {
    const char* const ofNone =
        ".x..x.xx.xxx..x...x......xxxxxxxx...xxx. x.xx.xx.x.xx.x....x.x.xx.xx.x.x.x..x.x.x";
    const std::pair<const char*, const char*> rows[] = {
        {"", ofNone},
        {R"("seed": 0,)", ofNone},
        {R"("seed": 7,)",
         "...xx...x.xxx...xx.x..x....x...xx..x.... ...xx.xxxx.x.x..x.x...x..xxx..xx..xxx.x."}};
    for (const auto& [seed, expected] : rows) {
        const auto plan = ParseMisbehaviourPlan(std::string("{") + seed + R"("rules": [
            {"entry": "SetData", "chance": 0.5, "code": 1},
            {"entry": "GetData", "chance": 0.5, "code": 1}]})");
        std::string hits;
        for (const char* entry : {"SetData", "GetData"}) {
            if (!hits.empty()) hits += ' ';
            for (std::uint64_t call = 1; call <= 40; ++call) {
                hits += plan.EffectOn(entry, call).code ? 'x' : '.';
            }
        }
        EXPECT_EQ(hits, expected) << seed;
    }
}

// A number drawn is a whole one of 53 bits, over 2 to the power of 53.
TEST(Chance, is_met_by_what_is_below_it) {
    const auto hits = [](const char* chance) {
        return ParseMisbehaviourPlan(R"({"seed": 7, "rules": [{"entry": "SetData", "code": 1,
            "chance": )" + std::string(chance) +
                                     "}]}")
            .EffectOn("SetData", 1)
            .code.has_value();
    };
    EXPECT_FALSE(hits("0.6497043364684557")) << "the number itself";
    EXPECT_TRUE(hits("0.6497043364684558"));
}

TEST(Noise, is_the_same_each_time_and_no_text) {
    EXPECT_EQ(Noise(12), "\x80\xE2\xF9\xA0\xE5\xC7\xEA\xF1\xA6\xAB\xF6\xBA");
    EXPECT_EQ(Noise(0), "");
}

TEST(SpoiledTexts, fill_their_room_or_end_in_it) {
    Misbehaviour plan;
    EXPECT_EQ(SpoiledText(plan, "abcde", 9).written, std::string("abcde\0", 6));
    plan.output = Misbehaviour::Output::kCut;
    EXPECT_EQ(SpoiledText(plan, "abcde", 9).written, std::string("ab\0", 3));
    EXPECT_EQ(SpoiledText(plan, "abcde", 9).length, 2U);
    plan.output = Misbehaviour::Output::kUnterminated;
    EXPECT_EQ(SpoiledText(plan, "abcde", 9).written, "abcdexxxx");
    EXPECT_EQ(SpoiledText(plan, "abcde", 9).length, 5U);
    EXPECT_EQ(SpoiledText(plan, "abcde", 6).written, "abcdex");
    EXPECT_EQ(SpoiledText(plan, "abcde", 5).written, std::string("abcde\0", 6));
    plan.output = Misbehaviour::Output::kGarbage;
    EXPECT_EQ(SpoiledText(plan, "abcde", 9).written, Noise(5) + std::string(1, '\0'));
}

// How many bytes of the file somebody has locked.
int Taken(const std::string& path) {
    const File file(path, O_RDWR);
    struct flock range {};
    int taken = 0;
    for (range.l_type = F_WRLCK;
         fcntl(file.Descriptor(), F_OFD_GETLK, &range) == 0 && range.l_type != F_UNLCK;
         range.l_type = F_WRLCK) {
        ++taken;
        ++range.l_start;
        range.l_len = 0;
        range.l_pid = 0;
    }
    return taken;
}

TEST(Occupation, keeps_each_key_until_its_file_is_another) {
    const TemporaryFolder folder;
    const std::string owner = folder.File("misbehaviour.owner");
    for (const char* serial : {"A", "B", "A", "C"}) EXPECT_TRUE(OccupyKey(folder.Path(), serial));
    EXPECT_EQ(Taken(owner), 3);
    std::filesystem::rename(owner, folder.File("old"));
    folder.Write("misbehaviour.owner", "");
    EXPECT_TRUE(OccupyKey(folder.Path(), "A"));
    EXPECT_EQ(Taken(owner), 1);
}

TEST(Occupation, works_once_its_folder_is_there) {
    const TemporaryFolder folder;
    EXPECT_THROW(OccupyKey(folder.File("home"), "A"), Failure);
    std::filesystem::create_directory(folder.File("home"));
    EXPECT_TRUE(OccupyKey(folder.File("home"), "A"));
}

TEST(Occupation, is_of_one_key_in_one_folder_and_outlives_its_file) {
    const TemporaryFolder one, other;
    EXPECT_TRUE(OccupyKey(one.Path(), "A"));
    EXPECT_TRUE(OccupyKey(one.Path(), "A")) << "the process has it already";
    EXPECT_TRUE(OccupyKey(one.Path(), "B"));
    EXPECT_TRUE(OccupyKey(other.Path(), "A"));
    std::filesystem::remove(one.File("misbehaviour.owner"));
    EXPECT_TRUE(OccupyKey(one.Path(), "A"));
    EXPECT_TRUE(std::filesystem::exists(one.File("misbehaviour.owner"))) << "it is made anew";
}

}  // namespace

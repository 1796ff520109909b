// docs/softkey.md and docs/misbehaviour.md say what the code says.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "softkey/codes.h"
#include "softkey/misbehaviour/misbehaviour_plan.h"

namespace {

std::string Document(const char* name) {
    std::ostringstream text;
    text << std::ifstream(std::string(SOFTKEY_DOCUMENTS "/") + name, std::ios::binary).rdbuf();
    return text.str();
}

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    return lines;
}

TEST(SoftkeyDocument, The_table_of_codes_is_the_list_of_codes) {
    std::vector<std::string> expected;
    const auto add = [&expected](const char* name, int value, const char* english,
                                 const char* chinese) {
        char code[16];
        std::snprintf(code, sizeof code, "0x%04X", static_cast<unsigned>(value));
        expected.push_back(std::string("| `") + code + "` | `" + (name + 1) + "` | " + english +
                           " | " + chinese + " |");
    };
#define SOFTKEY_ADD(name, value, english, chinese) add(#name, value, english, chinese);
    SOFTKEY_CODES(SOFTKEY_ADD)
#undef SOFTKEY_ADD
    std::vector<std::string> documented;
    for (const std::string& line : Lines(Document("softkey.md"))) {
        if (line.rfind("| `0x", 0) == 0) documented.push_back(line);
    }
    EXPECT_EQ(expected, documented);
}

TEST(MisbehaviourDocument, Its_example_of_a_plan_is_accepted) {
    const std::string document = Document("misbehaviour.md");
    const std::string opening = "```json\n";
    int plans = 0;
    for (std::size_t at = document.find(opening); at != document.npos;
         at = document.find(opening, at + 1)) {
        const std::size_t begin = at + opening.size();
        const std::string plan = document.substr(begin, document.find("```", begin) - begin);
        EXPECT_NO_THROW(softkey::ParseMisbehaviourPlan(plan)) << plan;
        ++plans;
    }
    EXPECT_EQ(1, plans);
}

TEST(MisbehaviourDocument, Every_field_of_a_plan_is_explained_and_no_other) {
    const std::string document = Document("misbehaviour.md");
    std::multiset<std::string> explained;
    const std::regex row("\n\\| `\"([a-z_]+)\": [^|]*` \\|");
    for (std::sregex_iterator at(document.begin(), document.end(), row), end; at != end; ++at) {
        explained.insert((*at)[1]);
    }
    std::multiset<std::string> known = {"seed", "rules", "limits", "foreign", "tries_left"};
    for (const std::string& field : softkey::MisbehaviourFields()) known.insert(field);
    EXPECT_EQ(known, explained);
}

}  // namespace

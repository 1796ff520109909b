// docs/softkey.md says what the code says.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "softkey/codes.h"
#include "softkey/misbehaviour/misbehaviour_plan.h"

namespace {

std::string Document() {
    std::ostringstream text;
    text << std::ifstream(SOFTKEY_DOCUMENT, std::ios::binary).rdbuf();
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
    for (const std::string& line : Lines(Document())) {
        if (line.rfind("| `0x", 0) == 0) documented.push_back(line);
    }
    EXPECT_EQ(expected, documented);
}

TEST(SoftkeyDocument, Its_example_of_a_plan_is_accepted) {
    const std::string document = Document();
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

TEST(SoftkeyDocument, Every_field_of_a_plan_is_explained) {
    const std::string document = Document();
    for (const char* field : {"call", "to", "every", "chance", "delay_ms", "code", "remove",
                              "length", "repeat", "bounce", "throw"}) {
        const std::regex row("\\n\\| `[^|]*\"" + std::string(field) + "\": [^|]*` \\|");
        EXPECT_TRUE(std::regex_search(document, row)) << field;
    }
}

}  // namespace

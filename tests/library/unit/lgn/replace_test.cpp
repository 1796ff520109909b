#include <random>

#include "cpu_ratio.h"
#include "lgn/lgn_test.h"
#include "oracles/replace_steps.h"
#include "rounds.h"

namespace {

using Replace = FaultyManagerTest;

LgnString Make(const std::string& text) {
    return LgnString(text.data(), static_cast<int>(text.size()), _lgnBufferManager);
}

struct Case {
    std::string text;
    const char* pattern;
    const char* replacement;
    int count;
    std::string result;
};

class ReplaceCases : public LgnTest, public testing::WithParamInterface<Case> {};

TEST_P(ReplaceCases, returns_the_number_and_leaves_the_text) {
    LgnString string = Make(GetParam().text);
    EXPECT_EQ(string.Replace(GetParam().pattern, GetParam().replacement), GetParam().count);
    EXPECT_EQ(TextOf(string), GetParam().result);
    EXPECT_TRUE(IsTerminated(string));
}

std::string WithNul(const char* before, const char* after) {
    return std::string(before) + '\0' + after;
}

INSTANTIATE_TEST_SUITE_P(
    Cases, ReplaceCases,
    testing::Values(Case{"a||b||c", "||", "|", 2, "a|b|c"}, Case{"a,b,c", ",", "", 2, "abc"},
                    Case{"a,b,c", ",", nullptr, 2, "abc"}, Case{",,,", ",", "", 3, ""},
                    Case{"aXbXc", "X", "YY", 2, "aYYbYYc"}, Case{"aXbXc", "X", "Y", 2, "aYbYc"},
                    Case{"aaaa", "aa", "a", 2, "aa"}, Case{"aaa", "aa", "b", 1, "ba"},
                    Case{"aaa", "a", "aa", 3, "aaaaaa"}, Case{"abc", "abc", "", 1, ""},
                    Case{"abc", "abcd", "x", 0, "abc"}, Case{"abc", "C", "x", 0, "abc"},
                    Case{"", "a", "b", 0, ""}, Case{"abc", "", "x", 0, "abc"},
                    Case{"abc", nullptr, "x", 0, "abc"},
                    Case{WithNul("a,b", "c,d"), ",", "", 2, WithNul("ab", "cd")},
                    Case{WithNul("a,b", "c,d"), ",", ";", 2, WithNul("a;b", "c;d")},
                    Case{WithNul("", ","), ",", "", 1, WithNul("", "")},
                    Case{WithNul("ab", "ab"), "bab", "x", 0, WithNul("ab", "ab")},
                    Case{WithNul("a", "b,"), ",", ";;", 1, WithNul("a", "b;;")}));

TEST_F(Replace, of_an_absent_pattern_does_not_unshare) {
    LgnString string("abc");
    const LgnString sharer(string);
    EXPECT_EQ(string.Replace("x", "y"), 0);
    EXPECT_EQ(AddressOf(string), AddressOf(sharer));
    EXPECT_EQ(ReferencesOf(sharer), 2);
}

TEST_F(Replace, unshares_into_room_for_the_longer_of_old_and_new_text) {
    LgnString string("a,b,c,d,e", 9, Mgr());
    const LgnString sharer(string);
    EXPECT_EQ(string.Replace(",", ""), 4);
    EXPECT_EQ(TextOf(sharer), "a,b,c,d,e");
    EXPECT_EQ(TextOf(string), "abcde");
    string = sharer;
    EXPECT_EQ(string.Replace(",", "--"), 4);
    EXPECT_EQ(raw.allocated, (std::vector<int>{9, 9, 13}));
    EXPECT_EQ(TextOf(sharer), "a,b,c,d,e");
}

TEST_F(Replace, that_shrinks_keeps_the_buffer) {
    LgnString string("a,b,c,d,e,f", 11, Mgr());
    const char* const before = AddressOf(string);
    EXPECT_EQ(string.Replace(",", ""), 5);
    EXPECT_EQ(AddressOf(string), before);
    EXPECT_EQ(CapacityOf(string), 15);
}

// Two pieces; the first one's growth pushes the second one past the old end.
TEST_F(Replace, leaves_a_piece_that_growth_pushed_past_the_old_end) {
    LgnString string = Make(WithNul(",,", ",x"));
    EXPECT_EQ(string.Replace(",", "12345"), 3);
    EXPECT_EQ(LengthOf(string), 5 + 3 * 4);
    EXPECT_EQ(TextOf(string).substr(0, 13), WithNul("1234512345", ",x"));
    EXPECT_EQ(TextOf(string).substr(13), std::string(4, '\0')) << "nothing else may show there";
}

// Builds texts over few characters, so that hits, near misses and embedded NULs are common.
class RandomTexts {
public:
    explicit RandomTexts(unsigned seed) : random_(seed) {}
    int Below(int n) { return std::uniform_int_distribution<int>(0, n - 1)(random_); }
    std::string Over(std::string_view alphabet, int longest) {
        std::string text(static_cast<std::size_t>(Below(longest + 1)), ' ');
        for (char& c : text) {
            c = alphabet[static_cast<std::size_t>(Below(static_cast<int>(alphabet.size())))];
        }
        return text;
    }

private:
    std::mt19937 random_;
};

void ExpectAsBySteps(const std::string& text, const std::string& pattern,
                     const std::string& replacement) {
    const ReplacedText expected = ReplaceBySteps(text, pattern.c_str(), replacement.c_str());
    LgnString string = Make(text);
    ASSERT_EQ(string.Replace(pattern.c_str(), replacement.c_str()), expected.count);
    ASSERT_EQ(static_cast<std::size_t>(LengthOf(string)), expected.text.size());
    ASSERT_TRUE(IsTerminated(string));
    const std::string result = TextOf(string);
    for (std::size_t i = 0; i < result.size(); ++i) {
        ASSERT_EQ(result[i], expected.defined[i] ? expected.text[i] : '\0') << "at byte " << i;
    }
}

// The bytes that the plain steps leave as they find them are zero bytes here; all others agree.
TEST_F(Replace, agrees_with_the_plain_steps_on_random_texts) {
    RandomTexts random(20250731);
    const std::string_view alphabet("ab|\0", 4);
    for (int round = 0; round < Rounds(200000); ++round) {
        const std::string text = random.Over(alphabet, 40);
        const std::string pattern = random.Over("ab|", 3);
        const std::string replacement = random.Over("ab|", 6);
        ExpectAsBySteps(text, pattern, replacement);
        if (HasFatalFailure()) {
            FAIL() << "text " << testing::PrintToString(text) << ", pattern " << pattern
                   << ", replacement " << replacement;
        }
    }
}

TEST_F(Replace, agrees_with_the_plain_steps_on_long_texts) {
    RandomTexts random(7);
    const std::string_view alphabet("aab||xyz\0", 9);
    for (int round = 0; round < Rounds(60); ++round) {
        const std::string text = random.Over(alphabet, 20000);
        // Patterns may be longer than the window that a search looks at.
        const std::string pattern = random.Below(4) == 0 && text.size() > 6000
                                        ? std::string(text.c_str() + random.Below(1000))
                                        : random.Over("ab|", 4);
        const std::string replacement = random.Over("ab|", 9);
        ExpectAsBySteps(text, pattern, replacement);
        ASSERT_FALSE(HasFatalFailure()) << "round " << round;
    }
}

TEST_F(Replace, finds_a_long_pattern_wherever_it_stands) {
    const std::string pattern(3000, 'p');
    for (const std::size_t at : {0u, 1u, 4095u, 4096u, 8999u, 9001u, 12000u, 20000u}) {
        const std::string text = std::string(at, '.') + pattern + std::string(100, '.');
        LgnString string = Make(text);
        EXPECT_EQ(string.Replace(pattern.c_str(), "X"), 1) << at;
        EXPECT_EQ(TextOf(string), std::string(at, '.') + "X" + std::string(100, '.'));
    }
}

std::string Lines(std::size_t bytes) {
    std::string text;
    while (text.size() < bytes) text += std::string(64, 'A') + '\n';
    return text;
}

// Moving the rest at every hit costs sixteen times as much for four times the text; one pass costs
// four times as much.
TEST_F(Replace, of_line_breaks_costs_in_proportion_to_the_text) {
    const auto remove = [](const std::string& text) {
        LgnString string = Make(text);
        EXPECT_GT(string.Replace("\n", ""), 0);
    };
    const std::string small = Lines(1 << 20), large = Lines(4 << 20);
    EXPECT_LT(CpuRatio([&] { remove(small); }, [&] { remove(large); }), 8);
}

TEST_F(Replace, that_grows_costs_in_proportion_to_the_text) {
    const auto widen = [](const std::string& text) {
        LgnString string = Make(text);
        EXPECT_GT(string.Replace("\n", "\r\n"), 0);
    };
    const std::string small = Lines(1 << 20), large = Lines(4 << 20);
    EXPECT_LT(CpuRatio([&] { widen(small); }, [&] { widen(large); }), 8);
}

TEST_F(Replace, costs_in_proportion_to_the_text_with_a_NUL_in_each_line) {
    const auto remove = [](const std::string& text) {
        LgnString string = Make(text);
        EXPECT_GT(string.Replace("A", ""), 0);
    };
    std::string small, large;
    while (small.size() < 1 << 18) small += std::string("bbbbbbbA") + '\0';
    while (large.size() < 1 << 20) large += std::string("bbbbbbbA") + '\0';
    EXPECT_LT(CpuRatio([&] { remove(small); }, [&] { remove(large); }), 8);
}

}  // namespace

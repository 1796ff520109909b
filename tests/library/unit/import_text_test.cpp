// The texts of certificates, bundles and escrowed keys.
#include "import_text.h"

#include <gtest/gtest.h>

#include <random>

#include "commonfunction.h"
#include "cpu_ratio.h"
#include "oracles/bundle_steps.h"
#include "rounds.h"

namespace {

using Contents = std::vector<std::string>;

const std::string kHeader =
    "00000000000000010000000000000001000000000000000000000000000000000000000000000273";

Contents ContentsOf(const std::string& text, const std::string& opener) {
    Contents contents;
    kesta::SectionScanner scanner(text, opener);
    std::string_view content;
    while (scanner.Next(content)) {
        contents.emplace_back(content);
        if (contents.size() > text.size() + 1) throw std::runtime_error("the pass does not end");
    }
    return contents;
}

int KindOf(const std::string& text) {
    return static_cast<int>(kesta::ClassifyBundle(text));
}

std::string Cleaned(const char* text, void (*clean)(LgnString&)) {
    LgnString string(text);
    clean(string);
    return std::string(string.View());
}

TEST(Cleaning, removes_commas_alone) {
    EXPECT_EQ(Cleaned(",a,\r\n,b;c,", kesta::RemoveCommas), "a\r\nb;c");
}

TEST(Cleaning, removes_carriage_returns_and_line_feeds_alone) {
    EXPECT_EQ(Cleaned("\r\na,\n\rb c\t\r", kesta::RemoveLineBreaks), "a,b c\t");
}

TEST(Cleaning, of_a_clean_text_does_not_unshare) {
    LgnString string("clean");
    const LgnString sharer(string);
    kesta::RemoveCommas(string);
    kesta::RemoveLineBreaks(string);
    EXPECT_EQ(string.GetString(), sharer.GetString());
}

TEST(KeyBody, is_the_text_behind_the_header) {
    EXPECT_EQ(kesta::KeyBody(kHeader + "BODY"), "BODY");
}

TEST(KeyBody, is_the_whole_text_without_the_header) {
    EXPECT_EQ(kesta::KeyBody("BODY"), "BODY");
    EXPECT_EQ(kesta::KeyBody(""), "");
    EXPECT_EQ(kesta::KeyBody(std::string(200, '0')), std::string(200, '0'));
}

TEST(KeyBody, loses_its_first_80_characters_wherever_the_header_stands) {
    EXPECT_EQ(kesta::KeyBody("ab" + kHeader + "BODY"), "73BODY");
    EXPECT_EQ(kesta::KeyBody(std::string(100, 'x') + kHeader), std::string(20, 'x') + kHeader);
}

TEST(KeyBody, of_the_header_alone_is_empty) {
    EXPECT_EQ(kesta::KeyBody(kHeader), "");
}

TEST(KeyBody, needs_every_digit_of_the_header) {
    for (std::size_t i = 0; i < kHeader.size(); ++i) {
        std::string text = kHeader + "BODY";
        text[i] = '9';
        EXPECT_EQ(kesta::KeyBody(text), text) << "digit " << i;
    }
    EXPECT_EQ(kesta::KeyBody(kHeader.substr(1)), kHeader.substr(1));
}

TEST(ClassifyBundle, takes_a_text_without_parenthesis_for_one_certificate) {
    EXPECT_EQ(KindOf("MIIC"), 2);
    EXPECT_EQ(KindOf(""), 2);
    EXPECT_EQ(KindOf("SignCert|EncCert)"), 2);
}

TEST(ClassifyBundle, takes_a_text_that_begins_with_a_parenthesis_for_one_certificate) {
    EXPECT_EQ(KindOf("(MIIC"), 2);
    EXPECT_EQ(KindOf("(SignCert(A)"), 2);
}

TEST(ClassifyBundle, accepts_each_name_in_any_case) {
    for (const char* name :
         {"SignCert", "EncCert", "EncPriKey", "signcert", "ENCCERT", "eNCpRIkEY"}) {
        EXPECT_EQ(KindOf(std::string(name) + "(A)"), 3) << name;
        EXPECT_EQ(KindOf("SignCert(A)|" + std::string(name) + "(A)"), 3) << name;
    }
}

TEST(ClassifyBundle, refuses_any_other_name) {
    for (const char* name : {"Sign", "SignCerts", " SignCert", "SignCert ", "EncKey", "x"}) {
        EXPECT_EQ(KindOf(std::string(name) + "(A)"), 1) << name;
        EXPECT_EQ(KindOf("SignCert(A)|" + std::string(name) + "(A)"), 1) << name;
    }
}

TEST(ClassifyBundle, accepts_the_usual_three_sections) {
    EXPECT_EQ(KindOf("SignCert(A)|EncCert(B)|EncPriKey(K)"), 3);
}

TEST(ClassifyBundle, looks_at_nothing_behind_the_last_bar_less_section) {
    EXPECT_EQ(KindOf("SignCert("), 3);
    EXPECT_EQ(KindOf("SignCert(A)nonsense(B)"), 3);
    EXPECT_EQ(KindOf("SignCert(A)|EncCert(B) and (more"), 3);
}

TEST(ClassifyBundle, refuses_a_bar_that_no_section_follows) {
    EXPECT_EQ(KindOf("SignCert(A)|"), 1);
    EXPECT_EQ(KindOf("SignCert(|"), 1);
    EXPECT_EQ(KindOf("SignCert(A)|EncCert"), 1);
    EXPECT_EQ(KindOf("SignCert(A)|x"), 1);
    EXPECT_EQ(KindOf("SignCert(A)||EncCert(B)"), 1);
}

// The search for "(" leaves out the first character behind the bar.
TEST(ClassifyBundle, takes_a_parenthesis_right_behind_the_bar_for_a_part_of_the_name) {
    EXPECT_EQ(KindOf("SignCert(A)|("), 1);
    EXPECT_EQ(KindOf("SignCert(A)|(EncCert(B)"), 1);
}

TEST(ClassifyBundle, takes_a_bar_inside_a_content_for_a_separator) {
    EXPECT_EQ(KindOf("SignCert(A|B)"), 1);
    EXPECT_EQ(KindOf("SignCert(A|EncCert(B)"), 3);
}

// Also exported, for whoever passes a string of the library's own type.
TEST(GetBatchCertDataType, is_the_kind_of_a_text_that_it_leaves_as_it_was) {
    CommonFunction functions;
    const LgnString bundle("SignCert(A)|enccert(B)");
    EXPECT_EQ(functions.GetBatchCertDataType(bundle), 3);
    EXPECT_EQ(functions.GetBatchCertDataType(LgnString("SignCert(A)|")), 1);
    EXPECT_EQ(functions.GetBatchCertDataType(LgnString("MIIC")), 2);
    EXPECT_EQ(functions.GetBatchCertDataType(LgnString()), 2);
    EXPECT_EQ(bundle.View(), "SignCert(A)|enccert(B)");
}

TEST(SectionScanner, takes_the_contents_of_its_own_kind_in_order) {
    const std::string bundle = "SignCert(A)|EncCert(B)|SignCert(C)|EncPriKey(K)";
    EXPECT_EQ(ContentsOf(bundle, "SignCert("), (Contents{"A", "C"}));
    EXPECT_EQ(ContentsOf(bundle, "EncCert("), Contents{"B"});
    EXPECT_EQ(ContentsOf(bundle, "EncPriKey("), Contents{"K"});
}

TEST(SectionScanner, knows_its_own_case_alone) {
    EXPECT_EQ(ContentsOf("signcert(A)|SIGNCERT(B)", "SignCert("), Contents{});
}

TEST(SectionScanner, finds_nothing_in_nothing) {
    EXPECT_EQ(ContentsOf("", "SignCert("), Contents{});
    EXPECT_EQ(ContentsOf("SignCert", "SignCert("), Contents{});
}

TEST(SectionScanner, ends_a_content_at_the_first_parenthesis) {
    EXPECT_EQ(ContentsOf("SignCert(A)B)", "SignCert("), Contents{"A"});
    EXPECT_EQ(ContentsOf("SignCert()", "SignCert("), Contents{""});
}

TEST(SectionScanner, finds_its_name_anywhere) {
    EXPECT_EQ(ContentsOf("xSignCert(A)", "SignCert("), Contents{"A"});
    EXPECT_EQ(ContentsOf("EncCert(SignCert(A)", "SignCert("), Contents{"A"});
    EXPECT_EQ(ContentsOf("SignCert(SignCert(A)", "SignCert("), Contents{"SignCert(A"});
}

// The character behind ")" is skipped, bar or not.
TEST(SectionScanner, goes_on_two_characters_behind_a_content) {
    EXPECT_EQ(ContentsOf("SignCert(A)SignCert(B)", "SignCert("), Contents{"A"});
    EXPECT_EQ(ContentsOf("SignCert(A)xSignCert(B)", "SignCert("), (Contents{"A", "B"}));
}

TEST(SectionScanner, takes_an_opener_without_end_for_an_empty_content_once) {
    EXPECT_EQ(ContentsOf("SignCert(A", "SignCert("), Contents{""});
    EXPECT_EQ(ContentsOf("xSignCert(A", "SignCert("), Contents{""});
    EXPECT_EQ(ContentsOf("SignCert(A|SignCert(B", "SignCert("), (Contents{"", ""}));
}

TEST(SectionScanner, ends_where_an_unended_opener_sends_it_back_to_a_handled_one) {
    EXPECT_EQ(ContentsOf("SignCert(A)|SignCert(B)|SignCert(C", "SignCert("),
              (Contents{"A", "B", ""}));
}

TEST(SectionScanner, finds_a_passed_over_opener_when_it_is_sent_back) {
    EXPECT_EQ(ContentsOf("SignCert(SignCert(A)|SignCert(B", "SignCert("),
              (Contents{"SignCert(A", "", "A"}));
}

std::string RandomBundle(std::mt19937& random) {
    static const char* const pieces[] = {
        "SignCert(",    "EncCert(", "EncPriKey(", "signcert(", "SignCert(A)", "EncCert(B)|",
        "|SignCert(C)", ")",        "|",          "(",         "A",           "x",
        "SignCert",     "\xe9"};
    std::string text;
    for (int n = std::uniform_int_distribution<int>(0, 10)(random); n > 0; --n) {
        text += pieces[std::uniform_int_distribution<std::size_t>(0, 13)(random)];
    }
    return text;
}

TEST(ClassifyBundle, agrees_with_the_plain_steps_on_random_texts) {
    std::mt19937 random(62);
    int kinds[4] = {};
    for (int round = 0; round < Rounds(300000); ++round) {
        const std::string text = RandomBundle(random);
        ASSERT_EQ(KindOf(text), steps::Classify(text)) << text;
        ++kinds[steps::Classify(text)];
    }
    for (const int kind : {1, 2, 3})
        EXPECT_GT(kinds[kind], Rounds(1000)) << "the texts reach every kind";
}

TEST(SectionScanner, agrees_with_the_plain_steps_on_random_texts) {
    std::mt19937 random(63);
    for (int round = 0; round < Rounds(100000); ++round) {
        const std::string text = RandomBundle(random);
        for (const char* opener : {"SignCert(", "EncPriKey(", "EncCert("}) {
            ASSERT_EQ(ContentsOf(text, opener), steps::Contents(text, opener)) << text;
        }
    }
}

TEST(KeyBody, agrees_with_the_plain_steps_on_random_texts) {
    std::mt19937 random(64);
    const auto below = [&random](std::size_t n) {
        return std::uniform_int_distribution<std::size_t>(0, n - 1)(random);
    };
    int withHeader = 0;
    for (int round = 0; round < 20000; ++round) {
        std::string text;
        for (std::size_t n = below(5); n > 0; --n) {
            const std::string pieces[] = {kHeader, kHeader.substr(below(80)),
                                          kHeader.substr(0, below(80)), "0", "BODY"};
            text += pieces[below(5)];
        }
        ASSERT_EQ(kesta::KeyBody(text), steps::KeyBody(text)) << text;
        withHeader += steps::KeyBody(text) != text;
    }
    EXPECT_GT(withHeader, 1000);
}

// A bundle as a certification authority sends it: lines of 64 characters, many sections.
std::string WrappedBundle(std::size_t bytes, std::size_t sectionLines) {
    std::string text = "EncCert(B)";
    while (text.size() < bytes) {
        text += "|SignCert(";
        for (std::size_t i = 0; i < sectionLines; ++i) text += std::string(64, 'A') + "\r\n";
        text += ")";
    }
    return text;
}

void ReadBundle(const std::string& wrapped) {
    LgnString text(wrapped.c_str());
    kesta::RemoveCommas(text);
    kesta::RemoveLineBreaks(text);
    ASSERT_EQ(static_cast<int>(kesta::ClassifyBundle(text.View())), 3);
    std::size_t bytes = 0;
    for (const char* opener : {"SignCert(", "EncPriKey(", "EncCert("}) {
        kesta::SectionScanner scanner(text.View(), opener);
        std::string_view content;
        while (scanner.Next(content)) bytes += content.size();
    }
    ASSERT_GT(bytes, wrapped.size() / 2);
}

TEST(Bundle, costs_in_proportion_to_its_length) {
    const std::string small = WrappedBundle(1 << 20, 30), large = WrappedBundle(4 << 20, 30);
    EXPECT_LT(CpuRatio([&] { ReadBundle(small); }, [&] { ReadBundle(large); }), 8);
}

TEST(Bundle, of_one_long_section_costs_in_proportion_to_its_length) {
    const std::string small = WrappedBundle(1 << 20, 1 << 14);
    const std::string large = WrappedBundle(4 << 20, 1 << 16);
    EXPECT_LT(CpuRatio([&] { ReadBundle(small); }, [&] { ReadBundle(large); }), 8);
}

}  // namespace

// The holes of sentences.
#include "softkey/sentence.h"

#include <gtest/gtest.h>

using softkey::Sentence;

namespace {

TEST(Sentences, have_their_holes_filled_in_any_order) {
    EXPECT_EQ(Sentence("nothing to fill"), "nothing to fill");
    EXPECT_EQ(Sentence("{1} of {2}", {"a", "b"}), "a of b");
    EXPECT_EQ(Sentence("{2}{1}{2}!", {"a", "b"}), "bab!");
    EXPECT_EQ(Sentence("{9}", {"a", "b", "c", "d", "e", "f", "g", "h", "i"}), "i");
    EXPECT_EQ(Sentence("{1} {2}", {"{2}", "b"}), "{2} b") << "what is filled in has no holes";
}

TEST(Sentences, keep_what_is_no_hole) {
    for (const char* text : {"", "{", "{1", "{}", "1}", "{0}", "{2}", "{a}", "{/}", "{10}", "{1)",
                             "(1}", "{ 1}", "{-}", "a{"}) {
        EXPECT_EQ(Sentence(text, {"x"}), text);
    }
    EXPECT_EQ(Sentence("{1}"), "{1}");
    EXPECT_EQ(Sentence("{{1}}", {"x"}), "{x}");
}

TEST(Sentences, are_translated_before_they_are_filled) {
    const auto before = softkey::translate;
    softkey::translate = [](const char*) { return "{2} {1}"; };
    EXPECT_EQ(Sentence("{1} {2}", {"a", "b"}), "b a");
    softkey::translate = before;
}

}  // namespace

// What a code means, and in which language the face says so.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

#include "kesta/ukey.hpp"
#include "softkey/codes.h"
#include "stand_in.h"

namespace kesta {
namespace {

using testing::HasSubstr;

class Kinds : public testing::Test {
protected:
    void SetUp() override { stand_in().Reset(); }
    void TearDown() override {
        CodeTable::Use(CodeTable::SoftwareKey());
        Speak(Language::kEnglish);
    }
    Kind KindOf(int code) {
        stand_in().code = code;
        return library.Try().VerifyPIN("SN").failure().kind();
    }
    const Library library = Library::Linked();
};

TEST_F(Kinds, of_the_librarys_own_codes_are_fixed) {
    CodeTable table;
    table.Add(-1000, 0, Kind::kFull);
    CodeTable::Use(table);
    EXPECT_EQ(KindOf(KESTA_NOT_BOUND), Kind::kNotLoaded);
    EXPECT_EQ(KindOf(KESTA_NOT_INITIALISED), Kind::kNotLoaded);
    EXPECT_EQ(KindOf(KESTA_UNSUPPORTED), Kind::kUnsupported);
    EXPECT_EQ(KindOf(KESTA_BAD_ARGUMENT), Kind::kBadArgument);
    EXPECT_EQ(KindOf(KESTA_BUFFER_TOO_SMALL), Kind::kBuffer);
    EXPECT_EQ(KindOf(-999), Kind::kFull);
}

TEST_F(Kinds, of_the_software_keys_codes_are_known_from_the_start) {
    EXPECT_EQ(KindOf(softkey::kKeyAbsent), Kind::kNoKey);
    EXPECT_EQ(KindOf(softkey::kKeyRemoved), Kind::kRemoved);
    EXPECT_EQ(KindOf(softkey::kPinWrong), Kind::kPinWrong);
    EXPECT_EQ(KindOf(softkey::kPinLocked), Kind::kPinLocked);
    EXPECT_EQ(KindOf(softkey::kPinCancelled), Kind::kCancelled);
    EXPECT_EQ(KindOf(softkey::kButtonRefused), Kind::kRefused);
    EXPECT_EQ(KindOf(softkey::kButtonTimeout), Kind::kTimeout);
    EXPECT_EQ(KindOf(softkey::kDataNotFound), Kind::kNotFound);
    EXPECT_EQ(KindOf(softkey::kStateBusy), Kind::kBusy);
    EXPECT_EQ(KindOf(softkey::kStateDamaged), Kind::kDamaged);
}

TEST_F(Kinds, are_given_to_every_code_of_the_software_key) {
    const CodeTable table = CodeTable::SoftwareKey();
#define SOFTKEY_KNOWN(name, value, english, chinese) \
    EXPECT_NE(table.KindOf(value), Kind::kUnknown) << #name;
    SOFTKEY_CODES(SOFTKEY_KNOWN)
#undef SOFTKEY_KNOWN
}

TEST_F(Kinds, of_codes_in_no_table_are_unknown) {
    EXPECT_EQ(KindOf(0x1234), Kind::kUnknown);
    CodeTable::Use(CodeTable());
    EXPECT_EQ(KindOf(softkey::kPinWrong), Kind::kUnknown);
}

TEST_F(Kinds, come_from_the_table_in_use_and_its_later_rows) {
    CodeTable table;
    table.Add(0x100, 0x1ff, Kind::kFailed);
    table.Add(0x101, 0x101, Kind::kPinLocked);
    CodeTable::Use(table);
    EXPECT_EQ(KindOf(0x100), Kind::kFailed);
    EXPECT_EQ(KindOf(0x101), Kind::kPinLocked);
}

TEST_F(Kinds, are_found_by_their_names) {
    std::set<std::string> names;
    for (const KindFacts& facts : kAllKinds) {
        EXPECT_EQ(KindNamed(facts.name), facts.kind);
        EXPECT_EQ(&FactsOf(facts.kind), &facts);
        names.insert(facts.name);
    }
    EXPECT_EQ(names.size(), std::size(kAllKinds));
    EXPECT_EQ(KindNamed("pin wrong"), std::nullopt);
}

TEST_F(Kinds, of_refusals_and_of_what_cannot_be_true_are_told_by_the_face) {
    EXPECT_EQ(library.Try().SetLabel("SN", std::string("\0", 1)).failure().kind(),
              Kind::kBadArgument);
    stand_in().raise = true;
    EXPECT_EQ(library.Try().VerifyPIN("SN").failure().kind(), Kind::kFailed);
    EXPECT_EQ(Library::TryLoad("/nowhere.so").failure().kind(), Kind::kNotLoaded);
}

TEST(Code, is_written_as_it_is_known) {
    const std::pair<int, const char*> kTexts[] = {{0, "0"},          {-101, "-101"},
                                                  {-999, "-999"},    {-1000, "0xFFFFFC18"},
                                                  {1, "0x00000001"}, {0x5B21, "0x00005B21"}};
    for (const auto& [code, text] : kTexts) EXPECT_EQ(CodeText(code), text);
}

TEST_F(Kinds, are_told_by_exceptions_too) {
    stand_in().code = softkey::kPinWrong;
    try {
        library.VerifyPIN("SN");
        FAIL() << "no exception";
    } catch (const Error& error) {
        EXPECT_EQ(error.kind(), Kind::kPinWrong);
    }
}

TEST_F(Kinds, sentences_of_the_face_are_given_in_Chinese_too) {
    Speak(Language::kChinese);
    EXPECT_EQ(OwnMessage(KESTA_NOT_BOUND), "令牌库缺失或不完整");
    EXPECT_EQ(FactsOf(Kind::kPinWrong).Words(), "PIN 码错误");
    stand_in().probed = 8201;
    EXPECT_THAT(library.Try().Sign("SN", 1, 2, "data", "w").failure().message,
                HasSubstr("8201 字节，最多允许 8200"));
}

TEST_F(Kinds, sentences_have_both_languages_and_the_same_places_for_words) {
    const auto places = [](std::string text) {
        std::multiset<char> found;
        for (std::size_t at = 0; (at = text.find('{', at)) != std::string::npos; ++at) {
            found.insert(text.at(at + 1));
        }
        return found;
    };
#define KESTA_UKEY_BOTH(name, english, chinese) \
    EXPECT_EQ(places(english), places(chinese)) << #name;
    KESTA_UKEY_SENTENCES(KESTA_UKEY_BOTH)
#undef KESTA_UKEY_BOTH
}

TEST_F(Kinds, words_that_look_like_places_are_left_alone) {
    EXPECT_EQ(Say(Sentence::kNoFunction, {"{1}.so", "{0}"}), "{1}.so has no function {0}");
    EXPECT_EQ(Say(Sentence::kNoFunction, {"a.so"}), "a.so has no function ");
}

}  // namespace
}  // namespace kesta

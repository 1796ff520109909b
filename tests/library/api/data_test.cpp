// Labels, data objects and locale: SetLabel, SetData, GetData, SetCharset, SetLanguage.
#include "api_test.h"
#include "every_export.h"

namespace {

constexpr const char* name = "name567890";  // of the shortest length allowed

}  // namespace

// ---- SetData ------------------------------------------------------------------------------------

TEST(SetData, hands_its_arguments_on_as_the_same_pointers) {
    const char* const value = "value";
    EXPECT_EQ(SetData(name, 0xFFFFFFFF, value), 0);
    EXPECT_EQ(Trace(), (Lines{"SetData(\"name567890\", 4294967295, \"value\")"}));
    EXPECT_EQ(TheRecorder().Only("SetData").At(0).address, name);
    EXPECT_EQ(TheRecorder().Only("SetData").At(2).address, value);
}

TEST(SetData, takes_names_of_10_to_16_characters) {
    for (std::size_t length = 0; length <= 40; ++length) {
        const bool allowed = length >= 10 && length <= 16;
        TheRecorder().Forget();
        EXPECT_EQ(SetData(std::string(length, 'n').c_str(), 1, "v"), allowed ? 0 : -401) << length;
        EXPECT_EQ(G_LastError, allowed ? 0 : -401) << length;
        EXPECT_EQ(Trace().size(), allowed ? 1U : 0U) << length;
    }
}

TEST(SetData, takes_values_of_up_to_300_characters) {
    const std::string longest(300, 'v');
    EXPECT_EQ(SetData(name, 1, ""), 0);
    EXPECT_EQ(SetData(name, 1, longest.c_str()), 0);
    EXPECT_EQ(TheRecorder().Calls("SetData").back().Bytes(2), longest);
    EXPECT_EQ(SetData(name, 1, (longest + "v").c_str()), -401);
    EXPECT_EQ(G_LastError, -401);
    EXPECT_EQ(Trace().size(), 2U);
}

TEST(SetData, counts_bytes_and_not_characters) {
    EXPECT_EQ(SetData("\xE4\xB8\xAD\xE4\xB8\xAD\xE4\xB8\xAD", 1, "v"), -401);
    EXPECT_EQ(SetData("\xE4\xB8\xAD\xE4\xB8\xAD\xE4\xB8\xADx", 1, "v"), 0);
}

TEST(SetData, without_name_or_value_is_minus_401) {
    EXPECT_EQ(SetData(nullptr, 1, "v"), -401);
    EXPECT_EQ(G_LastError, -401);
    G_LastError = 0;
    EXPECT_EQ(SetData(name, 1, nullptr), -401);
    EXPECT_EQ(G_LastError, -401);
    EXPECT_EQ(SetData(nullptr, 1, nullptr), -401);
    EXPECT_EQ(Trace(), Lines{});
    EXPECT_TRUE(g_initFlag);
}

// ---- GetData ------------------------------------------------------------------------------------

TEST(GetData, hands_name_and_parameter_on_with_a_zeroed_buffer) {
    int length = 0;
    EXPECT_EQ(GetData(name, 0x80000001, nullptr, &length), 0);
    EXPECT_EQ(Trace(), (Lines{"GetData(\"name567890\", 2147483649, zero[260])"}));
    EXPECT_EQ(TheRecorder().Only("GetData").At(0).address, name);
}

TEST(GetData, takes_names_of_10_to_16_characters) {
    for (std::size_t length = 0; length <= 40; ++length) {
        const bool allowed = length >= 10 && length <= 16;
        TheRecorder().Forget();
        int size = 77;
        EXPECT_EQ(GetData(std::string(length, 'n').c_str(), 1, nullptr, &size), allowed ? 0 : -401);
        EXPECT_EQ(G_LastError, allowed ? 0 : -401) << length;
        EXPECT_EQ(size, allowed ? 1 : 77) << length;
        EXPECT_EQ(Trace().size(), allowed ? 1U : 0U) << length;
    }
}

TEST(GetData, without_name_or_length_pointer_is_minus_401) {
    CanaryBuffer buffer(8);
    int length = 8;
    EXPECT_EQ(GetData(nullptr, 1, buffer.data(), &length), -401);
    EXPECT_EQ(G_LastError, -401);
    G_LastError = 0;
    EXPECT_EQ(GetData(name, 1, buffer.data(), nullptr), -401);
    EXPECT_EQ(G_LastError, -401);
    EXPECT_EQ(length, 8);
    EXPECT_TRUE(buffer.Untouched());
    EXPECT_EQ(Trace(), Lines{});
    EXPECT_TRUE(g_initFlag);
}

// ---- SetLabel, SetCharset, SetLanguage ----------------------------------------------------------

namespace {

struct TwoTexts {
    std::string name;
    int (*call)(const char*, const char*);
    const char* entry;
    bool reversed;
};

const TwoTexts twoTexts[] = {{"SetLabel", SetLabel, "SetLabel", false},
                             {"SetCharset", SetCharset, "UOS_SetCharset", true},
                             {"SetLanguage", SetLanguage, "UOS_SetLanguage", true}};

class ExportOfTwoTexts : public testing::TestWithParam<TwoTexts> {};
INSTANTIATE_TEST_SUITE_P(Data, ExportOfTwoTexts, testing::ValuesIn(twoTexts), ExportName());

}  // namespace

TEST_P(ExportOfTwoTexts, hands_both_on_in_its_order) {
    const char* const first = "first";
    const char* const second = "second";
    EXPECT_EQ(GetParam().call(first, second), 0);
    const recording::Call call = TheRecorder().Only(GetParam().entry);
    EXPECT_EQ(call.Describe(),
              std::string(GetParam().entry) +
                  (GetParam().reversed ? "(\"second\", \"first\")" : "(\"first\", \"second\")"));
    EXPECT_EQ(call.At(0).address, GetParam().reversed ? second : first);
    EXPECT_EQ(call.At(1).address, GetParam().reversed ? first : second);
    EXPECT_EQ(Trace().size(), 1U);
}

TEST_P(ExportOfTwoTexts, is_minus_401_without_either) {
    for (const auto& [first, second] :
         {std::pair<const char*, const char*>{nullptr, "b"}, {"a", nullptr}, {nullptr, nullptr}}) {
        G_LastError = unrelated_code;
        EXPECT_EQ(GetParam().call(first, second), -401);
        EXPECT_EQ(G_LastError, -401);
    }
    EXPECT_EQ(Trace(), Lines{});
    EXPECT_TRUE(g_initFlag);
}

TEST_P(ExportOfTwoTexts, takes_empty_texts) {
    EXPECT_EQ(GetParam().call("", ""), 0);
    EXPECT_EQ(Trace(), (Lines{std::string(GetParam().entry) + "(\"\", \"\")"}));
}

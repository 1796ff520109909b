// Every function that writes to a buffer, with every kind of untrue length: what comes out is the
// text, a part of it, or a failure that says so, and never what stands beside the buffer.
#include <gtest/gtest.h>

#include "outputs.h"
#include "public_header.h"

namespace kesta {
namespace {

constexpr char kText[] = "text";
constexpr std::uint32_t kLies[] = {0,    1,     3,          5,          17,        65,
                                   5000, 70000, 0x7fffffff, 0x80000000, 0xffffffff};

std::vector<Operation> All() {
    std::vector<Operation> all = kTexts;
    all.insert(all.end(), kRecords.begin(), kRecords.end());
    all.insert(all.end(), kOthers.begin(), kOthers.end());
    return all;
}

TEST(Lies, are_told_of_each_function_with_a_length_behind_a_pointer) {
    EXPECT_EQ(NamesOf(All()), DeclaredFunctions(R"(int\* p(n|ul)\w*Len)"));
}

class Lies : public testing::TestWithParam<Operation> {
protected:
    static void Begin() {
        stand_in().Reset();
        stand_in().text = kText;
        stand_in().message = kText;
    }

    // A record is followed by the zeros of the buffer that it lay in.
    static void ExpectHarmless(const std::string& what) {
        const Output output = GetParam().run(Library::Linked().Try());
        if (output.code == KESTA_OK) {
            const std::string text = output.text.substr(0, sizeof kText - 1);
            EXPECT_EQ(std::string(kText).compare(0, text.size(), text), 0) << what << text;
            EXPECT_EQ(output.text.find_first_not_of('\0', text.size()), std::string::npos) << what;
        } else {
            EXPECT_TRUE(output.code == KESTA_BUFFER_TOO_SMALL || output.code == KESTA_UNSUPPORTED)
                << what << output.code;
            EXPECT_NE(output.text, "") << what;
        }
    }
};

TEST_P(Lies, with_the_answer_are_survived) {
    for (const std::uint32_t lie : kLies) {
        Begin();
        stand_in().reported = lie;
        ExpectHarmless("reported " + std::to_string(lie) + ": ");
    }
}

TEST_P(Lies, with_the_probe_are_survived) {
    for (const std::uint32_t lie : kLies) {
        Begin();
        stand_in().probed = lie;
        ExpectHarmless("probed " + std::to_string(lie) + ": ");
    }
}

TEST_P(Lies, that_grow_after_the_probe_are_survived) {
    for (const std::uint32_t lie : kLies) {
        Begin();
        stand_in().probed = 3;
        stand_in().reported = lie;
        ExpectHarmless("probed 3, reported " + std::to_string(lie) + ": ");
        stand_in().code = KESTA_BUFFER_TOO_SMALL;
        ExpectHarmless("refused, reported " + std::to_string(lie) + ": ");
    }
}

INSTANTIATE_TEST_SUITE_P(Each, Lies, testing::ValuesIn(All()),
                         [](const auto& test) { return std::string(test.param.name); });

class Bounded : public Lies {};

// The bound is known from the input: no lie makes the face ask for gigabytes.
TEST_P(Bounded, probe_beyond_what_the_input_can_give_is_a_failure) {
    for (const std::uint32_t lie : {0x04000001U, 0x7fffffffU, 0xffffffffU}) {
        Begin();
        stand_in().probed = lie;
        EXPECT_EQ(GetParam().run(Library::Linked().Try()).code, KESTA_BUFFER_TOO_SMALL) << lie;
    }
}

std::vector<Operation> Probed() {
    std::vector<Operation> probed;
    for (const Operation& operation : All()) {
        for (const char* const name : {"Sign", "SignHash", "Batch_Sign", "AsymDec",
                                       "GenerateCertRequest", "Batch_InitAndGenerateCertRequest"}) {
            if (operation.name == std::string(name)) probed.push_back(operation);
        }
    }
    return probed;
}

INSTANTIATE_TEST_SUITE_P(Each, Bounded, testing::ValuesIn(Probed()),
                         [](const auto& test) { return std::string(test.param.name); });

}  // namespace
}  // namespace kesta

// The screen, the button, and a key that is pulled out in the middle of things.
#include <atomic>
#include <chrono>
#include <ctime>
#include <functional>
#include <future>
#include <thread>

#include "softkey/misbehaviour/misbehaviour.h"
#include "softkey/store/keys.h"
#include "softkey/store/objects.h"
#include "softkey/store/pairs.h"
#include "softkey/store/pins.h"
#include "softkey/store/questions.h"
#include "softkey/store/screen.h"
#include "token_fixture.h"

using namespace softkey;

namespace {

class ButtonTest : public TokenTest {
protected:
    ButtonTest() {
        CreateKey();
        EXPECT_EQ(Request(1, 2, 3).code, kOk);
    }
    // Waits until the key asks its question.
    void AwaitQuestion(Store& store) {
        for (int i = 0; i < 500 && QuestionTable(store).Waiting(kSerial).empty(); ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        ASSERT_EQ(QuestionTable(store).Waiting(kSerial).size(), 1U);
    }
    // Signs on another thread while act runs; the signature's result.
    template <typename Act>
    int SignWhile(Act act) {
        auto store = OpenStore();
        QuestionTable(*store).Decide(kSerial, Button::kAsk);
        std::atomic<int> result{-1};
        std::thread signer([&] { result = CriticalSign("text").code; });
        AwaitQuestion(*store);
        EXPECT_EQ(result, -1) << "it does not wait";
        act(*store);
        signer.join();
        EXPECT_TRUE(QuestionTable(*store).Waiting(kSerial).empty());
        return result;
    }
};

TEST_F(ButtonTest, the_warning_is_shown_with_the_signature_it_was_set_for) {
    ASSERT_EQ(token.SetWarningMsg(kSerial, "pay 100?"), kOk);
    EXPECT_EQ(Screen(*OpenStore()).Text(kSerial), "");
    ASSERT_EQ(CriticalSign("text").code, kOk);
    EXPECT_EQ(Screen(*OpenStore()).Text(kSerial), "pay 100?");
    ASSERT_EQ(CriticalSign("text").code, kOk);
    EXPECT_EQ(Screen(*OpenStore()).Text(kSerial), "");
}

// The warning's look at the state serves the signature that follows at once, but not its end.
TEST_F(ButtonTest, a_key_that_is_pulled_out_behind_its_warning_signs_nothing) {
    for (const auto& wait : {std::chrono::microseconds(0), std::chrono::microseconds(1000)}) {
        ASSERT_EQ(CriticalSign("text").code, kOk);
        ASSERT_EQ(token.SetWarningMsg(kSerial, "pay 100?"), kOk);
        KeyTable(*OpenStore()).SetInserted(kSerial, false);
        std::this_thread::sleep_for(wait);
        const int code = CriticalSign("text").code;
        EXPECT_TRUE(code == kKeyAbsent || (wait.count() == 0 && code == kKeyRemoved)) << code;
        KeyTable(*OpenStore()).SetInserted(kSerial, true);
    }
}

TEST_F(ButtonTest, a_warning_of_1024_bytes_fits_the_screen_and_a_longer_one_does_not) {
    EXPECT_EQ(token.SetWarningMsg(kSerial, std::string(1025, 'w').c_str()), kTooLong);
    EXPECT_EQ(token.SetWarningMsg(kSerial, nullptr), kBadArgument);
    EXPECT_EQ(token.SetWarningMsg("KS-UNKNOWN", "w"), kKeyAbsent);
    ASSERT_EQ(token.SetWarningMsg(kSerial, std::string(1024, 'w').c_str()), kOk);
    ASSERT_EQ(CriticalSign("text").code, kOk);
    EXPECT_EQ(Screen(*OpenStore()).Text(kSerial), std::string(1024, 'w'));
}

TEST_F(ButtonTest, a_refusing_button_refuses_critical_signatures_alone) {
    QuestionTable(*OpenStore()).Decide(kSerial, Button::kRefuse);
    EXPECT_EQ(CriticalSign("text").code, kButtonRefused);
    EXPECT_EQ(SignHash(std::string(64, 'a')).code, kOk);
}

TEST_F(ButtonTest, a_question_waits_for_a_press) {
    EXPECT_EQ(SignWhile([](Store& store) {
                  EXPECT_EQ(QuestionTable(store).Decide(kSerial, Button::kPress), 1);
              }),
              kOk);
    EXPECT_EQ(KeyTable(*OpenStore()).Find(kSerial)->button, Button::kAsk)
        << "it answered one question";
}

TEST_F(ButtonTest, a_question_may_be_refused) {
    EXPECT_EQ(
        SignWhile([](Store& store) { QuestionTable(store).Decide(kSerial, Button::kRefuse); }),
        kButtonRefused);
}

TEST_F(ButtonTest, a_question_ends_when_the_key_is_pulled_out) {
    EXPECT_EQ(SignWhile([](Store& store) { KeyTable(store).SetInserted(kSerial, false); }),
              kKeyRemoved);
}

TEST_F(ButtonTest, a_question_ends_when_the_key_was_pulled_out_for_a_moment) {
    EXPECT_EQ(SignWhile([](Store& store) {
                  KeyTable(store).SetInserted(kSerial, false);
                  KeyTable(store).SetInserted(kSerial, true);
              }),
              kKeyRemoved);
}

TEST_F(ButtonTest, a_question_ends_when_nobody_answers) {
    setenv("KESTA_SOFTKEY_BUTTON_MS", "120", 1);
    QuestionTable(*OpenStore()).Decide(kSerial, Button::kAsk);
    EXPECT_EQ(CriticalSign("text").code, kButtonTimeout);
    EXPECT_TRUE(QuestionTable(*OpenStore()).Waiting(kSerial).empty());
}

TEST_F(ButtonTest, the_longest_patience_that_can_be_written_is_none_that_is_over_at_once) {
    setenv("KESTA_SOFTKEY_BUTTON_MS", "9223372036854775807", 1);
    EXPECT_EQ(SignWhile([](Store& store) { QuestionTable(store).Decide(kSerial, Button::kPress); }),
              kOk);
}

TEST_F(ButtonTest, a_question_waits_as_long_as_the_environment_says) {
    constexpr std::int64_t kDay = 24 * 3600 * 1000;
    const std::pair<const char*, std::int64_t> patiences[] = {
        {nullptr, 30000}, {"", 30000},        {"none", 30000},
        {"0", 30000},     {"-90000", 30000},  {"20000000", 20000000},
        {"90000", 90000}, {"86400000", kDay}, {"99999999999", kDay}};
    for (const auto& [text, patience] : patiences) {
        unsetenv("KESTA_SOFTKEY_BUTTON_MS");
        if (text != nullptr) setenv("KESTA_SOFTKEY_BUTTON_MS", text, 1);
        const auto now = [] {
            return std::chrono::duration_cast<std::chrono::milliseconds>(
                       std::chrono::system_clock::now().time_since_epoch())
                .count();
        };
        const std::int64_t before = now();
        EXPECT_EQ(SignWhile([&, &patience = patience](Store& store) {
                      const Question question = QuestionTable(store).Waiting(kSerial).at(0);
                      EXPECT_GE(question.deadline, before + patience);
                      EXPECT_LE(question.deadline, now() + patience);
                      QuestionTable(store).Decide(kSerial, Button::kPress);
                  }),
                  kOk)
            << (text != nullptr ? text : "nothing");
    }
    setenv("KESTA_SOFTKEY_BUTTON_MS", "1", 1);
    QuestionTable(*OpenStore()).Decide(kSerial, Button::kAsk);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(CriticalSign("text").code, kButtonTimeout);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(30));
}

TEST_F(ButtonTest, waiting_for_an_answer_costs_no_computing) {
    setenv("KESTA_SOFTKEY_BUTTON_MS", "300", 1);
    QuestionTable(*OpenStore()).Decide(kSerial, Button::kAsk);
    const auto computed = [] {
        struct timespec time {};
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
        return time.tv_sec * 1000 + time.tv_nsec / 1000000;
    };
    const auto before = computed();
    EXPECT_EQ(CriticalSign("text").code, kButtonTimeout);
    EXPECT_LT(computed() - before, 150);
}

TEST_F(ButtonTest, other_calls_go_on_while_a_question_waits) {
    EXPECT_EQ(SignWhile([this](Store& store) {
                  EXPECT_EQ(token.SetData("0123456789", 0, "meanwhile"), kOk);
                  EXPECT_EQ(SignHash(std::string(64, 'a')).code, kOk);
                  QuestionTable(store).Decide(kSerial, Button::kPress);
              }),
              kOk);
}

// Nothing looks at the key between the texts. Where it is quicker than the hand it gets more to do.
TEST_F(ButtonTest, a_batch_counts_only_if_the_key_is_there_at_its_end) {
    ASSERT_EQ(Request(1, 1, 2).code, kOk);
    int code = kOk;
    std::string serial = kSerial, list = "x";
    for (int size = 1; size < 4096 && code != kKeyRemoved; size *= 2) {
        list += "||" + list;
        std::string signatures(list.size() * 346, '\0');
        auto length = static_cast<std::uint32_t>(signatures.size());
        ASSERT_EQ(token.VerifyPIN(kSerial), kOk);
        std::future<int> batch = std::async(std::launch::async, [&] {
            return token.Batch_Sign(0, serial.data(), 1, 2, nullptr, nullptr, nullptr, 0, 0,
                                    list.c_str(), 0, signatures.data(), &length);
        });
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        KeyTable(*OpenStore()).SetInserted(kSerial, false);
        code = batch.get();
        KeyTable(*OpenStore()).SetInserted(kSerial, true);
    }
    EXPECT_EQ(code, kKeyRemoved);
}

// One test for each entry point that works on a key: pulled out half way, it ends with the
// removal's code and has changed nothing.
struct Operation {
    const char* name;
    std::function<int(const TokenLibrary&)> run;
};

class RemovalTest : public TokenTest, public testing::WithParamInterface<Operation> {};

std::string state(Store& store) {
    std::string text = KeyTable(store).Find(kSerial)->label;
    for (const PairRecord& pair : PairTable(store).Of(kSerial)) {
        text += "/" + std::to_string(pair.id) + ":" + std::to_string(pair.certificate.size());
    }
    for (const DataObject& object : ObjectTable(store).Of(kSerial)) text += "/" + object.name;
    const PinSeal seal = PinTable(store).Seal(kSerial);
    text.append(seal.sealed.begin(), seal.sealed.end());
    return text;
}

TEST_P(RemovalTest, in_mid_operation_ends_it_and_changes_nothing) {
    CreateKey();
    Enrol(1, 2, 3);
    SetNewPin("abcdef");
    const std::string before = state(*OpenStore());
    SetMisbehaviour(Home(), std::string(R"({"rules": [{"entry": ")") + GetParam().name +
                                R"(", "remove": "during"}]})");
    EXPECT_EQ(GetParam().run(token), kKeyRemoved);
    EXPECT_EQ(state(*OpenStore()), before);
    EXPECT_FALSE(KeyTable(*OpenStore()).Find(kSerial)->inserted);
}

int MakeRequest(const TokenLibrary& token) {
    std::string serial = kSerial;
    char* text = nullptr;
    const int code = token.GMCreatePKCS10(serial.data(), 1, 2, 3, &text, nullptr, 0);
    EXPECT_EQ(text, nullptr);
    return code;
}

int SignText(const TokenLibrary& token) {
    char buffer[512] = "untouched";
    std::uint32_t length = sizeof buffer;
    const int code = token.GMUsbKeyCriticalSign(kSerial, 0, 0, "text", buffer, &length);
    EXPECT_STREQ(buffer, "untouched");
    return code;
}

int SignDigest(const TokenLibrary& token) {
    std::string serial = kSerial, digest(64, 'a');
    char buffer[512] = "untouched";
    std::uint32_t length = sizeof buffer;
    const int code =
        token.GMUsbKeyCommonSign(serial.data(), 0, 0, digest.data(), 0, buffer, &length);
    EXPECT_STREQ(buffer, "untouched");
    return code;
}

int SignBatch(const TokenLibrary& token) {
    std::string serial = kSerial;
    char buffer[512] = "untouched";
    std::uint32_t length = sizeof buffer;
    const int code = token.Batch_Sign(0, serial.data(), 0, 0, nullptr, nullptr, nullptr, 0, 0, "x",
                                      1, buffer, &length);
    EXPECT_STREQ(buffer, "untouched");
    return code;
}

int Erase(const TokenLibrary& token) {
    std::string pin = kPin;
    return token.CustInitCard(kSerial, 1, pin.data(), 0);
}

// It is out before the PIN is looked at.
int VerifyWrongPin(const TokenLibrary& token) {
    std::string pin = "000000";
    return token.VerifyAndCachePin(kSerial, pin.data());
}

INSTANTIATE_TEST_SUITE_P(
    Entry, RemovalTest,
    testing::Values(
        Operation{"GMCreatePKCS10", MakeRequest}, Operation{"GMUsbKeyCriticalSign", SignText},
        Operation{"GMUsbKeyCommonSign", SignDigest}, Operation{"Batch_Sign", SignBatch},
        Operation{"CustInitCard", Erase}, Operation{"VerifyAndCachePin", VerifyWrongPin},
        Operation{"SetLabel",
                  [](const TokenLibrary& library) { return library.SetLabel(kSerial, "new"); }},
        Operation{
            "SetData",
            [](const TokenLibrary& library) { return library.SetData("0123456789", 0, "v"); }},
        Operation{"ChangePin",
                  [](const TokenLibrary& library) { return library.ChangePin(kSerial); }},
        Operation{"CustInitCard",
                  [](const TokenLibrary& library) {
                      return library.CustInitCard(kSerial, 0, nullptr, 0);
                  }},
        Operation{
            "DelCertAndTempKey",
            [](const TokenLibrary& library) { return library.DelCertAndTempKey(kSerial, 1, 2); }},
        Operation{"VerifyPIN",
                  [](const TokenLibrary& library) { return library.VerifyPIN(kSerial); }}),
    [](const auto& entry) {
        return std::string(entry.param.name) + "_" + std::to_string(entry.index);
    });

}  // namespace

// What each effect of a plan does to the token library's entry points.
#include "planned_calls.h"

#include <algorithm>
#include <filesystem>
#include <future>
#include <stdexcept>

#include "softkey/store/objects.h"

using namespace softkey;

namespace {

using namespace std::chrono_literals;

TEST_F(PlannedCalls, a_delay_makes_every_kind_of_call_as_slow_as_it_says) {
    Plan(R"({"entry": "*", "delay_ms": 60}, {"entry": "UOS_SetCharset", "delay_ms": 60})");
    const auto slow = [](const auto& act) {
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(act(), kOk);
        return std::chrono::steady_clock::now() - start >= 60ms;
    };
    EXPECT_TRUE(slow([&] { return Label(); }));
    EXPECT_TRUE(slow([&] { return Store("value"); }));
    EXPECT_TRUE(slow([&] { return token.VerifyPIN(kSerial); }));
    EXPECT_TRUE(slow([&] { return token.SetWarningMsg(kSerial, "sign?"); }));
    EXPECT_TRUE(slow([&] { return token.GM_RemoveUserPin(); }));
    EXPECT_TRUE(slow([&] { return token.UOS_SetCharset("", "UTF-8"); }));
}

TEST_F(PlannedCalls, a_key_pulled_out_for_a_moment_ends_a_slow_call_at_once_and_changes_nothing) {
    ASSERT_EQ(Request(1, 2, 3).code, kOk);
    const std::vector<std::pair<std::string, std::function<int()>>> calls = {
        {"GetLabel", [&] { return Label(); }},
        {"SetData", [&] { return Store("value"); }},
        {"VerifyPIN", [&] { return token.VerifyPIN(kSerial); }},
        {"GMUsbKeyCommonSign", [&] { return SignHash(std::string(64, 'a')).code; }},
        {"GMCreatePKCS10", [&] { return Request(1, 2, 3).code; }},
        {"SetWarningMsg", [&] { return token.SetWarningMsg(kSerial, "sign?"); }}};
    for (const auto& [entry, call] : calls) {
        ClearMisbehaviour(Home());
        ASSERT_EQ(token.VerifyPIN(kSerial), kOk);
        Plan(R"({"entry": ")" + entry + R"(", "delay_ms": 60000})");
        EXPECT_EQ(WithAJolt(entry, call), kKeyRemoved) << entry;
        EXPECT_TRUE(entry != "VerifyPIN" || TriesLeft() == kMaxTries);
    }
    EXPECT_FALSE(ObjectTable(*OpenStore()).Get(kSerial, "0123456789", 0));
    EXPECT_EQ(Pairs(), 1U);
}

TEST_F(PlannedCalls, a_slow_call_that_answers_a_code_ends_with_the_removal_too) {
    Plan(R"({"entry": "GetLabel", "delay_ms": 60000, "code": 5})");
    EXPECT_EQ(WithAJolt("GetLabel", [&] { return Label(); }), kKeyRemoved);
}

TEST_F(PlannedCalls, a_contact_lost_for_a_moment_ends_the_call_and_the_key_is_there_again) {
    ASSERT_EQ(token.VerifyPIN(kSerial), kOk);
    Plan(R"({"entry": "SetData", "call": 1, "remove": "moment"})");
    EXPECT_EQ(Store("value"), kKeyRemoved);
    EXPECT_EQ(Store("value"), kOk);
    std::array<std::uint8_t, 8> info{};
    std::uint32_t length = info.size();
    ASSERT_EQ(token.GetPinInfo(kSerial, info.data(), &length), kOk);
    EXPECT_EQ(info[3], 0) << "the PIN is verified after all";
}

TEST_F(PlannedCalls, a_key_pulled_out_while_it_is_asked_hands_nothing_out) {
    std::string rules;
    for (const char* entry : {"GetLabel", "GetMediaID", "GetPinInfo", "CheckDeviceEx"}) {
        rules += std::string(rules.empty() ? "" : ", ") + R"({"entry": ")" + entry +
                 R"(", "remove": "moment"})";
    }
    Plan(rules);
    std::array<char, 512> label{'?', '\0'};
    EXPECT_EQ(Label(label), kKeyRemoved);
    EXPECT_STREQ(label.data(), "?");
    std::array<char, 17> mediaId{'?', '\0'};
    EXPECT_EQ(token.GetMediaID(kSerial, mediaId.data()), kKeyRemoved);
    EXPECT_STREQ(mediaId.data(), "?");
    std::array<std::uint8_t, 8> info{'?'};
    std::uint32_t length = info.size();
    EXPECT_EQ(token.GetPinInfo(kSerial, info.data(), &length), kKeyRemoved);
    EXPECT_EQ(info[0], '?');
    std::array<char, 1024> serial{'?', '\0'};
    EXPECT_EQ(token.CheckDeviceEx(nullptr, nullptr, 1, serial.data()), kKeyRemoved);
    EXPECT_STREQ(serial.data(), "?");
}

TEST_F(PlannedCalls, a_key_comes_back_in_the_slot_that_the_plan_names_unless_another_is_in_it) {
    CreateKey("KS2", "MEDIA2");
    Plan(R"({"entry": "GetLabel", "call": 1, "remove": "moment", "slot": 9},
            {"entry": "GetLabel", "call": 2, "remove": "moment", "slot": 2})");
    EXPECT_EQ(Label(), kKeyRemoved);
    EXPECT_EQ(KeyTable(*OpenStore()).Find(kSerial)->slot, 9U);
    EXPECT_EQ(Label(), kKeyRemoved);
    EXPECT_EQ(KeyTable(*OpenStore()).Find(kSerial)->slot, 9U);
    EXPECT_EQ(Label(), kOk);
}

TEST_F(PlannedCalls, the_slot_of_a_key_that_is_out_is_free_and_that_of_a_foreign_device_is_not) {
    CreateKey("KS2", "MEDIA2");
    KeyTable(*OpenStore()).SetInserted("KS2", false);
    SetMisbehaviour(Home(), R"({"foreign": [9], "rules": [
        {"entry": "GetLabel", "call": 1, "remove": "moment", "slot": 2},
        {"entry": "GetLabel", "call": 2, "remove": "moment", "slot": 9}]})");
    EXPECT_EQ(Label(), kKeyRemoved);
    EXPECT_EQ(KeyTable(*OpenStore()).Find(kSerial)->slot, 2U);
    EXPECT_EQ(KeyTable(*OpenStore()).Find("KS2")->slot, 3U) << "the lowest slot that was free";
    EXPECT_EQ(Label(), kKeyRemoved);
    EXPECT_EQ(KeyTable(*OpenStore()).Find(kSerial)->slot, 2U);
    EXPECT_EQ(Label(), kOk);
}

TEST_F(PlannedCalls, a_call_whose_answer_is_lost_has_done_its_work) {
    Plan(R"({"entry": "SetData", "code_after": "StateBusy"},
            {"entry": "GetLabel", "code_after": 7},
            {"entry": "GMCreatePKCS10", "code_after": 8},
            {"entry": "GetData", "code_after": 9})");
    EXPECT_EQ(Store("value"), kStateBusy);
    EXPECT_EQ(ObjectTable(*OpenStore()).Get(kSerial, "0123456789", 0), "value");
    std::array<char, 512> label{'?', '\0'};
    EXPECT_EQ(Label(label), 7);
    EXPECT_STREQ(label.data(), "?");
    const Result request = Request(1, 2, 3);
    EXPECT_EQ(request.code, 8);
    EXPECT_EQ(request.text, "");
    EXPECT_EQ(Pairs(), 1U);
    std::array<char, 260> value{};
    EXPECT_EQ(token.GetData("no such one", 0, value.data()), kDataNotFound) << "no work was done";
}

TEST_F(PlannedCalls, nothing_is_handed_out_where_the_plan_says_so_and_the_code_is_that_of_success) {
    Plan(R"({"entry": "GMCreatePKCS10", "output": "none"}, {"entry": "GetLabel", "output": "none"},
            {"entry": "X_ErrorConvert_UOS", "output": "none"},
            {"entry": "CheckDeviceEx", "output": "none"})");
    const Result request = Request(1, 2, 3);
    EXPECT_EQ(request.code, kOk);
    EXPECT_EQ(request.text, "");
    EXPECT_EQ(Pairs(), 1U);
    std::array<char, 512> label{'?', '\0'};
    EXPECT_EQ(Label(label), kOk);
    EXPECT_STREQ(label.data(), "?");
    EXPECT_EQ(token.X_ErrorConvert_UOS(0), nullptr);
    std::array<char, 1024> serial{};
    _S_DEV_CONFIG record{};
    EXPECT_EQ(token.CheckDeviceEx(nullptr, &record, 1, serial.data()), kOk);
    EXPECT_STREQ(serial.data(), "");
    EXPECT_EQ(record.szMediaId[0], '\0');
}

TEST_F(PlannedCalls, output_may_be_garbage_of_the_true_length) {
    ASSERT_EQ(Request(1, 2, 3).code, kOk);
    Plan(R"({"entry": "GetLabel", "output": "garbage"},
            {"entry": "GMUsbKeyCommonSign", "output": "garbage"},
            {"entry": "X_ErrorConvert_UOS", "output": "garbage"})");
    const auto isNoise = [](const std::string& text) {
        return std::all_of(text.begin(), text.end(),
                           [](char byte) { return static_cast<unsigned char>(byte) >= 0x80; });
    };
    std::array<char, 512> label{};
    EXPECT_EQ(Label(label), kOk);
    EXPECT_EQ(std::string(label.data()).size(), std::string(kSerial).size());
    EXPECT_TRUE(isNoise(label.data()));
    const Result signature = SignHash(std::string(64, 'a'));
    EXPECT_EQ(signature.code, kOk);
    EXPECT_GE(signature.text.size(), 92U);
    EXPECT_TRUE(isNoise(signature.text));
    EXPECT_TRUE(isNoise(token.X_ErrorConvert_UOS(0)));
    EXPECT_EQ(token.X_ErrorConvert_UOS(0), token.X_ErrorConvert_UOS(0)) << "it does not stay";
}

TEST_F(PlannedCalls, output_may_be_cut_to_its_first_half) {
    Plan(R"({"entry": "GetLabel", "output": "cut"}, {"entry": "GetPinInfo", "output": "cut"},
            {"entry": "GMCreatePKCS10", "call": 1, "output": "cut"})");
    std::array<char, 512> label{};
    EXPECT_EQ(Label(label), kOk);
    EXPECT_STREQ(label.data(), "KS0000");
    std::array<std::uint8_t, 8> info{0, 0, 0, 0, 9};
    std::uint32_t length = info.size();
    EXPECT_EQ(token.GetPinInfo(kSerial, info.data(), &length), kOk);
    EXPECT_EQ(length, 4U);
    EXPECT_EQ(info[4], 9);
    const std::size_t cut = Request(1, 2, 3).text.size();
    const std::size_t whole = Request(1, 2, 3).text.size();
    EXPECT_NEAR(static_cast<double>(cut), static_cast<double>(whole) / 2, 3);
}

TEST_F(PlannedCalls, unterminated_output_fills_its_room_and_not_one_byte_more) {
    ASSERT_EQ(Request(1, 2, 3).code, kOk);
    Plan(R"({"entry": "GetLabel", "output": "unterminated"},
            {"entry": "GetMediaID", "output": "unterminated"},
            {"entry": "GMUsbKeyCommonSign", "output": "unterminated"})");
    std::array<char, 514> label{};
    std::string serial = kSerial;
    EXPECT_EQ(token.GetLabel(serial.data(), label.data()), kOk);
    EXPECT_EQ(std::string(label.data()), kSerial + std::string(512 - serial.size(), 'x'));
    std::array<char, 19> mediaId{};
    EXPECT_EQ(token.GetMediaID(kSerial, mediaId.data()), kOk);
    EXPECT_STREQ(mediaId.data(), "MEDIA1xxxxxxxxxxx");
    std::string hash(64, 'a');
    std::array<char, 202> signature{};
    std::uint32_t length = 200;
    EXPECT_EQ(
        token.GMUsbKeyCommonSign(serial.data(), 0, 0, hash.data(), 0, signature.data(), &length),
        kOk);
    EXPECT_EQ(std::string(signature.data()).size(), 200U);
    EXPECT_LE(length, 96U);
}

TEST_F(PlannedCalls, an_exception_leaves_any_entry_point_and_the_next_call_is_sound) {
    Plan(R"({"entry": "GetLabel", "call": 1, "throw": true},
            {"entry": "VerifyPIN", "call": 1, "throw": true},
            {"entry": "X_ErrorConvert_UOS", "call": 1, "throw": true})");
    EXPECT_THROW(Label(), std::runtime_error);
    EXPECT_THROW(token.VerifyPIN(kSerial), std::runtime_error);
    EXPECT_THROW(token.X_ErrorConvert_UOS(0), std::runtime_error);
    EXPECT_EQ(Label(), kOk);
    EXPECT_EQ(token.VerifyPIN(kSerial), kOk);
    EXPECT_EQ(TriesLeft(), kMaxTries);
    EXPECT_NE(token.X_ErrorConvert_UOS(0), nullptr);
}

TEST_F(PlannedCalls, a_crash_ends_the_process_half_way_through_and_leaves_the_state_sound) {
    Plan(R"({"entry": "SetData", "crash": "abort"}, {"entry": "GetLabel", "crash": "fault"})");
    EXPECT_EQ(SignalOf([&] { Store("value"); }), SIGABRT);
    EXPECT_EQ(SignalOf([&] { Label(); }), SIGSEGV);
    ClearMisbehaviour(Home());
    EXPECT_FALSE(ObjectTable(*OpenStore()).Get(kSerial, "0123456789", 0));
    EXPECT_EQ(Store("value"), kOk);
}

TEST_F(PlannedCalls, a_hang_ends_when_the_key_is_pulled_out) {
    Plan(R"({"entry": "SetData", "call": 1, "hang": true})");
    EXPECT_EQ(WithAJolt("SetData", [&] { return Store("value"); }), kKeyRemoved);
    EXPECT_EQ(Store("value"), kOk);
}

TEST_F(PlannedCalls, a_hang_ends_with_the_plan_and_keeps_nobody_from_forking) {
    Plan(R"({"entry": "UOS_SetCharset", "hang": true})");
    // Left behind when it does not end.
    const auto ended = std::make_shared<std::promise<int>>();
    std::future<int> end = ended->get_future();
    std::thread([ended, &library = token] {
        ended->set_value(library.UOS_SetCharset("", "UTF-8"));
    }).detach();
    while (Counted("UOS_SetCharset") == 0) std::this_thread::sleep_for(1ms);
    EXPECT_EQ(end.wait_for(100ms), std::future_status::timeout) << "it does not hang";
    EXPECT_EQ(SignalOf([] {}), 0);
    ClearMisbehaviour(Home());
    ASSERT_EQ(end.wait_for(60s), std::future_status::ready);
    EXPECT_EQ(end.get(), kOk);
}

TEST_F(PlannedCalls, the_first_process_may_keep_the_key_to_itself_until_it_ends) {
    Plan(R"({"entry": "*", "exclusive": true})");
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    int told[2];
    ASSERT_EQ(pipe(told), 0);
    const pid_t other = fork();
    if (other == 0) {
        const char answer = Label() == kOk ? 'y' : 'n';
        char done = 0;
        const bool good = write(told[1], &answer, 1) == 1 && read(ends[0], &done, 1) == 1;
        _exit(good ? 0 : 1);
    }
    char answer = 0;
    ASSERT_EQ(read(told[0], &answer, 1), 1);
    EXPECT_EQ(answer, 'y');
    EXPECT_EQ(Label(), kStateBusy);
    EXPECT_EQ(Label(), kStateBusy);
    EXPECT_EQ(token.UOS_SetCharset("", "UTF-8"), kOk) << "that needs no key";
    ASSERT_EQ(write(ends[1], "x", 1), 1);
    int status = 1;
    waitpid(other, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(Label(), kOk);
    for (const int end : {ends[0], ends[1], told[0], told[1]}) close(end);
}

TEST_F(PlannedCalls, each_entry_point_answers_the_code_that_is_planned_for_it) {
    std::string serial = kSerial, text = "text";
    std::array<char, 4096> buffer{};
    std::uint32_t length = buffer.size();
    char* made = nullptr;
    KestaStringObject object{nullptr};
    KestaRequestRecord record{1, 2, 3, 0, {}};
    const std::vector<std::pair<std::string, std::function<int()>>> calls = {
        {"CheckDeviceEx", [&] { return token.CheckDeviceEx(nullptr, nullptr, 1, buffer.data()); }},
        {"GetMediaID", [&] { return token.GetMediaID(kSerial, buffer.data()); }},
        {"GetLabel", [&] { return token.GetLabel(serial.data(), buffer.data()); }},
        {"SetLabel", [&] { return token.SetLabel(kSerial, "label"); }},
        {"SetData", [&] { return token.SetData("0123456789", 0, "v"); }},
        {"GetData", [&] { return token.GetData("0123456789", 0, buffer.data()); }},
        {"UOS_SetCharset", [&] { return token.UOS_SetCharset("", "UTF-8"); }},
        {"UOS_SetLanguage", [&] { return token.UOS_SetLanguage("", "zh"); }},
        {"VerifyPIN", [&] { return token.VerifyPIN(kSerial); }},
        {"VerifyAndCachePin", [&] { return token.VerifyAndCachePin(kSerial, nullptr); }},
        {"GM_RemoveUserPin", [&] { return token.GM_RemoveUserPin(); }},
        {"SetCachePinFlag", [&] { return token.SetCachePinFlag(kSerial, 0); }},
        {"GetPinInfo", [&] { return token.GetPinInfo(kSerial, buffer.data(), &length); }},
        {"ChangePin", [&] { return token.ChangePin(kSerial); }},
        {"CustInitCard", [&] { return token.CustInitCard(kSerial, 0, nullptr, 0); }},
        {"GMCreatePKCS10",
         [&] { return token.GMCreatePKCS10(serial.data(), 1, 2, 3, &made, nullptr, 0); }},
        {"GMCreatePKCS10Ex",
         [&] { return token.GMCreatePKCS10Ex(serial.data(), &record, &made, 1, nullptr, 0); }},
        {"GMWritePKCS7", [&] { return token.GMWritePKCS7(kSerial, "text", object); }},
        {"GMImportPriKey", [&] { return token.GMImportPriKey(kSerial, text.data(), 0); }},
        {"GetCertInfo", [&] { return token.GetCertInfo(kSerial, 1, 2, buffer.data(), &length); }},
        {"GM_GetCertDN", [&] { return token.GM_GetCertDN(kSerial, 1, 2, buffer.data()); }},
        {"GetCertInfo_UOS",
         [&] { return token.GetCertInfo_UOS(kSerial, 1, buffer.data(), &length); }},
        {"DelCertAndTempKey", [&] { return token.DelCertAndTempKey(kSerial, 1, 2); }},
        {"SetWarningMsg", [&] { return token.SetWarningMsg(kSerial, "text"); }},
        {"GMUsbKeyCriticalSign",
         [&] { return token.GMUsbKeyCriticalSign(kSerial, 0, 0, "text", buffer.data(), &length); }},
        {"GMUsbKeyCommonSign",
         [&] {
             return token.GMUsbKeyCommonSign(serial.data(), 0, 0, text.data(), 0, buffer.data(),
                                             &length);
         }},
        {"GMUSBKeyAsymDec2",
         [&] {
             return token.GMUSBKeyAsymDec2(serial.data(), 0, 0, text.data(), buffer.data(),
                                           &length);
         }},
        {"Batch_Sign", [&] {
             return token.Batch_Sign(0, serial.data(), 0, 0, nullptr, nullptr, nullptr, 0, 0, "x",
                                     1, buffer.data(), &length);
         }}};
    std::string rules;
    for (const auto& [entry, call] : calls) {
        rules += (rules.empty() ? "" : ", ") + (R"({"entry": ")" + entry + R"(", "code": )") +
                 std::to_string(1000 + rules.size()) + "}";
    }
    Plan(rules);
    std::size_t size = 0;
    for (const auto& [entry, call] : calls) {
        size = rules.find("\"" + entry + "\"");
        EXPECT_EQ(call(), std::stoi(rules.substr(rules.find("code", size) + 7))) << entry;
        EXPECT_EQ(Counted(entry), 1U) << entry;
    }
}

TEST_F(PlannedCalls, bytes_that_are_lost_leave_buffer_and_length_alone) {
    Plan(R"({"entry": "GetPinInfo", "output": "none"})");
    std::array<char, 9> info{'?'};
    std::uint32_t length = info.size();
    EXPECT_EQ(token.GetPinInfo(kSerial, info.data(), &length), kOk);
    EXPECT_EQ(info[0], '?');
    EXPECT_EQ(length, info.size());
}

TEST_F(PlannedCalls, a_key_that_is_pulled_out_before_a_call_is_absent) {
    Plan(R"({"entry": "GetLabel", "call": 1, "remove": "before"},
            {"entry": "SetData", "remove": "before"})");
    EXPECT_EQ(Label(), kKeyAbsent);
    EXPECT_FALSE(KeyTable(*OpenStore()).Find(kSerial)->inserted);
    EXPECT_EQ(Label(""), kKeyAbsent);
    EXPECT_EQ(Store("value"), kKeyAbsent) << "nothing is there to be pulled out";
}

}  // namespace

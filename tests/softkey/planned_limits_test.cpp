// Whom a plan is for, what a key holds under its limits, and plans that come, go or are damaged.
#include <filesystem>
#include <functional>
#include <future>

#include "planned_calls.h"
#include "softkey/store/pins.h"

using namespace softkey;

namespace {

using namespace std::chrono_literals;

TEST_F(PlannedCalls, a_rule_for_one_serial_number_leaves_the_other_key_alone) {
    CreateKey("KS2", "MEDIA2");
    Plan(R"({"entry": "*", "serial": "KS2", "code": "StateBusy"})");
    EXPECT_EQ(Label("KS2"), kStateBusy);
    EXPECT_EQ(Label(), kOk);
    KeyTable(*OpenStore()).SetInserted(kSerial, false);
    EXPECT_EQ(Label(""), kStateBusy) << "the only key that is present";
    KeyTable(*OpenStore()).SetInserted("KS2", false);
    EXPECT_EQ(Label("KS2"), kStateBusy) << "though it is out";
}

TEST_F(PlannedCalls, a_key_without_room_says_so_and_keeps_what_it_has) {
    ASSERT_EQ(Request(1, 2, 3).code, kOk);
    SetMisbehaviour(Home(), R"({"limits": {"pairs": 2, "objects": 2, "bytes": 20}})");
    EXPECT_EQ(Request(1, 2, 3).code, kOk);
    EXPECT_EQ(Request(1, 2, 3).code, kStateFull);
    EXPECT_EQ(PairedRequest().code, kStateFull);
    EXPECT_EQ(Pairs(), 2U);
    EXPECT_EQ(Store("0123456789", 1), kOk);
    EXPECT_EQ(Store("0123456789-", 2), kStateFull) << "bytes";
    EXPECT_EQ(Store("", 2), kOk);
    EXPECT_EQ(Store("", 3), kStateFull) << "objects";
    EXPECT_EQ(Store("9876543210", 1), kOk) << "in the place of another";
    SetMisbehaviour(Home(), R"({"limits": {"pairs": 1, "objects": 1, "bytes": 1}})");
    EXPECT_EQ(Store("987654", 1), kOk) << "less than before, though still too much";
    EXPECT_EQ(Store("654321", 1), kOk) << "as much as before";
    EXPECT_EQ(Store("9876543", 1), kStateFull) << "more, and too much before";
    EXPECT_EQ(Store("", 1), kOk);
    EXPECT_EQ(token.DelCertAndTempKey(kSerial, 0, 0), kOk);
    EXPECT_EQ(Request(1, 2, 3).code, kOk);
}

TEST_F(PlannedCalls, a_certificate_takes_room_too) {
    const std::string certificate = Issue(Request(1, 2, 3).text);
    SetMisbehaviour(Home(), R"({"limits": {"bytes": 100}})");
    EXPECT_EQ(WriteCertificate(certificate), kStateFull);
    const std::string size = std::to_string(FromBase64(certificate)->size());
    SetMisbehaviour(Home(), R"({"limits": {"bytes": )" + size + "}}");
    EXPECT_EQ(WriteCertificate(certificate), kOk);
    EXPECT_EQ(Store("v"), kStateFull) << "the certificate has all the room";
}

TEST_F(PlannedCalls, an_escrowed_key_takes_the_room_of_a_pair) {
    const std::string envelope = Escrow(Request(3, 2, 3).text);
    SetMisbehaviour(Home(), R"({"limits": {"pairs": 1}})");
    EXPECT_EQ(ImportKey(envelope), kStateFull);
    EXPECT_EQ(Pairs(), 1U);
    SetMisbehaviour(Home(), R"({"limits": {"pairs": 2}})");
    EXPECT_EQ(ImportKey(envelope), kOk);
    EXPECT_EQ(ImportKey(envelope), kOk) << "in the place of the other";
}

TEST_F(PlannedCalls, a_key_pulled_out_during_an_import_holds_what_it_held) {
    const std::string certificate = Issue(Request(1, 2, 3).text);
    const std::string envelope = Escrow(Request(3, 2, 3).text);
    const auto held = [this] {
        std::string text;
        for (const PairRecord& pair : PairTable(*OpenStore()).Of(kSerial)) {
            text += std::to_string(static_cast<int>(pair.role)) +
                    (pair.certificate.empty() ? " " : "+ ");
        }
        return text;
    };
    const std::string before = held();
    Plan(R"({"entry": "GMWritePKCS7", "remove": "during"},
            {"entry": "GMImportPriKey", "remove": "during"})");
    EXPECT_EQ(WriteCertificate(certificate), kKeyRemoved);
    EXPECT_EQ(held(), before);
    KeyTable(*OpenStore()).SetInserted(kSerial, true);
    ASSERT_EQ(token.VerifyPIN(kSerial), kOk);
    EXPECT_EQ(ImportKey(envelope), kKeyRemoved);
    EXPECT_EQ(held(), before);
}

TEST_F(PlannedCalls, a_plan_may_take_tries_away_and_gives_none) {
    SetMisbehaviour(Home(), R"({"tries_left": 1})");
    EXPECT_EQ(TriesLeft(), 1);
    SetMisbehaviour(Home(), R"({"tries_left": 4})");
    EXPECT_EQ(TriesLeft(), 1);
    SetPin("654321");
    EXPECT_EQ(token.VerifyPIN(kSerial), kPinLocked);
}

// Once the folder has been still for a while its content is not looked for in each call.
TEST_F(PlannedCalls, a_plan_that_comes_and_goes_by_hand_is_followed_by_the_next_call) {
    const auto rest = [&] {
        for (int i = 0; i < 3; ++i) {
            std::this_thread::sleep_for(20ms);
            EXPECT_EQ(Label(), kOk);
        }
    };
    rest();
    Write("home/misbehaviour.json", R"({"rules": [{"entry": "GetLabel", "code": 5}]})");
    EXPECT_EQ(Label(), 5);
    std::this_thread::sleep_for(20ms);
    EXPECT_EQ(Label(), 5);
    std::filesystem::remove(Path("home/misbehaviour.json"));
    rest();
}

TEST_F(PlannedCalls, a_damaged_plan_is_told_whatever_is_called) {
    Write("home/misbehaviour.json", R"({"limits": 7})");
    EXPECT_EQ(Label(), kStateDamaged);
    EXPECT_EQ(token.UOS_SetCharset("", "UTF-8"), kStateDamaged);
}

// What was made under the earlier PIN is not stored under the new one, nor is the key unlocked.
TEST_F(PlannedCalls, a_pin_that_another_process_changed_meanwhile_is_asked_for_again) {
    const std::string envelope = Escrow(Request(3, 2, 3).text);
    SetNewPin("abcdef");
    const std::vector<std::pair<std::string, std::function<int()>>> calls = {
        {"GMCreatePKCS10", [&] { return Request(1, 2, 3).code; }},
        {"GMImportPriKey", [&] { return ImportKey(envelope); }},
        {"VerifyPIN", [&] { return token.VerifyPIN(kSerial); }},
        {"VerifyAndCachePin", [&] { return token.VerifyAndCachePin(kSerial, nullptr); }},
        {"ChangePin", [&] { return token.ChangePin(kSerial); }}};
    for (const auto& [entry, call] : calls) {
        ASSERT_EQ(token.VerifyPIN(kSerial), kOk);
        // A change has verified the PIN, which gives the try back, when it begins to hang.
        const int tries = entry == "ChangePin" ? kMaxTries : kMaxTries - 1;
        PinTable(*OpenStore()).TakeTry(kSerial);
        Plan(R"({"entry": ")" + entry + R"(", "hang": true})");
        std::future<int> code = std::async(std::launch::async, call);
        while (Counted(entry) == 0 || TriesLeft() != tries) std::this_thread::sleep_for(1ms);
        PinTable(*OpenStore()).EndVerifications(kSerial);
        ClearMisbehaviour(Home());
        EXPECT_EQ(code.get(), kPinRequired) << entry;
        EXPECT_EQ(TriesLeft(), tries) << entry;
        EXPECT_EQ(Pairs(), 1U) << entry;
    }
    EXPECT_EQ(token.VerifyPIN(kSerial), kOk) << "with the PIN that it had";
}

TEST_F(PlannedCalls, a_length_is_told_as_the_plan_says_unless_it_says_a_code) {
    std::array<std::uint8_t, 8> info{};
    std::uint32_t length = info.size();
    Plan(R"({"entry": "*", "length": 9})");
    EXPECT_EQ(token.GetPinInfo(kSerial, info.data(), &length), kOk);
    EXPECT_EQ(length, 9U);
    EXPECT_EQ(token.GetPinInfo(kSerial, info.data(), nullptr), kBadArgument);
    EXPECT_EQ(Label(), kOk) << "that tells no length";
    Plan(R"({"entry": "GetPinInfo", "length": 7, "code": 5})");
    EXPECT_EQ(token.GetPinInfo(kSerial, info.data(), &length), 5);
    EXPECT_EQ(length, 9U);
}

TEST_F(PlannedCalls, a_plan_is_followed_beside_a_state_that_nobody_can_read) {
    Plan(R"({"entry": "UOS_SetCharset", "code": 5})");
    Write("home/softkey.db", std::string(8192, 'x'));
    EXPECT_EQ(Label(), kStateDamaged);
    EXPECT_EQ(token.UOS_SetCharset("", "UTF-8"), 5);
}

}  // namespace

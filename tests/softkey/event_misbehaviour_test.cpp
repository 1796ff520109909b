// The plan's effects on the event library, and the folder that comes into being late or is
// replaced.
#include <sys/resource.h>

#include <array>
#include <future>
#include <stdexcept>

#include "event_client.h"
#include "softkey/codes.h"
#include "softkey/misbehaviour/misbehaviour.h"
#include "softkey/store/keys.h"

namespace {

class EventMisbehaviour : public EventClient {
protected:
    EventMisbehaviour() {
        MakeKeys();
        context_ = OpenContext();
    }

    void Plan(const std::string& rule) {
        softkey::SetMisbehaviour(home_, R"({"rules": [{"entry": ")" + rule + "}]}");
    }

    // The events -1, +1 and -4.
    void MoveTwice() {
        softkey::KeyTable(*store_).SetInserted("A", false);
        softkey::KeyTable(*store_).SetInserted("A", true);
        softkey::KeyTable(*store_).SetInserted("B", false);
    }

    // Where the plan withholds an event a poll brings nothing, and the next one goes on.
    std::string DrainTwice() {
        const std::string first = Drain(context_);
        return first + "|" + Drain(context_);
    }

    std::uint32_t context_ = 0;
};

TEST_F(EventMisbehaviour, An_event_may_be_repeated) {
    Plan(R"(ValtoT_WaitForEvent", "call": 1, "repeat": 2)");
    softkey::KeyTable(*store_).SetInserted("A", false);
    softkey::KeyTable(*store_).SetInserted("A", true);
    EXPECT_EQ("-1 -1 -1 +1", Drain(context_));
}

TEST_F(EventMisbehaviour, A_code_afterwards_does_not_hide_a_failure) {
    Plan(R"(ValtoT_GetDeviceInfo", "code_after": 5)");
    _S_DEV_CONFIG record = {};
    EXPECT_EQ(softkey::kKeyAbsent, ValtoT_GetDeviceInfo(9, 0, &record));
    EXPECT_EQ(5, ValtoT_GetDeviceInfo(1, 0, &record));
}

TEST_F(EventMisbehaviour, An_event_may_bounce) {
    Plan(R"(ValtoT_WaitForEvent", "call": 2, "bounce": 2)");
    softkey::KeyTable(*store_).SetInserted("A", false);
    softkey::KeyTable(*store_).SetInserted("A", true);
    EXPECT_EQ("-1 +1 -1 +1 -1 +1", Drain(context_));
}

TEST_F(EventMisbehaviour, A_rule_for_every_event_ends_all_the_same) {
    Plan(R"(ValtoT_WaitForEvent", "repeat": 1)");
    softkey::KeyTable(*store_).SetInserted("A", false);
    softkey::KeyTable(*store_).SetInserted("A", true);
    EXPECT_EQ("-1 -1 +1 +1", Drain(context_));
    EXPECT_EQ(2U, softkey::MisbehaviourCounts(home_)["ValtoT_WaitForEvent"]);
}

TEST_F(EventMisbehaviour, A_failed_delivery_loses_no_event) {
    Plan(R"(ValtoT_WaitForEvent", "call": 1, "code": 55)");
    softkey::KeyTable(*store_).SetInserted("A", false);
    VALTO_EVENT_INFO event = {};
    EXPECT_EQ(55, ValtoT_WaitForEvent(1, 0, &event, &context_));
    EXPECT_EQ("-1", Drain(context_));
}

TEST_F(EventMisbehaviour, An_exception_loses_no_event) {
    Plan(R"(ValtoT_WaitForEvent", "call": 1, "throw": true)");
    softkey::KeyTable(*store_).SetInserted("A", false);
    VALTO_EVENT_INFO event = {};
    EXPECT_THROW(ValtoT_WaitForEvent(1, 0, &event, &context_), std::runtime_error);
    EXPECT_EQ("-1", Drain(context_));
}

TEST_F(EventMisbehaviour, An_event_may_be_lost) {
    Plan(R"(ValtoT_WaitForEvent", "call": 2, "lose": true)");
    MoveTwice();
    EXPECT_EQ("-1|-4", DrainTwice());
}

TEST_F(EventMisbehaviour, A_late_event_comes_after_as_many_others_as_the_plan_says) {
    Plan(R"(ValtoT_WaitForEvent", "call": 1, "late": 2)");
    MoveTwice();
    EXPECT_EQ("|+1 -4 -1", DrainTwice());
}

TEST_F(EventMisbehaviour, An_event_that_two_threads_wait_for_reaches_one_of_them) {
    Plan(R"(ValtoT_WaitForEvent", "hang": true)");
    softkey::KeyTable(*store_).SetInserted("A", false);
    std::vector<std::future<int>> waits;
    for (int i = 0; i < 2; ++i) {
        waits.push_back(std::async(std::launch::async, [context = context_]() mutable {
            VALTO_EVENT_INFO event = {};
            return ValtoT_WaitForEvent(1, 0, &event, &context);
        }));
    }
    // Both have seen it by now.
    while (softkey::MisbehaviourCounts(home_)["ValtoT_WaitForEvent"] != 2) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    softkey::ClearMisbehaviour(home_);
    EXPECT_EQ(waits[0].get() + waits[1].get(), softkey::kOk + softkey::kNoEvent);
}

TEST_F(EventMisbehaviour, A_late_event_that_nothing_follows_is_kept_back) {
    Plan(R"(ValtoT_WaitForEvent", "call": 1, "late": 1)");
    softkey::KeyTable(*store_).SetInserted("A", false);
    EXPECT_EQ("", Drain(context_) + Drain(context_));
    softkey::KeyTable(*store_).SetInserted("A", true);
    EXPECT_EQ("+1 -1", Drain(context_));
}

TEST_F(EventMisbehaviour, A_rule_may_be_for_the_record_of_one_key) {
    Plan(R"(ValtoT_GetDeviceInfo", "serial": "B", "code": 5)");
    _S_DEV_CONFIG record = {};
    EXPECT_EQ(0, ValtoT_GetDeviceInfo(1, 0, &record));
    EXPECT_EQ(5, ValtoT_GetDeviceInfo(4, 0, &record));
    EXPECT_EQ(softkey::kKeyAbsent, ValtoT_GetDeviceInfo(7, 0, &record));
}

TEST_F(EventMisbehaviour, A_foreign_device_in_the_slot_of_a_key_is_listed_once) {
    softkey::SetMisbehaviour(home_, R"({"foreign": [4, 7]})");
    std::array<std::uint32_t, 8> slots = {};
    std::uint32_t count = 8;
    EXPECT_EQ(0, ValtoT_GetSlotList(1, slots.data(), &count));
    EXPECT_EQ(3U, count);
    EXPECT_EQ(7U, slots[2]);
}

TEST_F(EventMisbehaviour, A_rule_may_be_for_the_events_of_one_key) {
    Plan(R"(ValtoT_WaitForEvent", "serial": "B", "lose": true)");
    MoveTwice();
    EXPECT_EQ("-1 +1", Drain(context_));
    EXPECT_EQ("", Drain(context_));
}

TEST_F(EventMisbehaviour, A_rule_may_be_for_the_description_of_one_key) {
    Plan(R"(ValtoT_GetDeviceInfo", "serial": "B", "code": 55)");
    _S_DEV_CONFIG record{};
    EXPECT_EQ(softkey::kOk, ValtoT_GetDeviceInfo(1, 0, &record));
    EXPECT_EQ(55, ValtoT_GetDeviceInfo(4, 0, &record));
    EXPECT_EQ(softkey::kKeyAbsent, ValtoT_GetDeviceInfo(77, 0, &record)) << "nobody's slot";
}

TEST_F(EventMisbehaviour, The_answer_of_an_event_may_be_lost_or_garbage) {
    Plan(R"(ValtoT_WaitForEvent", "call": 1, "code_after": 5}, {"entry": "ValtoT_WaitForEvent",
            "call": 2, "output": "none"}, {"entry": "ValtoT_WaitForEvent", "call": 3,
            "output": "garbage")");
    MoveTwice();
    VALTO_EVENT_INFO event = {};
    EXPECT_EQ(5, ValtoT_WaitForEvent(1, 0, &event, &context_));
    EXPECT_EQ(0, ValtoT_WaitForEvent(1, 0, &event, &context_));
    EXPECT_EQ(0U, event.u32EventType);
    EXPECT_EQ(0, ValtoT_WaitForEvent(1, 0, &event, &context_));
    EXPECT_GT(event.u32EventType, 2U);
    EXPECT_EQ("", Drain(context_));
}

TEST_F(EventMisbehaviour, Slots_and_media_ids_may_be_cut_garbage_or_unterminated) {
    softkey::SetMisbehaviour(home_, R"({"rules": [
        {"entry": "ValtoT_GetSlotList", "call": 1, "output": "cut"},
        {"entry": "ValtoT_GetSlotList", "call": 2, "output": "garbage"},
        {"entry": "ValtoT_GetSlotList", "call": 3, "output": "none"},
        {"entry": "ValtoT_GetDeviceInfo", "serial": "A", "output": "unterminated"},
        {"entry": "ValtoT_GetDeviceInfo", "serial": "B", "output": "cut"}]})");
    std::array<std::uint32_t, 16> slots = {};
    std::uint32_t count = 10;
    EXPECT_EQ(0, ValtoT_GetSlotList(1, slots.data(), &count));
    EXPECT_EQ(1U, count);
    count = 10;
    EXPECT_EQ(0, ValtoT_GetSlotList(1, slots.data(), &count));
    EXPECT_EQ(2U, count);
    EXPECT_GT(slots[1], 1000U);
    count = 10;
    EXPECT_EQ(0, ValtoT_GetSlotList(1, slots.data(), &count));
    EXPECT_EQ(10U, count);
    _S_DEV_CONFIG record = {};
    EXPECT_EQ(0, ValtoT_GetDeviceInfo(1, 0, &record));
    EXPECT_EQ("MEDIA-Axxxxxxxxx", std::string(record.szMediaId, 16));
    EXPECT_EQ(0, ValtoT_GetDeviceInfo(4, 0, &record));
    EXPECT_STREQ("MEDIA-B-", record.szMediaId);
}

TEST_F(EventMisbehaviour, Any_entry_point_may_throw) {
    Plan(R"(ValtoT_ContextInit", "call": 1, "throw": true)");
    std::uint32_t value = 0;
    EXPECT_THROW(ValtoT_ContextInit(&value), std::runtime_error);
    EXPECT_EQ(0, ValtoT_ContextInit(&value));
}

TEST_F(EventMisbehaviour, A_hang_ends_with_the_plan) {
    Plan(R"(ValtoT_GetSlotList", "hang": true)");
    // Left behind when it does not end.
    const auto ended = std::make_shared<std::promise<int>>();
    std::future<int> end = ended->get_future();
    std::thread([ended] {
        std::uint32_t count = 0;
        ended->set_value(ValtoT_GetSlotList(1, nullptr, &count));
    }).detach();
    while (softkey::MisbehaviourCounts(home_).empty()) std::this_thread::yield();
    EXPECT_EQ(std::future_status::timeout, end.wait_for(std::chrono::milliseconds(100)));
    softkey::ClearMisbehaviour(home_);
    ASSERT_EQ(std::future_status::ready, end.wait_for(std::chrono::seconds(60)));
    EXPECT_EQ(0, end.get());
}

TEST_F(EventMisbehaviour, A_device_that_is_no_key_comes_with_the_plan_and_goes_with_it) {
    softkey::SetMisbehaviour(home_, R"({"foreign": [7]})");
    EXPECT_EQ("+7", Drain(context_));
    std::array<std::uint32_t, 16> slots = {};
    std::uint32_t count = 10;
    EXPECT_EQ(0, ValtoT_GetSlotList(1, slots.data(), &count));
    EXPECT_EQ(3U, count);
    EXPECT_EQ(7U, slots[2]);
    _S_DEV_CONFIG record = {};
    EXPECT_EQ(softkey::kNotSupported, ValtoT_GetDeviceInfo(7, 0xE0000, &record));
    softkey::SetMisbehaviour(home_, R"({"foreign": [7, 8]})");
    EXPECT_EQ("+8", Drain(context_));
    softkey::ClearMisbehaviour(home_);
    EXPECT_EQ("-7 -8", Drain(context_));
    EXPECT_EQ(softkey::kKeyAbsent, ValtoT_GetDeviceInfo(7, 0, &record));
}

TEST_F(EventMisbehaviour, A_key_that_comes_back_elsewhere_is_seen_there) {
    softkey::KeyTable(*store_).SetInserted("A", false);
    softkey::KeyTable(*store_).SetInserted("A", true, 12);
    EXPECT_EQ("-1 +12", Drain(context_));
}

TEST_F(EventMisbehaviour, Another_key_may_take_the_slot_of_one_that_is_out) {
    softkey::KeyTable keys(*store_);
    EXPECT_THROW(keys.SetInserted("C", true, 1), softkey::Failure);
    keys.SetInserted("A", false);
    keys.SetInserted("C", true, 1);
    EXPECT_EQ("-1 +1", Drain(context_));
    EXPECT_EQ("C", keys.All().front().serial);
    EXPECT_EQ(2U, keys.Find("A")->slot) << "the lowest slot that was free";
}

TEST_F(EventMisbehaviour, A_poll_without_an_event_is_not_counted) {
    Plan(R"(ValtoT_WaitForEvent", "call": 1, "code": 55)");
    EXPECT_EQ("", Drain(context_));
    EXPECT_TRUE(softkey::MisbehaviourCounts(home_).empty());
}

TEST_F(EventMisbehaviour, A_delivery_may_be_late) {
    Plan(R"(ValtoT_WaitForEvent", "delay_ms": 120)");
    softkey::KeyTable(*store_).SetInserted("A", false);
    const auto rests = [] {
        struct rusage usage {};
        getrusage(RUSAGE_THREAD, &usage);
        return usage.ru_nvcsw;
    };
    const auto restsBefore = rests();
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ("-1", Drain(context_));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(120));
    EXPECT_GT(rests(), restsBefore) << "it keeps the processor busy meanwhile";
}

TEST_F(EventMisbehaviour, The_slot_list_may_lie_about_its_length) {
    Plan(R"(ValtoT_GetSlotList", "length": 4000)");
    std::array<std::uint32_t, 16> slots = {};
    std::uint32_t count = 10;
    EXPECT_EQ(0, ValtoT_GetSlotList(1, slots.data(), &count));
    EXPECT_EQ(4000U, count);
    EXPECT_EQ(0U, slots[2]);
}

TEST_F(EventMisbehaviour, Each_entry_point_may_answer_a_code) {
    softkey::SetMisbehaviour(home_, R"({"rules": [
        {"entry": "ValtoT_GetSlotList", "code": 1}, {"entry": "ValtoT_GetDeviceInfo", "code": 2},
        {"entry": "ValtoT_ContextInit", "code": 3}, {"entry": "ValtoT_ContextFinal", "code": 4}]})");
    std::uint32_t value = 0;
    _S_DEV_CONFIG record = {};
    EXPECT_EQ(1, ValtoT_GetSlotList(1, nullptr, &value));
    EXPECT_EQ(2, ValtoT_GetDeviceInfo(1, 0, &record));
    EXPECT_EQ(3, ValtoT_ContextInit(&value));
    EXPECT_EQ(4, ValtoT_ContextFinal());
    softkey::ClearMisbehaviour(home_);
}

class LateFolder : public EventClient {};

TEST_F(LateFolder, A_folder_that_is_not_there_has_no_slots_and_no_events) {
    std::uint32_t count = 7;
    EXPECT_EQ(0, ValtoT_GetSlotList(1, nullptr, &count));
    EXPECT_EQ(0U, count);
    EXPECT_EQ("", Drain(OpenContext()));
    EXPECT_FALSE(std::filesystem::exists(home_));
}

TEST_F(LateFolder, The_first_key_of_a_new_folder_is_seen_arriving) {
    const std::uint32_t context = OpenContext();
    EXPECT_EQ("", Drain(context));
    MakeKeys();
    EXPECT_EQ("+1 +4", WaitFor(2, context));
}

TEST_F(LateFolder, A_folder_that_took_the_place_of_another_is_new_as_a_whole) {
    MakeKeys();
    const std::uint32_t context = OpenContext();
    EXPECT_EQ("", Drain(context));
    store_.reset();
    std::filesystem::remove_all(home_);
    store_ = softkey::Store::Open(home_);
    AddKey(*store_, "N", 3, "MEDIA-N");
    EXPECT_EQ("+3", WaitFor(1, context));
}

TEST_F(LateFolder,
       A_replaced_folder_is_seen_by_the_fiftieth_poll_as_new_even_with_the_same_history) {
    MakeKeys();
    std::uint32_t context = OpenContext();
    store_.reset();
    std::filesystem::remove_all(home_);
    MakeKeys();
    VALTO_EVENT_INFO event = {};
    int polls = 1;
    while (polls < 1000 && ValtoT_WaitForEvent(1, 0, &event, &context) != 0) ++polls;
    EXPECT_EQ(50, polls);
    EXPECT_EQ("+1", Text(event));
    EXPECT_EQ("+4", Drain(context));
}

}  // namespace

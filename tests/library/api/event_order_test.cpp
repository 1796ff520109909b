// WaitForKeyEvent seen from inside the event library: what is written when; and waits of a library
// that could not be bound.
#include "event_test.h"

namespace {

constexpr unsigned unwritten = 77;

// The caller's outputs, and what they were when the event library was asked.
struct Outputs {
    CanaryBuffer media_id{17};
    unsigned kind = unwritten;
    unsigned length = unwritten;

    unsigned kind_seen = 0;
    unsigned length_seen = 0;
    bool media_id_was_untouched = false;
    int last_error_seen = unrelated_code;
    std::size_t records_seen = 0;

    void look_when_asked(const std::string& entry) {
        recorder().on(entry).does([this](const recording::Call&) {
            kind_seen = kind;
            length_seen = length;
            media_id_was_untouched = media_id.untouched();
            last_error_seen = G_LastError;
            records_seen = log_lines().size();
        });
    }
    void wait() {
        offer_slots({});
        EXPECT_EQ(WaitForKeyEvent(&kind, media_id.data(), &length), 0);
    }
};

constexpr std::size_t records_of_scan = 3;

}  // namespace

TEST(WaitForKeyEvent, names_the_arrival_before_it_reads_the_device) {
    deliver(1, 5);
    Outputs outputs;
    outputs.look_when_asked("ValtoT_GetDeviceInfo");
    outputs.wait();
    EXPECT_EQ(outputs.kind_seen, 1U);
}

TEST(WaitForKeyEvent, hands_an_arrived_key_out_once_the_context_is_closed) {
    deliver(1, 5);
    recorder().on("ValtoT_GetDeviceInfo").writes(2, device_record("M1"));
    Outputs outputs;
    outputs.look_when_asked("ValtoT_ContextFinal");
    outputs.wait();
    EXPECT_EQ(outputs.kind_seen, 1U);
    EXPECT_EQ(outputs.length_seen, unwritten);
    EXPECT_TRUE(outputs.media_id_was_untouched);
    EXPECT_EQ(outputs.records_seen, records_of_scan + 3) << "all but the end";
    EXPECT_EQ(outputs.length, 2U);
}

TEST(WaitForKeyEvent, hands_a_removed_key_out_once_the_context_is_closed) {
    deliver(2, 5);
    recorder().on("ValtoT_WaitForEvent").does([](const recording::Call&) { G_LastError = -9; });
    Outputs outputs;
    outputs.look_when_asked("ValtoT_ContextFinal");
    outputs.wait();
    EXPECT_EQ(outputs.kind_seen, 2U);
    EXPECT_EQ(outputs.length_seen, unwritten);
    EXPECT_TRUE(outputs.media_id_was_untouched);
    EXPECT_EQ(outputs.last_error_seen, 0);
    EXPECT_EQ(outputs.records_seen, records_of_scan + 2) << "all but the end";
    EXPECT_EQ(outputs.length, 0U);
}

// The probe does not set the flag that the stop has cleared.
TEST(WaitForKeyEvent, is_not_revived_by_a_probe_behind_its_stop) {
    recorder().on("ValtoT_WaitForEvent", 1).returns(1).does([](const recording::Call&) {
        StopDetectUKey();
        unsigned length = 0;
        WaitForKeyEvent(nullptr, nullptr, &length);
    });
    deliver(2, 5);
    const Waited waited;
    EXPECT_EQ(waited.kind, 3U);
}

TEST(WaitForKeyEvent, stopped_stores_no_code_of_its_own) {
    recorder().on("ValtoT_WaitForEvent").returns(1).does([](const recording::Call&) {
        StopDetectUKey();
        G_LastError = unrelated_code;
    });
    const Waited waited;
    EXPECT_EQ(G_LastError, unrelated_code);
}

TEST(WaitForKeyEvent, stopped_while_the_event_library_throws_reports_kind_3) {
    recorder().on("ValtoT_WaitForEvent", 1).does([](const recording::Call&) {
        StopDetectUKey();
        throw 1;
    });
    deliver(2, 5);
    const Waited waited;
    EXPECT_EQ(waited.code, 0);
    EXPECT_EQ(waited.kind, 3U);
    EXPECT_EQ(log_lines().back(), "SKF_WaitForDevEvent| end in catch ,G_LastError = 0, line = 582");
}

TEST(WaitForKeyEvent, waits_without_a_token_library_too) {
    install::remove_token_library();
    deliver(2, 5);
    const Waited waited;
    EXPECT_EQ(waited.code, 0);
    EXPECT_EQ(waited.kind, 2U);
    EXPECT_EQ(G_LastError, 0);
    EXPECT_FALSE(g_initFlag);
    EXPECT_EQ(log_lines().at(records_of_scan),
              "VALTO_EVENT_INFO::SLOT_DEVICEREMOVE |G_LastError = 0, line = 606");
}

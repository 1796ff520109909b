// WaitForKeyEvent seen from inside the event library: what is written when; and waits of a library
// that could not be bound.
#include "event_test.h"

namespace {

constexpr unsigned unwritten = 77;

// The caller's outputs, and what they were when the event library was asked.
struct Outputs {
    CanaryBuffer mediaId{17};
    unsigned kind = unwritten;
    unsigned length = unwritten;

    unsigned kindSeen = 0;
    unsigned lengthSeen = 0;
    bool mediaIdWasUntouched = false;
    int lastErrorSeen = unrelated_code;
    std::size_t recordsSeen = 0;

    void LookWhenAsked(const std::string& entry) {
        TheRecorder().On(entry).Does([this](const recording::Call&) {
            kindSeen = kind;
            lengthSeen = length;
            mediaIdWasUntouched = mediaId.Untouched();
            lastErrorSeen = G_LastError;
            recordsSeen = LogLines().size();
        });
    }
    void Wait() {
        OfferSlots({});
        EXPECT_EQ(WaitForKeyEvent(&kind, mediaId.data(), &length), 0);
    }
};

constexpr std::size_t records_of_scan = 3;

}  // namespace

TEST(WaitForKeyEvent, names_the_arrival_before_it_reads_the_device) {
    Deliver(1, 5);
    Outputs outputs;
    outputs.LookWhenAsked("ValtoT_GetDeviceInfo");
    outputs.Wait();
    EXPECT_EQ(outputs.kindSeen, 1U);
}

TEST(WaitForKeyEvent, hands_an_arrived_key_out_once_the_context_is_closed) {
    Deliver(1, 5);
    TheRecorder().On("ValtoT_GetDeviceInfo").Writes(2, DeviceRecord("M1"));
    Outputs outputs;
    outputs.LookWhenAsked("ValtoT_ContextFinal");
    outputs.Wait();
    EXPECT_EQ(outputs.kindSeen, 1U);
    EXPECT_EQ(outputs.lengthSeen, unwritten);
    EXPECT_TRUE(outputs.mediaIdWasUntouched);
    EXPECT_EQ(outputs.recordsSeen, records_of_scan + 3) << "all but the end";
    EXPECT_EQ(outputs.length, 2U);
}

TEST(WaitForKeyEvent, hands_a_removed_key_out_once_the_context_is_closed) {
    Deliver(2, 5);
    TheRecorder().On("ValtoT_WaitForEvent").Does([](const recording::Call&) { G_LastError = -9; });
    Outputs outputs;
    outputs.LookWhenAsked("ValtoT_ContextFinal");
    outputs.Wait();
    EXPECT_EQ(outputs.kindSeen, 2U);
    EXPECT_EQ(outputs.lengthSeen, unwritten);
    EXPECT_TRUE(outputs.mediaIdWasUntouched);
    EXPECT_EQ(outputs.lastErrorSeen, 0);
    EXPECT_EQ(outputs.recordsSeen, records_of_scan + 2) << "all but the end";
    EXPECT_EQ(outputs.length, 0U);
}

// The probe does not set the flag that the stop has cleared.
TEST(WaitForKeyEvent, is_not_revived_by_a_probe_behind_its_stop) {
    TheRecorder().On("ValtoT_WaitForEvent", 1).Returns(1).Does([](const recording::Call&) {
        StopDetectUKey();
        unsigned length = 0;
        WaitForKeyEvent(nullptr, nullptr, &length);
    });
    Deliver(2, 5);
    const Waited waited;
    EXPECT_EQ(waited.kind, 3U);
}

TEST(WaitForKeyEvent, stopped_stores_no_code_of_its_own) {
    TheRecorder().On("ValtoT_WaitForEvent").Returns(1).Does([](const recording::Call&) {
        StopDetectUKey();
        G_LastError = unrelated_code;
    });
    const Waited waited;
    EXPECT_EQ(G_LastError, unrelated_code);
}

TEST(WaitForKeyEvent, stopped_while_the_event_library_throws_reports_kind_3) {
    TheRecorder().On("ValtoT_WaitForEvent", 1).Does([](const recording::Call&) {
        StopDetectUKey();
        throw 1;
    });
    Deliver(2, 5);
    const Waited waited;
    EXPECT_EQ(waited.code, 0);
    EXPECT_EQ(waited.kind, 3U);
    EXPECT_EQ(LogLines().back(), "SKF_WaitForDevEvent| end in catch ,G_LastError = 0, line = 582");
}

TEST(WaitForKeyEvent, waits_without_a_token_library_too) {
    install::RemoveTokenLibrary();
    Deliver(2, 5);
    const Waited waited;
    EXPECT_EQ(waited.code, 0);
    EXPECT_EQ(waited.kind, 2U);
    EXPECT_EQ(G_LastError, 0);
    EXPECT_FALSE(g_initFlag);
    EXPECT_EQ(LogLines().at(records_of_scan),
              "VALTO_EVENT_INFO::SLOT_DEVICEREMOVE |G_LastError = 0, line = 606");
}

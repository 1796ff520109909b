// What WaitForKeyEvent answers to an arrival, a removal and any other event.
#include "event_test.h"

namespace {

const std::string arrivalTag = "VALTO_EVENT_INFO::SLOT_DEVICEARRIVAL  |";
const std::string removalTag = "VALTO_EVENT_INFO::SLOT_DEVICEREMOVE |";
const std::string waitTag = "SKF_WaitForDevEvent|";

// What stands in the log behind the three lines of the scan.
Lines LinesOfTheEvent() {
    const Lines lines = LogLines();
    return {lines.begin() + 3, lines.end()};
}

void AnswerDevice(const std::string& mediaId, int code = 0) {
    TheRecorder().On("ValtoT_GetDeviceInfo").Returns(code).Writes(2, DeviceRecord(mediaId));
}

std::string Terminated(const std::string& text) {
    return text + std::string(1, '\0');
}

}  // namespace

// ---- Arrival ------------------------------------------------------------------------------------

TEST(Arrival, is_kind_1_with_the_media_id_of_the_device) {
    Deliver(1, 5);
    AnswerDevice("M1");
    const Waited waited;
    EXPECT_EQ(waited.code, 0);
    EXPECT_EQ(G_LastError, 0);
    EXPECT_EQ(waited.kind, 1U);
    EXPECT_EQ(waited.length, 2U);
    EXPECT_TRUE(waited.mediaId.HoldsOnly(Terminated("M1")));
}

TEST(Arrival, reads_the_device_into_a_zeroed_record_before_it_closes_the_context) {
    Deliver(1, 0x80000005);
    const Waited waited;
    EXPECT_EQ(Trace(), (Lines{"ValtoT_GetSlotList(1, zero[64], &10)", "ValtoT_ContextInit(&0)",
                              "ValtoT_WaitForEvent(1, 0, zero[332], &0)",
                              "ValtoT_GetDeviceInfo(2147483653, 917504, zero[396])",
                              "ValtoT_ContextFinal()"}));
}

TEST(Arrival, logs_lines_596_600_603_and_616) {
    Deliver(1, 5);
    AnswerDevice("M1", 12);
    const Waited waited;
    EXPECT_EQ(LinesOfTheEvent(),
              (Lines{arrivalTag + " G_LastError = 0, line = 596",
                     arrivalTag + " event.ei.slotEvent.u32SlotID = 5, line = 600",
                     arrivalTag + " G_LastError = 12, line = 603",
                     waitTag + "end, G_LastError = 12, line = 616"}));
}

TEST(Arrival, logs_the_slot_id_as_a_signed_number) {
    Deliver(1, 0xFFFFFFFF);
    const Waited waited;
    EXPECT_EQ(LinesOfTheEvent().at(1),
              arrivalTag + " event.ei.slotEvent.u32SlotID = -1, line = 600");
}

TEST(Arrival, logs_the_last_error_of_the_moment_in_line_596) {
    Deliver(1, 5);
    TheRecorder().On("ValtoT_WaitForEvent").Does([](const recording::Call&) { G_LastError = -9; });
    const Waited waited;
    EXPECT_EQ(LinesOfTheEvent().at(0), arrivalTag + " G_LastError = -9, line = 596");
    EXPECT_EQ(waited.code, 0);
}

TEST(Arrival, logs_lines_596_and_600_before_it_reads_the_device) {
    Deliver(1, 5);
    Lines seen;
    TheRecorder().On("ValtoT_GetDeviceInfo").Does([&](const recording::Call&) {
        seen = LinesOfTheEvent();
    });
    const Waited waited;
    EXPECT_EQ(seen.size(), 2U);
}

TEST(Arrival, whose_device_cannot_be_read_returns_that_code_with_the_record_as_it_is) {
    Deliver(1, 5);
    AnswerDevice("half read", 12);
    const Waited waited;
    EXPECT_EQ(waited.code, 12);
    EXPECT_EQ(G_LastError, 12);
    EXPECT_EQ(waited.kind, 1U);
    EXPECT_EQ(waited.length, 9U);
    EXPECT_TRUE(waited.mediaId.HoldsOnly(Terminated("half read")));
    EXPECT_EQ(TheRecorder().Names().back(), "ValtoT_ContextFinal");
}

TEST(Arrival, whose_record_stays_zeroed_has_an_empty_media_id) {
    Deliver(1, 5);
    TheRecorder().On("ValtoT_GetDeviceInfo").Returns(12);
    const Waited waited;
    EXPECT_EQ(waited.length, 0U);
    EXPECT_TRUE(waited.mediaId.HoldsOnly(Terminated("")));
}

TEST(Arrival, with_16_bytes_and_no_NUL_has_a_media_id_of_16) {
    Deliver(1, 5);
    AnswerDevice("0123456789ABCDEF");
    const Waited waited;
    EXPECT_EQ(waited.length, 16U);
    EXPECT_TRUE(waited.mediaId.HoldsOnly(Terminated("0123456789ABCDEF")));
}

TEST(Arrival, is_not_put_into_the_slot_map) {
    Deliver(1, 5);
    AnswerDevice("M1");
    const Waited waited;
    EXPECT_EQ(g_WaitEventSlotMap, SlotMap{});
}

// ---- Removal ------------------------------------------------------------------------------------

TEST(Removal, is_kind_2_with_the_media_id_that_the_scan_read) {
    TheRecorder().On("ValtoT_GetDeviceInfo", 1).Writes(2, DeviceRecord("four"));
    TheRecorder().On("ValtoT_GetDeviceInfo", 2).Writes(2, DeviceRecord("five"));
    Deliver(2, 5);
    const Waited waited({4, 5});
    EXPECT_EQ(waited.code, 0);
    EXPECT_EQ(waited.kind, 2U);
    EXPECT_EQ(waited.length, 4U);
    EXPECT_TRUE(waited.mediaId.HoldsOnly(Terminated("five")));
}

TEST(Removal, asks_no_device_and_closes_the_context) {
    Deliver(2, 5);
    const Waited waited;
    EXPECT_EQ(TheRecorder().Names(), (Lines{"ValtoT_GetSlotList", "ValtoT_ContextInit",
                                            "ValtoT_WaitForEvent", "ValtoT_ContextFinal"}));
}

TEST(Removal, leaves_the_entry_in_the_map) {
    TheRecorder().On("ValtoT_GetDeviceInfo").Writes(2, DeviceRecord("five"));
    Deliver(2, 5);
    const Waited waited({5});
    EXPECT_EQ(g_WaitEventSlotMap, (SlotMap{{5, "five"}}));
}

TEST(Removal, of_a_key_that_the_scan_did_not_see_is_empty_and_enters_the_map) {
    Deliver(2, 0xFFFFFFFF);
    const Waited waited;
    EXPECT_EQ(waited.code, 0);
    EXPECT_EQ(waited.kind, 2U);
    EXPECT_EQ(waited.length, 0U);
    EXPECT_TRUE(waited.mediaId.HoldsOnly(Terminated("")));
    EXPECT_EQ(g_WaitEventSlotMap, (SlotMap{{0xFFFFFFFF, ""}}));
}

TEST(Removal, of_a_key_whose_scan_failed_is_empty) {
    TheRecorder().On("ValtoT_GetDeviceInfo").Returns(1).Writes(2, DeviceRecord("five"));
    Deliver(2, 5);
    const Waited waited({5});
    EXPECT_EQ(waited.length, 0U);
    EXPECT_EQ(g_WaitEventSlotMap, (SlotMap{{5, ""}}));
}

TEST(Removal, of_a_key_that_arrived_during_the_wait_before_is_empty) {
    Deliver(1, 5);
    AnswerDevice("M1");
    { const Waited arrived; }
    Deliver(2, 5);
    const Waited waited;
    EXPECT_EQ(waited.length, 0U);
}

TEST(Removal, logs_lines_606_609_and_616) {
    Deliver(2, 5);
    const Waited waited;
    EXPECT_EQ(LinesOfTheEvent(), (Lines{removalTag + "G_LastError = 0, line = 606",
                                        removalTag + " G_LastError = 0, line = 609",
                                        waitTag + "end, G_LastError = 0, line = 616"}));
}

TEST(Removal, logs_the_last_error_of_the_moment_and_then_clears_it) {
    Deliver(2, 5);
    TheRecorder().On("ValtoT_WaitForEvent").Does([](const recording::Call&) { G_LastError = -9; });
    const Waited waited;
    EXPECT_EQ(LinesOfTheEvent(), (Lines{removalTag + "G_LastError = -9, line = 606",
                                        removalTag + " G_LastError = -9, line = 609",
                                        waitTag + "end, G_LastError = 0, line = 616"}));
    EXPECT_EQ(waited.code, 0);
    EXPECT_EQ(G_LastError, 0);
}

// ---- Any other kind -----------------------------------------------------------------------------

class EventOfAnotherKind : public testing::TestWithParam<unsigned> {};
INSTANTIATE_TEST_SUITE_P(Events, EventOfAnotherKind,
                         testing::Values(0U, 3U, 4U, 256U, 0x01000000U, 0xFFFFFFFFU));

TEST_P(EventOfAnotherKind, leaves_the_event_type_and_has_an_empty_media_id) {
    TheRecorder().On("ValtoT_GetDeviceInfo").Writes(2, DeviceRecord("five"));
    Deliver(GetParam(), 5);
    const Waited waited({5});
    EXPECT_EQ(waited.code, 0);
    EXPECT_EQ(waited.kind, 77U);
    EXPECT_EQ(waited.length, 0U);
    EXPECT_TRUE(waited.mediaId.HoldsOnly(Terminated("")));
    EXPECT_EQ(TheRecorder().Names().back(), "ValtoT_ContextFinal");
    EXPECT_EQ(LinesOfTheEvent(), (Lines{waitTag + "end, G_LastError = 0, line = 616"}));
}

// ---- The slot map over several waits ------------------------------------------------------------

TEST(SlotsOfAWait, are_read_anew) {
    TheRecorder().On("ValtoT_GetDeviceInfo").Writes(2, DeviceRecord("M"));
    Deliver(2, 9);
    { const Waited waited({1}); }
    EXPECT_EQ(g_WaitEventSlotMap, (SlotMap{{1, "M"}, {9, ""}}));
    { const Waited waited({2}); }
    EXPECT_EQ(g_WaitEventSlotMap, (SlotMap{{2, "M"}, {9, ""}}));
}

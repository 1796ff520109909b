// What WaitForKeyEvent answers to an arrival, a removal and any other event.
#include "event_test.h"

namespace {

const std::string arrival_tag = "VALTO_EVENT_INFO::SLOT_DEVICEARRIVAL  |";
const std::string removal_tag = "VALTO_EVENT_INFO::SLOT_DEVICEREMOVE |";
const std::string wait_tag = "SKF_WaitForDevEvent|";

// What stands in the log behind the three lines of the scan.
Lines lines_of_the_event() {
    const Lines lines = log_lines();
    return {lines.begin() + 3, lines.end()};
}

void answer_device(const std::string& media_id, int code = 0) {
    recorder().on("ValtoT_GetDeviceInfo").returns(code).writes(2, device_record(media_id));
}

std::string terminated(const std::string& text) {
    return text + std::string(1, '\0');
}

}  // namespace

// ---- Arrival ------------------------------------------------------------------------------------

TEST(Arrival, is_kind_1_with_the_media_id_of_the_device) {
    deliver(1, 5);
    answer_device("M1");
    const Waited waited;
    EXPECT_EQ(waited.code, 0);
    EXPECT_EQ(G_LastError, 0);
    EXPECT_EQ(waited.kind, 1U);
    EXPECT_EQ(waited.length, 2U);
    EXPECT_TRUE(waited.media_id.holds_only(terminated("M1")));
}

TEST(Arrival, reads_the_device_into_a_zeroed_record_before_it_closes_the_context) {
    deliver(1, 0x80000005);
    const Waited waited;
    EXPECT_EQ(trace(), (Lines{"ValtoT_GetSlotList(1, zero[64], &10)", "ValtoT_ContextInit(&0)",
                              "ValtoT_WaitForEvent(1, 0, zero[332], &0)",
                              "ValtoT_GetDeviceInfo(2147483653, 917504, zero[396])",
                              "ValtoT_ContextFinal()"}));
}

TEST(Arrival, logs_lines_596_600_603_and_616) {
    deliver(1, 5);
    answer_device("M1", 12);
    const Waited waited;
    EXPECT_EQ(lines_of_the_event(),
              (Lines{arrival_tag + " G_LastError = 0, line = 596",
                     arrival_tag + " event.ei.slotEvent.u32SlotID = 5, line = 600",
                     arrival_tag + " G_LastError = 12, line = 603",
                     wait_tag + "end, G_LastError = 12, line = 616"}));
}

TEST(Arrival, logs_the_slot_id_as_a_signed_number) {
    deliver(1, 0xFFFFFFFF);
    const Waited waited;
    EXPECT_EQ(lines_of_the_event().at(1),
              arrival_tag + " event.ei.slotEvent.u32SlotID = -1, line = 600");
}

TEST(Arrival, logs_the_last_error_of_the_moment_in_line_596) {
    deliver(1, 5);
    recorder().on("ValtoT_WaitForEvent").does([](const recording::Call&) { G_LastError = -9; });
    const Waited waited;
    EXPECT_EQ(lines_of_the_event().at(0), arrival_tag + " G_LastError = -9, line = 596");
    EXPECT_EQ(waited.code, 0);
}

TEST(Arrival, logs_lines_596_and_600_before_it_reads_the_device) {
    deliver(1, 5);
    Lines seen;
    recorder().on("ValtoT_GetDeviceInfo").does([&](const recording::Call&) {
        seen = lines_of_the_event();
    });
    const Waited waited;
    EXPECT_EQ(seen.size(), 2U);
}

TEST(Arrival, whose_device_cannot_be_read_returns_that_code_with_the_record_as_it_is) {
    deliver(1, 5);
    answer_device("half read", 12);
    const Waited waited;
    EXPECT_EQ(waited.code, 12);
    EXPECT_EQ(G_LastError, 12);
    EXPECT_EQ(waited.kind, 1U);
    EXPECT_EQ(waited.length, 9U);
    EXPECT_TRUE(waited.media_id.holds_only(terminated("half read")));
    EXPECT_EQ(recorder().names().back(), "ValtoT_ContextFinal");
}

TEST(Arrival, whose_record_stays_zeroed_has_an_empty_media_id) {
    deliver(1, 5);
    recorder().on("ValtoT_GetDeviceInfo").returns(12);
    const Waited waited;
    EXPECT_EQ(waited.length, 0U);
    EXPECT_TRUE(waited.media_id.holds_only(terminated("")));
}

TEST(Arrival, with_16_bytes_and_no_NUL_has_a_media_id_of_16) {
    deliver(1, 5);
    answer_device("0123456789ABCDEF");
    const Waited waited;
    EXPECT_EQ(waited.length, 16U);
    EXPECT_TRUE(waited.media_id.holds_only(terminated("0123456789ABCDEF")));
}

TEST(Arrival, is_not_put_into_the_slot_map) {
    deliver(1, 5);
    answer_device("M1");
    const Waited waited;
    EXPECT_EQ(g_WaitEventSlotMap, SlotMap{});
}

// ---- Removal ------------------------------------------------------------------------------------

TEST(Removal, is_kind_2_with_the_media_id_that_the_scan_read) {
    recorder().on("ValtoT_GetDeviceInfo", 1).writes(2, device_record("four"));
    recorder().on("ValtoT_GetDeviceInfo", 2).writes(2, device_record("five"));
    deliver(2, 5);
    const Waited waited({4, 5});
    EXPECT_EQ(waited.code, 0);
    EXPECT_EQ(waited.kind, 2U);
    EXPECT_EQ(waited.length, 4U);
    EXPECT_TRUE(waited.media_id.holds_only(terminated("five")));
}

TEST(Removal, asks_no_device_and_closes_the_context) {
    deliver(2, 5);
    const Waited waited;
    EXPECT_EQ(recorder().names(), (Lines{"ValtoT_GetSlotList", "ValtoT_ContextInit",
                                         "ValtoT_WaitForEvent", "ValtoT_ContextFinal"}));
}

TEST(Removal, leaves_the_entry_in_the_map) {
    recorder().on("ValtoT_GetDeviceInfo").writes(2, device_record("five"));
    deliver(2, 5);
    const Waited waited({5});
    EXPECT_EQ(g_WaitEventSlotMap, (SlotMap{{5, "five"}}));
}

TEST(Removal, of_a_key_that_the_scan_did_not_see_is_empty_and_enters_the_map) {
    deliver(2, 0xFFFFFFFF);
    const Waited waited;
    EXPECT_EQ(waited.code, 0);
    EXPECT_EQ(waited.kind, 2U);
    EXPECT_EQ(waited.length, 0U);
    EXPECT_TRUE(waited.media_id.holds_only(terminated("")));
    EXPECT_EQ(g_WaitEventSlotMap, (SlotMap{{0xFFFFFFFF, ""}}));
}

TEST(Removal, of_a_key_whose_scan_failed_is_empty) {
    recorder().on("ValtoT_GetDeviceInfo").returns(1).writes(2, device_record("five"));
    deliver(2, 5);
    const Waited waited({5});
    EXPECT_EQ(waited.length, 0U);
    EXPECT_EQ(g_WaitEventSlotMap, (SlotMap{{5, ""}}));
}

TEST(Removal, of_a_key_that_arrived_during_the_wait_before_is_empty) {
    deliver(1, 5);
    answer_device("M1");
    { const Waited arrived; }
    deliver(2, 5);
    const Waited waited;
    EXPECT_EQ(waited.length, 0U);
}

TEST(Removal, logs_lines_606_609_and_616) {
    deliver(2, 5);
    const Waited waited;
    EXPECT_EQ(lines_of_the_event(), (Lines{removal_tag + "G_LastError = 0, line = 606",
                                           removal_tag + " G_LastError = 0, line = 609",
                                           wait_tag + "end, G_LastError = 0, line = 616"}));
}

TEST(Removal, logs_the_last_error_of_the_moment_and_then_clears_it) {
    deliver(2, 5);
    recorder().on("ValtoT_WaitForEvent").does([](const recording::Call&) { G_LastError = -9; });
    const Waited waited;
    EXPECT_EQ(lines_of_the_event(), (Lines{removal_tag + "G_LastError = -9, line = 606",
                                           removal_tag + " G_LastError = -9, line = 609",
                                           wait_tag + "end, G_LastError = 0, line = 616"}));
    EXPECT_EQ(waited.code, 0);
    EXPECT_EQ(G_LastError, 0);
}

// ---- Any other kind -----------------------------------------------------------------------------

class EventOfAnotherKind : public testing::TestWithParam<unsigned> {};
INSTANTIATE_TEST_SUITE_P(Events, EventOfAnotherKind,
                         testing::Values(0U, 3U, 4U, 256U, 0x01000000U, 0xFFFFFFFFU));

TEST_P(EventOfAnotherKind, leaves_the_event_type_and_has_an_empty_media_id) {
    recorder().on("ValtoT_GetDeviceInfo").writes(2, device_record("five"));
    deliver(GetParam(), 5);
    const Waited waited({5});
    EXPECT_EQ(waited.code, 0);
    EXPECT_EQ(waited.kind, 77U);
    EXPECT_EQ(waited.length, 0U);
    EXPECT_TRUE(waited.media_id.holds_only(terminated("")));
    EXPECT_EQ(recorder().names().back(), "ValtoT_ContextFinal");
    EXPECT_EQ(lines_of_the_event(), (Lines{wait_tag + "end, G_LastError = 0, line = 616"}));
}

// ---- The slot map over several waits ------------------------------------------------------------

TEST(SlotsOfAWait, are_read_anew) {
    recorder().on("ValtoT_GetDeviceInfo").writes(2, device_record("M"));
    deliver(2, 9);
    { const Waited waited({1}); }
    EXPECT_EQ(g_WaitEventSlotMap, (SlotMap{{1, "M"}, {9, ""}}));
    { const Waited waited({2}); }
    EXPECT_EQ(g_WaitEventSlotMap, (SlotMap{{2, "M"}, {9, ""}}));
}

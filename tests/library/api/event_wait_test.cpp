// WaitForKeyEvent and StopDetectUKey on one thread: order, outputs, log.
#include <chrono>
#include <stdexcept>

#include "event_test.h"

namespace {

const Lines scan_lines = {"SKF_WaitForDevEvent|begin", "X_getCurrentSlots|before",
                          "X_getCurrentSlots|after"};

Lines with_scan(const Lines& rest) {
    Lines lines = scan_lines;
    lines.insert(lines.end(), rest.begin(), rest.end());
    return lines;
}

// The code of the nth poll.
void poll_answers(int nth, int code) {
    recorder().on("ValtoT_WaitForEvent", nth).returns(code);
}

}  // namespace

// ---- The size query -----------------------------------------------------------------------------

TEST(WaitForKeyEvent, answers_a_probe_with_17_without_scanning_or_waiting) {
    unsigned kind = 77, length = 0;
    G_LastError = unrelated_code;
    EXPECT_EQ(WaitForKeyEvent(&kind, nullptr, &length), 0);
    EXPECT_EQ(length, 17U);
    EXPECT_EQ(kind, 77U);
    EXPECT_EQ(G_LastError, 0);
    EXPECT_EQ(trace(), Lines{});
    EXPECT_TRUE(g_initFlag);
}

TEST(WaitForKeyEvent, needs_no_event_type_for_a_probe) {
    unsigned length = 0;
    EXPECT_EQ(WaitForKeyEvent(nullptr, nullptr, &length), 0);
    EXPECT_EQ(length, 17U);
}

TEST(WaitForKeyEvent, leaves_the_slot_map_for_a_probe) {
    recorder().on("ValtoT_GetDeviceInfo").writes(2, device_record("five"));
    const Waited waited({5});
    unsigned length = 0;
    WaitForKeyEvent(nullptr, nullptr, &length);
    EXPECT_EQ(g_WaitEventSlotMap, (SlotMap{{5, "five"}}));
}

TEST(WaitForKeyEvent, stores_0_for_a_probe_after_it_has_initialised) {
    Initialize();
    G_LastError = unrelated_code;
    unsigned length = 0;
    WaitForKeyEvent(nullptr, nullptr, &length);
    EXPECT_EQ(G_LastError, 0);
}

TEST(WaitForKeyEvent, logs_begin_and_line_560_for_a_probe) {
    unsigned length = 0;
    WaitForKeyEvent(nullptr, nullptr, &length);
    EXPECT_EQ(log_lines(), (Lines{"SKF_WaitForDevEvent|begin",
                                  "SKF_WaitForDevEvent|end, G_LastError = 0, line = 560"}));
}

// ---- Order --------------------------------------------------------------------------------------

TEST(WaitForKeyEvent, logs_begin_before_it_initialises_and_scans_after) {
    Lines at_first_use, at_scan;
    std::size_t looked_up = 0;
    recorder().when_looked_up([&] {
        if (at_first_use.empty()) at_first_use = log_lines();
    });
    recorder().on("ValtoT_GetSlotList").does([&](const recording::Call&) {
        at_scan = log_lines();
        looked_up = recorder().lookups().size();
    });
    const Waited waited;
    EXPECT_EQ(at_first_use, (Lines{"SKF_WaitForDevEvent|begin"}));
    EXPECT_EQ(at_scan, (Lines{"SKF_WaitForDevEvent|begin", "X_getCurrentSlots|before"}));
    EXPECT_EQ(looked_up, entry_points);
}

TEST(WaitForKeyEvent, scans_opens_a_context_polls_and_closes_it) {
    poll_answers(1, 1);
    const Waited waited;
    EXPECT_EQ(trace(),
              (Lines{"ValtoT_GetSlotList(1, zero[64], &10)", "ValtoT_ContextInit(&0)",
                     "ValtoT_WaitForEvent(1, 0, zero[332], &0)",
                     "ValtoT_WaitForEvent(1, 0, zero[332], &0)", "ValtoT_ContextFinal()"}));
}

TEST(WaitForKeyEvent, hands_the_opened_context_to_every_poll) {
    recorder().on("ValtoT_ContextInit").writes_number(0, 4711);
    poll_answers(1, -1);
    const Waited waited;
    const void* const context = recorder().only("ValtoT_ContextInit").at(0).address;
    ASSERT_EQ(recorder().calls("ValtoT_WaitForEvent").size(), 2U);
    for (const recording::Call& call : recorder().calls("ValtoT_WaitForEvent")) {
        EXPECT_EQ(call.at(3).address, context);
        EXPECT_EQ(call.at(3).value, 4711);
    }
}

TEST(WaitForKeyEvent, starts_each_wait_with_a_context_of_0) {
    recorder().on("ValtoT_ContextInit").writes_number(0, 4711);
    { const Waited waited; }
    const Waited waited;
    EXPECT_EQ(recorder().calls("ValtoT_ContextInit").at(1).at(0).value, 0);
}

TEST(WaitForKeyEvent, zeroes_the_event_record_once_and_not_at_each_poll) {
    recorder().on("ValtoT_WaitForEvent", 1).returns(1).writes(2, std::string(332, 'e'));
    const Waited waited;
    EXPECT_EQ(recorder().calls("ValtoT_WaitForEvent").at(0).bytes(2), std::string(332, '\0'));
    EXPECT_EQ(recorder().calls("ValtoT_WaitForEvent").at(1).bytes(2), std::string(332, 'e'));
}

TEST(WaitForKeyEvent, clears_the_last_error_before_it_opens_the_context) {
    Initialize();
    int at_scan = 0, at_open = unrelated_code;
    recorder().on("ValtoT_GetSlotList").does([&](const recording::Call&) {
        at_scan = G_LastError;
    });
    recorder().on("ValtoT_ContextInit").does([&](const recording::Call&) {
        at_open = G_LastError;
    });
    G_LastError = unrelated_code;
    const Waited waited;
    EXPECT_EQ(at_scan, unrelated_code);
    EXPECT_EQ(at_open, 0);
}

TEST(WaitForKeyEvent, sleeps_20_milliseconds_after_each_poll_without_an_event) {
    for (int nth = 1; nth <= 5; ++nth) poll_answers(nth, nth % 2 ? 1 : -1);
    const auto start = std::chrono::steady_clock::now();
    const Waited waited;
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(100));
    EXPECT_EQ(recorder().calls("ValtoT_WaitForEvent").size(), 6U);
}

// ---- A context that cannot be opened ------------------------------------------------------------

TEST(WaitForKeyEvent, returns_the_code_of_a_context_that_cannot_be_opened) {
    recorder().on("ValtoT_ContextInit").returns(-33);
    const Waited waited;
    EXPECT_EQ(waited.code, -33);
    EXPECT_EQ(G_LastError, -33);
    EXPECT_EQ(waited.kind, 77U);
    EXPECT_EQ(waited.length, 77U);
    EXPECT_TRUE(waited.media_id.untouched());
    EXPECT_EQ(recorder().names(), (Lines{"ValtoT_GetSlotList", "ValtoT_ContextInit"}));
}

TEST(WaitForKeyEvent, logs_line_571_for_a_context_that_cannot_be_opened) {
    recorder().on("ValtoT_ContextInit").returns(-33);
    const Waited waited;
    EXPECT_EQ(log_lines(), with_scan({"SKF_WaitForDevEvent|end, G_LastError = -33, line = 571"}));
}

// ---- Exceptions out of the event library --------------------------------------------------------

TEST(WaitForKeyEvent, survives_exceptions_of_any_type_and_keeps_polling) {
    recorder().on("ValtoT_WaitForEvent", 1).does([](const recording::Call&) {
        throw std::runtime_error("gone");
    });
    recorder().on("ValtoT_WaitForEvent", 2).does([](const recording::Call&) { throw 42; });
    const Waited waited;
    EXPECT_EQ(waited.code, 0);
    EXPECT_EQ(recorder().calls("ValtoT_WaitForEvent").size(), 3U);
    EXPECT_EQ(log_lines(),
              with_scan({"SKF_WaitForDevEvent| end in catch ,G_LastError = 0, line = 582",
                         "SKF_WaitForDevEvent| end in catch ,G_LastError = 0, line = 582",
                         "SKF_WaitForDevEvent|end, G_LastError = 0, line = 616"}));
}

TEST(WaitForKeyEvent, logs_the_last_error_of_the_moment_with_an_exception) {
    recorder().on("ValtoT_WaitForEvent", 1).does([](const recording::Call&) {
        G_LastError = -404;
        throw 1;
    });
    const Waited waited;
    EXPECT_EQ(log_lines().at(3),
              "SKF_WaitForDevEvent| end in catch ,G_LastError = -404, line = 582");
}

TEST(WaitForKeyEvent, sleeps_after_an_exception_too) {
    for (int nth = 1; nth <= 3; ++nth) {
        recorder().on("ValtoT_WaitForEvent", nth).does([](const recording::Call&) { throw 1; });
    }
    const auto start = std::chrono::steady_clock::now();
    const Waited waited;
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(60));
}

// ---- A stop -------------------------------------------------------------------------------------

TEST(WaitForKeyEvent, stopped_reports_kind_3_and_leaves_the_media_id) {
    recorder().on("ValtoT_WaitForEvent").returns(1);
    recorder().on("ValtoT_WaitForEvent", 2).returns(1).does([](const recording::Call&) {
        StopDetectUKey();
    });
    const Waited waited;
    EXPECT_EQ(waited.code, 0);
    EXPECT_EQ(G_LastError, 0);
    EXPECT_EQ(waited.kind, 3U);
    EXPECT_EQ(waited.length, 77U);
    EXPECT_TRUE(waited.media_id.untouched());
    EXPECT_EQ(log_lines(), scan_lines);
}

TEST(WaitForKeyEvent, polls_no_more_after_a_stop_and_leaves_the_context_open) {
    recorder().on("ValtoT_WaitForEvent").returns(1);
    recorder().on("ValtoT_WaitForEvent", 2).returns(1).does([](const recording::Call&) {
        StopDetectUKey();
    });
    const Waited waited;
    EXPECT_EQ(recorder().names(), (Lines{"ValtoT_GetSlotList", "ValtoT_ContextInit",
                                         "ValtoT_WaitForEvent", "ValtoT_WaitForEvent"}));
}

TEST(WaitForKeyEvent, prefers_a_stop_to_an_event_that_arrives_with_it) {
    deliver(1, 5);
    recorder().on("ValtoT_WaitForEvent").does([](const recording::Call&) { StopDetectUKey(); });
    const Waited waited;
    EXPECT_EQ(waited.code, 0);
    EXPECT_EQ(waited.kind, 3U);
    EXPECT_EQ(waited.length, 77U);
    EXPECT_TRUE(waited.media_id.untouched());
    EXPECT_EQ(recorder().names().back(), "ValtoT_WaitForEvent");
    EXPECT_EQ(log_lines(), scan_lines);
}

TEST(WaitForKeyEvent, stopped_returns_0_whatever_others_have_stored) {
    recorder().on("ValtoT_WaitForEvent").returns(1).does([](const recording::Call&) {
        StopDetectUKey();
        G_LastError = unrelated_code;
    });
    const Waited waited;
    EXPECT_EQ(waited.code, 0);
}

TEST(WaitForKeyEvent, does_not_remember_a_stop_from_before_it_began) {
    StopDetectUKey();
    const Waited waited;
    EXPECT_EQ(waited.kind, 77U);
    EXPECT_EQ(recorder().names().back(), "ValtoT_ContextFinal");
}

TEST(WaitForKeyEvent, loses_a_stop_that_comes_while_it_scans) {
    recorder().on("ValtoT_GetSlotList").does([](const recording::Call&) { StopDetectUKey(); });
    deliver(2, 5);
    const Waited waited;
    EXPECT_EQ(waited.kind, 2U);
}

TEST(WaitForKeyEvent, heeds_a_stop_that_comes_while_the_context_is_opened) {
    recorder().on("ValtoT_ContextInit").does([](const recording::Call&) { StopDetectUKey(); });
    deliver(2, 5);
    const Waited waited;
    EXPECT_EQ(waited.kind, 3U);
    EXPECT_EQ(recorder().names(), (Lines{"ValtoT_GetSlotList", "ValtoT_ContextInit"}));
}

TEST(WaitForKeyEvent, can_wait_again_after_a_stop) {
    recorder().on("ValtoT_WaitForEvent", 1).returns(1).does([](const recording::Call&) {
        StopDetectUKey();
    });
    { const Waited stopped; }
    deliver(2, 5);
    const Waited waited;
    EXPECT_EQ(waited.kind, 2U);
}

TEST(StopDetectUKey, initialises_clears_the_last_error_and_logs_nothing) {
    Initialize();
    Finalize();
    G_LastError = unrelated_code;
    EXPECT_EQ(StopDetectUKey(), 0);
    EXPECT_EQ(G_LastError, 0);
    EXPECT_TRUE(g_initFlag);
    EXPECT_EQ(trace(), Lines{});
    EXPECT_FALSE(log_exists());
}

TEST(StopDetectUKey, clears_the_last_error_when_initialised_already) {
    Initialize();
    G_LastError = unrelated_code;
    EXPECT_EQ(StopDetectUKey(), 0);
    EXPECT_EQ(G_LastError, 0);
}

// WaitForKeyEvent and StopDetectUKey on one thread: order, outputs, log.
#include <chrono>
#include <stdexcept>

#include "event_test.h"

namespace {

const Lines scanLines = {"SKF_WaitForDevEvent|begin", "X_getCurrentSlots|before",
                         "X_getCurrentSlots|after"};

Lines WithScan(const Lines& rest) {
    Lines lines = scanLines;
    lines.insert(lines.end(), rest.begin(), rest.end());
    return lines;
}

// The code of the nth poll.
void PollAnswers(int nth, int code) {
    TheRecorder().On("ValtoT_WaitForEvent", nth).Returns(code);
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
    EXPECT_EQ(Trace(), Lines{});
    EXPECT_TRUE(g_initFlag);
}

TEST(WaitForKeyEvent, needs_no_event_type_for_a_probe) {
    unsigned length = 0;
    EXPECT_EQ(WaitForKeyEvent(nullptr, nullptr, &length), 0);
    EXPECT_EQ(length, 17U);
}

TEST(WaitForKeyEvent, leaves_the_slot_map_for_a_probe) {
    TheRecorder().On("ValtoT_GetDeviceInfo").Writes(2, DeviceRecord("five"));
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
    EXPECT_EQ(LogLines(), (Lines{"SKF_WaitForDevEvent|begin",
                                 "SKF_WaitForDevEvent|end, G_LastError = 0, line = 560"}));
}

// ---- Order --------------------------------------------------------------------------------------

TEST(WaitForKeyEvent, logs_begin_before_it_initialises_and_scans_after) {
    Lines atFirstUse, atScan;
    std::size_t lookedUp = 0;
    TheRecorder().WhenLookedUp([&] {
        if (atFirstUse.empty()) atFirstUse = LogLines();
    });
    TheRecorder().On("ValtoT_GetSlotList").Does([&](const recording::Call&) {
        atScan = LogLines();
        lookedUp = TheRecorder().Lookups().size();
    });
    const Waited waited;
    EXPECT_EQ(atFirstUse, (Lines{"SKF_WaitForDevEvent|begin"}));
    EXPECT_EQ(atScan, (Lines{"SKF_WaitForDevEvent|begin", "X_getCurrentSlots|before"}));
    EXPECT_EQ(lookedUp, entry_points);
}

TEST(WaitForKeyEvent, scans_opens_a_context_polls_and_closes_it) {
    PollAnswers(1, 1);
    const Waited waited;
    EXPECT_EQ(Trace(),
              (Lines{"ValtoT_GetSlotList(1, zero[64], &10)", "ValtoT_ContextInit(&0)",
                     "ValtoT_WaitForEvent(1, 0, zero[332], &0)",
                     "ValtoT_WaitForEvent(1, 0, zero[332], &0)", "ValtoT_ContextFinal()"}));
}

TEST(WaitForKeyEvent, hands_the_opened_context_to_every_poll) {
    TheRecorder().On("ValtoT_ContextInit").WritesNumber(0, 4711);
    PollAnswers(1, -1);
    const Waited waited;
    const void* const context = TheRecorder().Only("ValtoT_ContextInit").At(0).address;
    ASSERT_EQ(TheRecorder().Calls("ValtoT_WaitForEvent").size(), 2U);
    for (const recording::Call& call : TheRecorder().Calls("ValtoT_WaitForEvent")) {
        EXPECT_EQ(call.At(3).address, context);
        EXPECT_EQ(call.At(3).value, 4711);
    }
}

TEST(WaitForKeyEvent, starts_each_wait_with_a_context_of_0) {
    TheRecorder().On("ValtoT_ContextInit").WritesNumber(0, 4711);
    { const Waited waited; }
    const Waited waited;
    EXPECT_EQ(TheRecorder().Calls("ValtoT_ContextInit").at(1).At(0).value, 0);
}

TEST(WaitForKeyEvent, zeroes_the_event_record_once_and_not_at_each_poll) {
    TheRecorder().On("ValtoT_WaitForEvent", 1).Returns(1).Writes(2, std::string(332, 'e'));
    const Waited waited;
    EXPECT_EQ(TheRecorder().Calls("ValtoT_WaitForEvent").at(0).Bytes(2), std::string(332, '\0'));
    EXPECT_EQ(TheRecorder().Calls("ValtoT_WaitForEvent").at(1).Bytes(2), std::string(332, 'e'));
}

TEST(WaitForKeyEvent, clears_the_last_error_before_it_opens_the_context) {
    Initialize();
    int atScan = 0, atOpen = unrelated_code;
    TheRecorder().On("ValtoT_GetSlotList").Does([&](const recording::Call&) {
        atScan = G_LastError;
    });
    TheRecorder().On("ValtoT_ContextInit").Does([&](const recording::Call&) {
        atOpen = G_LastError;
    });
    G_LastError = unrelated_code;
    const Waited waited;
    EXPECT_EQ(atScan, unrelated_code);
    EXPECT_EQ(atOpen, 0);
}

TEST(WaitForKeyEvent, sleeps_20_milliseconds_after_each_poll_without_an_event) {
    for (int nth = 1; nth <= 5; ++nth) PollAnswers(nth, nth % 2 ? 1 : -1);
    const auto start = std::chrono::steady_clock::now();
    const Waited waited;
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(100));
    EXPECT_EQ(TheRecorder().Calls("ValtoT_WaitForEvent").size(), 6U);
}

// ---- A context that cannot be opened ------------------------------------------------------------

TEST(WaitForKeyEvent, returns_the_code_of_a_context_that_cannot_be_opened) {
    TheRecorder().On("ValtoT_ContextInit").Returns(-33);
    const Waited waited;
    EXPECT_EQ(waited.code, -33);
    EXPECT_EQ(G_LastError, -33);
    EXPECT_EQ(waited.kind, 77U);
    EXPECT_EQ(waited.length, 77U);
    EXPECT_TRUE(waited.mediaId.Untouched());
    EXPECT_EQ(TheRecorder().Names(), (Lines{"ValtoT_GetSlotList", "ValtoT_ContextInit"}));
}

TEST(WaitForKeyEvent, logs_line_571_for_a_context_that_cannot_be_opened) {
    TheRecorder().On("ValtoT_ContextInit").Returns(-33);
    const Waited waited;
    EXPECT_EQ(LogLines(), WithScan({"SKF_WaitForDevEvent|end, G_LastError = -33, line = 571"}));
}

// ---- Exceptions out of the event library --------------------------------------------------------

TEST(WaitForKeyEvent, survives_exceptions_of_any_type_and_keeps_polling) {
    TheRecorder().On("ValtoT_WaitForEvent", 1).Does([](const recording::Call&) {
        throw std::runtime_error("gone");
    });
    TheRecorder().On("ValtoT_WaitForEvent", 2).Does([](const recording::Call&) { throw 42; });
    const Waited waited;
    EXPECT_EQ(waited.code, 0);
    EXPECT_EQ(TheRecorder().Calls("ValtoT_WaitForEvent").size(), 3U);
    EXPECT_EQ(LogLines(),
              WithScan({"SKF_WaitForDevEvent| end in catch ,G_LastError = 0, line = 582",
                        "SKF_WaitForDevEvent| end in catch ,G_LastError = 0, line = 582",
                        "SKF_WaitForDevEvent|end, G_LastError = 0, line = 616"}));
}

TEST(WaitForKeyEvent, logs_the_last_error_of_the_moment_with_an_exception) {
    TheRecorder().On("ValtoT_WaitForEvent", 1).Does([](const recording::Call&) {
        G_LastError = -404;
        throw 1;
    });
    const Waited waited;
    EXPECT_EQ(LogLines().at(3),
              "SKF_WaitForDevEvent| end in catch ,G_LastError = -404, line = 582");
}

TEST(WaitForKeyEvent, sleeps_after_an_exception_too) {
    for (int nth = 1; nth <= 3; ++nth) {
        TheRecorder().On("ValtoT_WaitForEvent", nth).Does([](const recording::Call&) { throw 1; });
    }
    const auto start = std::chrono::steady_clock::now();
    const Waited waited;
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(60));
}

// ---- A stop -------------------------------------------------------------------------------------

TEST(WaitForKeyEvent, stopped_reports_kind_3_and_leaves_the_media_id) {
    TheRecorder().On("ValtoT_WaitForEvent").Returns(1);
    TheRecorder().On("ValtoT_WaitForEvent", 2).Returns(1).Does([](const recording::Call&) {
        StopDetectUKey();
    });
    const Waited waited;
    EXPECT_EQ(waited.code, 0);
    EXPECT_EQ(G_LastError, 0);
    EXPECT_EQ(waited.kind, 3U);
    EXPECT_EQ(waited.length, 77U);
    EXPECT_TRUE(waited.mediaId.Untouched());
    EXPECT_EQ(LogLines(), scanLines);
}

TEST(WaitForKeyEvent, polls_no_more_after_a_stop_and_leaves_the_context_open) {
    TheRecorder().On("ValtoT_WaitForEvent").Returns(1);
    TheRecorder().On("ValtoT_WaitForEvent", 2).Returns(1).Does([](const recording::Call&) {
        StopDetectUKey();
    });
    const Waited waited;
    EXPECT_EQ(TheRecorder().Names(), (Lines{"ValtoT_GetSlotList", "ValtoT_ContextInit",
                                            "ValtoT_WaitForEvent", "ValtoT_WaitForEvent"}));
}

TEST(WaitForKeyEvent, prefers_a_stop_to_an_event_that_arrives_with_it) {
    Deliver(1, 5);
    TheRecorder().On("ValtoT_WaitForEvent").Does([](const recording::Call&) { StopDetectUKey(); });
    const Waited waited;
    EXPECT_EQ(waited.code, 0);
    EXPECT_EQ(waited.kind, 3U);
    EXPECT_EQ(waited.length, 77U);
    EXPECT_TRUE(waited.mediaId.Untouched());
    EXPECT_EQ(TheRecorder().Names().back(), "ValtoT_WaitForEvent");
    EXPECT_EQ(LogLines(), scanLines);
}

TEST(WaitForKeyEvent, stopped_returns_0_whatever_others_have_stored) {
    TheRecorder().On("ValtoT_WaitForEvent").Returns(1).Does([](const recording::Call&) {
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
    EXPECT_EQ(TheRecorder().Names().back(), "ValtoT_ContextFinal");
}

TEST(WaitForKeyEvent, loses_a_stop_that_comes_while_it_scans) {
    TheRecorder().On("ValtoT_GetSlotList").Does([](const recording::Call&) { StopDetectUKey(); });
    Deliver(2, 5);
    const Waited waited;
    EXPECT_EQ(waited.kind, 2U);
}

TEST(WaitForKeyEvent, heeds_a_stop_that_comes_while_the_context_is_opened) {
    TheRecorder().On("ValtoT_ContextInit").Does([](const recording::Call&) { StopDetectUKey(); });
    Deliver(2, 5);
    const Waited waited;
    EXPECT_EQ(waited.kind, 3U);
    EXPECT_EQ(TheRecorder().Names(), (Lines{"ValtoT_GetSlotList", "ValtoT_ContextInit"}));
}

TEST(WaitForKeyEvent, can_wait_again_after_a_stop) {
    TheRecorder().On("ValtoT_WaitForEvent", 1).Returns(1).Does([](const recording::Call&) {
        StopDetectUKey();
    });
    { const Waited stopped; }
    Deliver(2, 5);
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
    EXPECT_EQ(Trace(), Lines{});
    EXPECT_FALSE(LogExists());
}

TEST(StopDetectUKey, clears_the_last_error_when_initialised_already) {
    Initialize();
    G_LastError = unrelated_code;
    EXPECT_EQ(StopDetectUKey(), 0);
    EXPECT_EQ(G_LastError, 0);
}

// A wait on one thread, its stop on another, other exports on a third. Also meant to be run under
// ThreadSanitizer: the tests look at nothing that a running wait writes.
#include <algorithm>

#include "every_export.h"
#include "waiting_thread.h"

using std::chrono::milliseconds;
using std::chrono::steady_clock;

TEST(WaitAndStop, on_two_threads_end_as_kind_3) {
    const Polls polls;
    WaitingThread waiting;
    polls.WaitFor(2);
    StopDetectUKey();
    waiting.Join();
    EXPECT_EQ(waiting.code, 0);
    EXPECT_EQ(waiting.kind, 3U);
    EXPECT_EQ(waiting.length, 77U);
    EXPECT_TRUE(waiting.mediaId.Untouched());
}

TEST(WaitAndStop, poll_at_most_once_more_after_the_stop) {
    const Polls polls;
    WaitingThread waiting;
    polls.WaitFor(2);
    StopDetectUKey();
    const int atStop = polls.Count();
    waiting.Join();
    EXPECT_LE(polls.Count(), atStop + 1);
}

// One interval is 20 milliseconds. One stop of many has to be as quick, since the machine may be
// busy.
TEST(WaitAndStop, end_within_one_poll_interval) {
    constexpr auto limit = milliseconds(50);
    const Polls polls;
    auto quickest = steady_clock::duration::max();
    for (int round = 0; round < 200 && quickest > limit; ++round) {
        WaitingThread waiting;
        polls.WaitFor(2);
        const auto start = steady_clock::now();
        StopDetectUKey();
        waiting.Join();
        quickest = std::min(quickest, steady_clock::now() - start);
    }
    EXPECT_LE(quickest, limit);
}

TEST(WaitAndStop, leave_a_wait_that_was_not_stopped_running) {
    const Polls polls;
    WaitingThread waiting;
    polls.WaitFor(3);
    EXPECT_FALSE(waiting.Returned());
    waiting.StopAndJoin();
    EXPECT_EQ(waiting.kind, 3U);
}

TEST(WaitAndStop, can_be_repeated) {
    const Polls polls;
    for (int round = 0; round < 20; ++round) {
        WaitingThread waiting;
        waiting.StopAndJoin();
        EXPECT_EQ(waiting.kind, 3U);
        EXPECT_EQ(waiting.code, 0);
    }
}

TEST(WaitAndStop, let_a_probe_on_a_third_thread_neither_scan_nor_end_the_wait) {
    const Polls polls;
    WaitingThread waiting;
    polls.WaitFor(1);
    unsigned length = 0;
    std::thread([&length] { WaitForKeyEvent(nullptr, nullptr, &length); }).join();
    EXPECT_EQ(length, 17U);
    polls.WaitFor(3);
    EXPECT_FALSE(waiting.Returned());
    EXPECT_EQ(TheRecorder().Calls("ValtoT_GetSlotList").size(), 1U);
    waiting.StopAndJoin();
}

TEST(WaitAndStop, let_an_event_of_another_thread_end_the_wait) {
    std::atomic<bool> event{false};
    TheRecorder().On("ValtoT_WaitForEvent").Does([&event](const recording::Call&) {
        while (!event) std::this_thread::sleep_for(milliseconds(1));
    });
    TheRecorder().On("ValtoT_WaitForEvent").Writes(2, EventRecord(2, 5));
    WaitingThread waiting;
    event = true;
    waiting.Join();
    EXPECT_EQ(waiting.kind, 2U);
    EXPECT_EQ(waiting.length, 0U);
}

namespace {

// Exports that ask the token, that answer alone, that log.
void UseOtherExports() {
    char text[9000];
    unsigned length = sizeof text;
    int room = sizeof text;
    EXPECT_EQ(VerifyPIN("A1"), 0);
    EXPECT_EQ(SetLabel("A1", "label"), 0);
    EXPECT_EQ(GetData("name567890", 1, text, &room), 0);
    EXPECT_EQ(GetErrorMsg(1, nullptr, &room), 0);
    EXPECT_EQ(ChangePin("A1"), 0);
    EXPECT_EQ(GetPrintNumber(text, &length), 0);
    EXPECT_EQ(GetDllVersion(text, &length), 0);
    EXPECT_EQ(GenerateCertRequest("A1", "CertType(1)", nullptr, &room), 0);
    EXPECT_EQ(ImportX509Cert("A1", "cert"), 0);
    GetLastErrCode(&length);
}

}  // namespace

TEST(WaitAndStop, run_beside_other_exports_on_a_third_thread) {
    TheRecorder().On("GMCreatePKCS10").Request("request");
    const Polls polls;
    std::atomic<bool> done{false};
    std::atomic<int> rounds{0};
    std::thread third([&] {
        for (; !done; ++rounds) UseOtherExports();
    });
    for (int round = 0; round < 5; ++round) {
        WaitingThread waiting;
        polls.WaitFor(2);
        // One round at least lies wholly inside the wait.
        const int enough = rounds + 2;
        while (rounds < enough) std::this_thread::sleep_for(milliseconds(1));
        waiting.StopAndJoin();
        EXPECT_EQ(waiting.kind, 3U);
    }
    done = true;
    third.join();
    EXPECT_EQ(TheRecorder().LiveRequests(), 0);
}

TEST(WaitAndStop, run_beside_every_other_export_on_a_third_thread) {
    const Polls polls;
    WaitingThread waiting;
    polls.WaitFor(2);
    std::thread([] {
        for (const Export& which : EveryExport()) {
            if (which.name != "StopDetectUKey") which.Make();
        }
    }).join();
    polls.WaitFor(2);
    EXPECT_FALSE(waiting.Returned());
    waiting.StopAndJoin();
    EXPECT_EQ(waiting.kind, 3U);
}

TEST(WaitAndStop, run_beside_exceptions_out_of_the_event_library) {
    std::atomic<int> thrown{0};
    TheRecorder().On("ValtoT_WaitForEvent").Does([&thrown](const recording::Call&) {
        ++thrown;
        throw 1;
    });
    WaitingThread waiting;
    while (thrown < 2) UseOtherExports();
    waiting.StopAndJoin();
    EXPECT_EQ(waiting.kind, 3U);
}

TEST(WaitAndStop, run_beside_a_library_that_is_finalized_and_bound_again) {
    const Polls polls;
    WaitingThread waiting;
    for (int round = 0; round < 20; ++round) {
        Finalize();
        EXPECT_EQ(Initialize(), 0);
    }
    polls.WaitFor(1);
    waiting.StopAndJoin();
    EXPECT_EQ(waiting.kind, 3U);
}

TEST(FirstUse, on_several_threads_at_once_binds_for_all) {
    std::atomic<int> ready{0};
    std::vector<std::thread> threads;
    for (int number = 0; number < 4; ++number) {
        threads.emplace_back([&ready] {
            ++ready;
            while (ready < 4) std::this_thread::yield();
            EXPECT_EQ(VerifyPIN("A1"), 0);
            EXPECT_EQ(GetVendorInfo(3, nullptr, nullptr), -300);
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_TRUE(g_initFlag);
    EXPECT_EQ(TheRecorder().Calls("VerifyPIN").size(), 4U);
}

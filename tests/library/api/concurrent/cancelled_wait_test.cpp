// A thread that is cancelled inside WaitForKeyEvent unwinds: the catch that survives exceptions of
// the event library must not stop it.
//
// Not in a build with AddressSanitizer: it does not see the unwinding of a cancelled thread, keeps
// the frames poisoned, and then stumbles over them itself.

#ifndef KESTA_ADDRESS_SANITIZED

#include <pthread.h>
#include <unistd.h>

#include "waiting_thread.h"

namespace {

std::atomic<int> unwound{0};

struct CountsItsEnd {
    ~CountsItsEnd() { ++unwound; }
};

void* WaitForEvent(void*) {
    const CountsItsEnd local;
    unsigned kind = 0, length = 0;
    char mediaId[17];
    WaitForKeyEvent(&kind, mediaId, &length);
    return nullptr;
}

// Cancels a waiting thread once ready says so, and tells whether it was cancelled indeed.
template <class Ready>
bool Cancelled(Ready ready) {
    pthread_t thread;
    EXPECT_EQ(pthread_create(&thread, nullptr, WaitForEvent, nullptr), 0);
    while (!ready()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    EXPECT_EQ(pthread_cancel(thread), 0);
    void* result = nullptr;
    EXPECT_EQ(pthread_join(thread, &result), 0);
    return result == PTHREAD_CANCELED;
}

Lines WithoutBeginAndScan(const Lines& lines) {
    return {lines.begin() + 3, lines.end()};
}

}  // namespace

TEST(CancelledWait, unwinds_out_of_the_event_library) {
    OfferSlots({});
    std::atomic<bool> inside{false};
    TheRecorder().On("ValtoT_WaitForEvent").Does([&inside](const recording::Call&) {
        inside = true;
        for (;;) pause();
    });
    EXPECT_TRUE(Cancelled([&inside] { return inside.load(); }));
    EXPECT_EQ(unwound, 1);
    EXPECT_EQ(WithoutBeginAndScan(LogLines()), Lines{});
}

TEST(CancelledWait, unwinds_out_of_its_sleep) {
    OfferSlots({});
    for (int round = 1; round <= 20; ++round) {
        const Polls polls;
        EXPECT_TRUE(Cancelled([&polls] { return polls.Count() > 1; }));
        EXPECT_EQ(unwound, round);
    }
}

TEST(CancelledWait, unwinds_when_the_event_library_throws_too) {
    OfferSlots({});
    std::atomic<int> thrown{0};
    TheRecorder().On("ValtoT_WaitForEvent").Does([&thrown](const recording::Call&) {
        ++thrown;
        throw 1;
    });
    EXPECT_TRUE(Cancelled([&thrown] { return thrown > 1; }));
    EXPECT_EQ(unwound, 1);
}

// The cancellation is there before the record of the exception is written.
TEST(CancelledWait, unwinds_behind_a_record_that_it_has_written_whole) {
    OfferSlots({});
    TheRecorder().On("ValtoT_WaitForEvent").Does([](const recording::Call&) {
        pthread_cancel(pthread_self());
        throw 1;
    });
    pthread_t thread;
    ASSERT_EQ(pthread_create(&thread, nullptr, WaitForEvent, nullptr), 0);
    void* result = nullptr;
    ASSERT_EQ(pthread_join(thread, &result), 0);
    EXPECT_EQ(result, PTHREAD_CANCELED);
    EXPECT_EQ(WithoutBeginAndScan(LogLines()),
              (Lines{"SKF_WaitForDevEvent| end in catch ,G_LastError = 0, line = 582"}));
}

TEST(CancelledWait, leaves_the_next_wait_as_it_should_be) {
    {
        OfferSlots({});
        const Polls polls;
        EXPECT_TRUE(Cancelled([&polls] { return polls.Count() > 0; }));
    }
    const Polls polls;
    WaitingThread waiting;
    polls.WaitFor(2);
    waiting.StopAndJoin();
    EXPECT_EQ(waiting.kind, 3U);
}

#endif

// A client that has a nanosleep of its own, which the library calls in place of the runtime's: how
// long a wait sleeps between its polls can be told exactly, on a machine however busy.
#include <ctime>

#include "event_test.h"

namespace {

struct Sleep {
    timespec interval;
    int pollsBefore;
};

std::vector<Sleep> sleeps;
int polls = 0;

// Polls so often without an event, and then with one.
void AnswerPolls(int withoutEvent) {
    for (int nth = 1; nth <= withoutEvent; ++nth) {
        TheRecorder().On("ValtoT_WaitForEvent", nth).Returns(nth % 2 ? 1 : -1);
        TheRecorder().On("ValtoT_WaitForEvent", nth).Does([](const recording::Call&) { ++polls; });
    }
    Deliver(2, 5);
    TheRecorder().On("ValtoT_WaitForEvent").Does([](const recording::Call&) { ++polls; });
}

}  // namespace

extern "C" __attribute__((visibility("default"))) int nanosleep(const timespec* interval,
                                                                timespec*) {
    sleeps.push_back({*interval, polls});
    return 0;
}

TEST(SleepOfAWait, lasts_20_milliseconds_behind_each_poll_without_an_event) {
    AnswerPolls(3);
    const Waited waited;
    EXPECT_EQ(waited.kind, 2U);
    ASSERT_EQ(sleeps.size(), 3U);
    for (int nth = 0; nth < 3; ++nth) {
        const Sleep& sleep = sleeps[static_cast<std::size_t>(nth)];
        EXPECT_EQ(sleep.interval.tv_sec, 0);
        EXPECT_EQ(sleep.interval.tv_nsec, 20000000);
        EXPECT_EQ(sleep.pollsBefore, nth + 1);
    }
}

TEST(SleepOfAWait, is_left_out_when_the_first_poll_finds_an_event) {
    AnswerPolls(0);
    const Waited waited;
    EXPECT_EQ(polls, 1);
    EXPECT_TRUE(sleeps.empty());
}

TEST(SleepOfAWait, follows_an_exception_too) {
    TheRecorder().On("ValtoT_WaitForEvent", 1).Does([](const recording::Call&) { throw 1; });
    Deliver(2, 5);
    const Waited waited;
    ASSERT_EQ(sleeps.size(), 1U);
    EXPECT_EQ(sleeps[0].interval.tv_nsec, 20000000);
}

TEST(SleepOfAWait, follows_a_stop_that_comes_during_the_poll_and_ends_the_wait) {
    TheRecorder().On("ValtoT_WaitForEvent").Returns(1).Does([](const recording::Call&) {
        ++polls;
        StopDetectUKey();
    });
    const Waited waited;
    EXPECT_EQ(waited.kind, 3U);
    EXPECT_EQ(polls, 1);
    EXPECT_EQ(sleeps.size(), 1U);
}

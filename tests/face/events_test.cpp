// Waiting for events and, above all, ceasing to.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "kesta/ukey.hpp"
#include "stand_in.h"

namespace kesta {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using Clock = std::chrono::steady_clock;

class Events : public testing::Test {
protected:
    void SetUp() override { stand_in().Reset(); }

    static void Happen(unsigned kind, const std::string& mediaId, int code = 0) {
        const std::lock_guard<std::mutex> lock(stand_in().mutex);
        stand_in().occurrences.push_back({kind, mediaId, code});
    }

    const Library library = Library::Linked();
};

TEST_F(Events, wait_answers_kind_and_media_id) {
    Happen(KESTA_EVENT_REMOVAL, "MEDIA-1");
    const Event event = library.WaitForKeyEvent();
    EXPECT_EQ(event.kind, Event::Kind::kRemoval);
    EXPECT_EQ(event.mediaId, "MEDIA-1");
}

TEST_F(Events, wait_ends_when_another_thread_stops_it) {
    std::atomic<bool> over{false};
    std::thread other([&] {
        while (!over) {
            library.StopDetectUKey();
            std::this_thread::sleep_for(milliseconds(1));
        }
    });
    EXPECT_EQ(library.WaitForKeyEvent().kind, Event::Kind::kStopped);
    over = true;
    other.join();
}

TEST_F(Events, arrived_key_that_cannot_be_read_is_an_event_with_a_code) {
    Happen(KESTA_EVENT_ARRIVAL, "", 0x5B12);
    const Event event = library.WaitForKeyEvent();
    EXPECT_EQ(event.kind, Event::Kind::kArrival);
    EXPECT_EQ(event.code, 0x5B12);
}

TEST_F(Events, event_of_another_kind_is_told_as_such) {
    Happen(9, "");
    EXPECT_EQ(library.WaitForKeyEvent().kind, Event::Kind::kOther);
}

TEST_F(Events, length_of_the_media_id_is_not_trusted) {
    Happen(KESTA_EVENT_ARRIVAL, "0123456789ABCDEF");
    stand_in().reported = 0xffffffffU;
    EXPECT_EQ(library.WaitForKeyEvent().mediaId, "0123456789ABCDEF");
}

TEST_F(Events, wait_that_cannot_begin_is_a_failure) {
    stand_in().waitFailure = 0x5B72;
    const auto failed = library.Try().WaitForKeyEvent();
    EXPECT_EQ(failed.code(), 0x5B72);
    EXPECT_EQ(failed.failure().operation, "WaitForKeyEvent");
}

TEST_F(Events, waiter_queues_events_in_order) {
    EventWaiter waiter(library);
    Happen(KESTA_EVENT_ARRIVAL, "A");
    Happen(KESTA_EVENT_REMOVAL, "B");
    const auto first = waiter.Next(seconds(30));
    const auto second = waiter.Next(seconds(30));
    ASSERT_TRUE(first && second);
    EXPECT_EQ(first->mediaId + second->mediaId, "AB");
}

TEST_F(Events, longest_patience_is_one) {
    EventWaiter waiter(library);
    std::thread hand([] {
        std::this_thread::sleep_for(milliseconds(20));
        Happen(KESTA_EVENT_ARRIVAL, "A");
    });
    EXPECT_TRUE(waiter.Next(milliseconds::max()));
    hand.join();
    EXPECT_FALSE(waiter.Next(milliseconds::min()));
}

TEST_F(Events, waiter_hands_events_to_a_callback) {
    std::mutex mutex;
    std::vector<std::string> seen;
    {
        const EventWaiter waiter(library, [&](const Event& event) {
            const std::lock_guard<std::mutex> lock(mutex);
            seen.push_back(event.mediaId);
        });
        Happen(KESTA_EVENT_ARRIVAL, "A");
        Happen(KESTA_EVENT_REMOVAL, "B");
        const auto end = Clock::now() + seconds(30);
        while (Clock::now() < end) {
            {
                const std::lock_guard<std::mutex> lock(mutex);
                if (seen.size() == 2) break;
            }
            std::this_thread::sleep_for(milliseconds(1));
        }
    }
    EXPECT_THAT(seen, testing::ElementsAre("A", "B"));
}

TEST_F(Events, waiter_that_is_destroyed_at_once_is_gone_at_once) {
    const auto start = Clock::now();
    for (int i = 0; i < 50; ++i) const EventWaiter waiter(library);
    EXPECT_LT(Clock::now() - start, seconds(30));
}

TEST_F(Events, stop_is_repeated_until_the_wait_has_heard_it) {
    stand_in().deafMillis = 60;
    const auto start = Clock::now();
    {
        const EventWaiter waiter(library);
        while (stand_in().waits == 0) std::this_thread::sleep_for(milliseconds(1));
    }
    EXPECT_LT(Clock::now() - start, seconds(30));
    EXPECT_GT(stand_in().stops, 1);
    EXPECT_FALSE(stand_in().running);
}

TEST_F(Events, callback_may_stop_its_waiter) {
    std::atomic<int> seen{0};
    EventWaiter* own = nullptr;
    std::mutex mutex;
    std::unique_lock<std::mutex> lock(mutex);
    EventWaiter waiter(library, [&](const Event&) {
        const std::lock_guard<std::mutex> wait(mutex);
        ++seen;
        own->Stop();
    });
    own = &waiter;
    lock.unlock();
    Happen(KESTA_EVENT_ARRIVAL, "A");
    Happen(KESTA_EVENT_ARRIVAL, "B");
    while (seen == 0) std::this_thread::sleep_for(milliseconds(1));
    waiter.Stop();
    EXPECT_EQ(seen, 1);
}

TEST_F(Events, failing_wait_is_reported_and_not_repeated_in_a_rush) {
    stand_in().waitFailure = 0x5B72;
    std::atomic<int> failures{0};
    const auto start = Clock::now();
    {
        const EventWaiter waiter(
            library, [](const Event&) {},
            [&](const Failure& failure) {
                EXPECT_EQ(failure.code, 0x5B72);
                ++failures;
            });
        while (failures == 0) std::this_thread::sleep_for(milliseconds(1));
        std::this_thread::sleep_for(milliseconds(300));
    }
    // Four in a second, and what begins or ends beside that.
    EXPECT_LE(failures, (Clock::now() - start) / milliseconds(250) + 2);
}

TEST_F(Events, latest_failure_is_handed_out_once) {
    stand_in().waitFailure = 0x5B72;
    EventWaiter waiter(library);
    auto failure = waiter.LastFailure();
    const auto end = Clock::now() + seconds(30);
    while (!failure && Clock::now() < end) {
        std::this_thread::sleep_for(milliseconds(1));
        failure = waiter.LastFailure();
    }
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->code, 0x5B72);
}

TEST_F(Events, second_wait_in_the_process_is_refused) {
    const EventWaiter waiter(library);
    while (!stand_in().running) std::this_thread::sleep_for(milliseconds(1));
    const auto result = library.Try().WaitForKeyEvent();
    ASSERT_FALSE(result.ok());
    EXPECT_EQ(result.failure().origin, Failure::Origin::kRefused);
}

TEST_F(Events, second_waiter_fails_at_once_with_a_reason) {
    std::optional<EventWaiter> waiter(library);
    const auto second = EventWaiter::Start(library);
    ASSERT_FALSE(second.ok());
    EXPECT_EQ(second.failure().kind(), Kind::kBusy);
    EXPECT_THAT(second.failure().message, testing::HasSubstr("wait"));
    EXPECT_THROW(EventWaiter(library, [](const Event&) {}), Error);
    waiter.reset();
    EXPECT_TRUE(EventWaiter::Start(library).ok());
}

bool Readable(int descriptor, int patience) {
    pollfd entry{descriptor, POLLIN, 0};
    return ::poll(&entry, 1, patience) == 1;
}

TEST_F(Events, descriptor_is_readable_while_events_wait) {
    EventWaiter waiter(library);
    EXPECT_FALSE(Readable(waiter.Descriptor(), 0));
    Happen(KESTA_EVENT_ARRIVAL, "A");
    Happen(KESTA_EVENT_REMOVAL, "A");
    ASSERT_TRUE(Readable(waiter.Descriptor(), 30000));
    ASSERT_TRUE(waiter.Next(seconds(30)));
    ASSERT_TRUE(Readable(waiter.Descriptor(), 30000));
    ASSERT_TRUE(waiter.Next(milliseconds(0)));
    EXPECT_FALSE(Readable(waiter.Descriptor(), 0));
}

TEST_F(Events, descriptor_may_be_that_of_a_missing_standard_input) {
    const int input = ::dup(STDIN_FILENO);
    ::close(STDIN_FILENO);
    {
        EventWaiter waiter(library);
        EXPECT_EQ(waiter.Descriptor(), STDIN_FILENO);
        Happen(KESTA_EVENT_ARRIVAL, "A");
        EXPECT_TRUE(Readable(waiter.Descriptor(), 30000));
    }
    EXPECT_EQ(::fcntl(STDIN_FILENO, F_GETFD), -1) << "it is closed again";
    ::dup2(input, STDIN_FILENO);
    ::close(input);
}

TEST_F(Events, descriptor_is_readable_while_a_failure_waits) {
    stand_in().waitFailure = 0x5B72;
    EventWaiter waiter(library);
    ASSERT_TRUE(Readable(waiter.Descriptor(), 30000));
    waiter.Stop();
    EXPECT_TRUE(waiter.LastFailure());
    EXPECT_FALSE(Readable(waiter.Descriptor(), 0));
}

TEST_F(Events, other_operations_run_while_one_waits) {
    const EventWaiter waiter(library);
    while (!stand_in().running) std::this_thread::sleep_for(milliseconds(1));
    library.SetLabel("SN", "label");
    EXPECT_EQ(stand_in().calls.back(), "SetLabel SN label");
}

TEST_F(Events, wait_initialises_the_library_under_the_lock_of_the_operations) {
    Happen(KESTA_EVENT_ARRIVAL, "A");
    static_cast<void>(library.WaitForKeyEvent());
    EXPECT_EQ(stand_in().calls.front(), "Initialize");
}

}  // namespace
}  // namespace kesta

// Insertion and removal, as clients in this process and in others see them.
#include <atomic>
#include <chrono>
#include <fstream>
#include <sstream>
#include <thread>

#include "key_test.h"

namespace {

using namespace flow;

constexpr char kLog[] = "/tmp/ValtoPinpad_KESTA.log";

// What one wait came to, as a text.
std::string WaitOnce() {
    char mediaId[17] = "";
    unsigned kind = 0, length = 0;
    const int code = WaitForKeyEvent(&kind, mediaId, &length);
    std::ostringstream text;
    text << "code " << code << " kind " << kind;
    if (kind != KESTA_EVENT_STOPPED) text << " " << mediaId << " " << length;
    return text.str();
}

// The waits that have scanned the slots so far, in any process: their logs are one file here.
int WaitsBegun() {
    std::ifstream log(kLog);
    int count = 0;
    for (std::string line; std::getline(log, line);) {
        if (line.find("[after]") != std::string::npos) ++count;
    }
    return count;
}

class Events : public KeyTest {
protected:
    Events() {
        Softkey({"delete", kSerial});
        Softkey({"create", "--serial", kSerial, "--media-id", "MEDIA-1"});
    }

    // Returns when that many waits have begun and are past their scan, so that an event is new to
    // them.
    static void UntilWaiting(int waits) {
        EXPECT_TRUE(Eventually([=] { return WaitsBegun() >= waits; }));
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
};

TEST_F(Events, a_waiting_thread_sees_the_removal_with_the_media_id) {
    std::string seen;
    std::thread waiter([&] { seen = WaitOnce(); });
    UntilWaiting(1);
    Softkey({"remove"});
    waiter.join();
    EXPECT_EQ(seen, "code 0 kind 2 MEDIA-1 7");
}

TEST_F(Events, a_waiting_thread_sees_the_insertion_with_the_media_id) {
    Softkey({"remove"});
    std::string seen;
    std::thread waiter([&] { seen = WaitOnce(); });
    UntilWaiting(1);
    Softkey({"insert"});
    waiter.join();
    EXPECT_EQ(seen, "code 0 kind 1 MEDIA-1 7");
}

TEST_F(Events, every_waiting_process_sees_each_event_once) {
    const auto client = [](std::string& output) {
        output = WaitOnce() + "; ";
        output += WaitOnce();
        return 0;
    };
    Finished first{-1, {}}, second{-1, {}};
    std::thread one([&] { first = InAnotherProcess(client); });
    std::thread two([&] { second = InAnotherProcess(client); });
    UntilWaiting(2);
    Softkey({"remove"});
    UntilWaiting(4);
    Softkey({"insert"});
    one.join();
    two.join();
    const std::string expected = "code 0 kind 2 MEDIA-1 7; code 0 kind 1 MEDIA-1 7";
    EXPECT_EQ(first.output, expected);
    EXPECT_EQ(second.output, expected);
}

TEST_F(Events, a_stop_ends_the_wait_without_an_event) {
    std::string seen;
    std::atomic<bool> done{false};
    std::thread waiter([&] {
        seen = WaitOnce();
        done = true;
    });
    UntilWaiting(1);
    EXPECT_TRUE(Eventually([&] { return StopDetectUKey() == 0 && done; }));
    waiter.join();
    EXPECT_EQ(seen, "code 0 kind 3");
}

TEST_F(Events, other_exports_answer_while_a_thread_waits) {
    std::string seen;
    std::thread waiter([&] { seen = WaitOnce(); });
    UntilWaiting(1);
    EXPECT_EQ(PrintNumber().text, kSerial);
    EXPECT_EQ(MakeRequests(kSerial, kSigningRequest).code, 0);
    Softkey({"remove"});
    waiter.join();
    EXPECT_EQ(seen, "code 0 kind 2 MEDIA-1 7");
}

TEST_F(Events, of_two_keys_the_one_that_moved_is_named) {
    Softkey({"create", "--serial", "FLOW0002", "--media-id", "MEDIA-2"});
    std::string seen;
    std::thread waiter([&] { seen = WaitOnce(); });
    UntilWaiting(1);
    Softkey({"remove", "FLOW0002"});
    waiter.join();
    EXPECT_EQ(seen, "code 0 kind 2 MEDIA-2 7");
}

}  // namespace

// A thread inside WaitForKeyEvent.
#ifndef KESTA_API_WAITING_THREAD_H
#define KESTA_API_WAITING_THREAD_H

#include <atomic>
#include <chrono>
#include <thread>

#include "event_test.h"

// Counts the polls of the event library, which has no event to tell.
class Polls {
public:
    Polls() {
        TheRecorder().On("ValtoT_WaitForEvent").Returns(1).Does([this](const recording::Call&) {
            ++count_;
        });
    }
    int Count() const { return count_; }
    void WaitFor(int more) const {
        const int until = count_ + more;
        while (count_ < until) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }

private:
    std::atomic<int> count_{0};
};

// Waits on a thread of its own; what it answered is there once it is joined.
class WaitingThread {
public:
    WaitingThread() {
        OfferSlots({});
        thread_ = std::thread([this] {
            code = WaitForKeyEvent(&kind, mediaId.data(), &length);
            returned_ = true;
        });
    }
    ~WaitingThread() { Join(); }
    void Join() {
        if (thread_.joinable()) thread_.join();
    }
    bool Returned() const { return returned_; }
    // As a client does it: a stop that comes too early is lost.
    void StopAndJoin() {
        while (!returned_) {
            StopDetectUKey();
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        Join();
    }

    CanaryBuffer mediaId{17};
    unsigned kind = 77;
    unsigned length = 77;
    int code = unrelated_code;

private:
    std::atomic<bool> returned_{false};
    std::thread thread_;
};

#endif

// Waiting for keys to come and go.
#ifndef KESTA_UKEY_EVENTS_HPP
#define KESTA_UKEY_EVENTS_HPP

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>

#include "kesta/ukey/caller.hpp"

namespace kesta {

struct Event {
    enum class Kind {
        kOther = 0,  // an event that is neither of the others
        kArrival = KESTA_EVENT_ARRIVAL,
        kRemoval = KESTA_EVENT_REMOVAL,
        kStopped = KESTA_EVENT_STOPPED,
    };

    Kind kind = Kind::kOther;
    std::string mediaId;  // empty when the key that left was not there when the wait began
    int code = KESTA_OK;  // an arrived key that could not be read
};

// The library serves one wait at a time in a process.
class OneWait {
public:
    OneWait() : mine_(!Taken().exchange(true)) {}
    OneWait(const OneWait&) = delete;
    OneWait& operator=(const OneWait&) = delete;
    ~OneWait() {
        if (mine_) Taken().store(false);
    }
    bool Granted() const { return mine_; }

private:
    static std::atomic<bool>& Taken() {
        static std::atomic<bool> taken{false};
        return taken;
    }
    const bool mine_;
};

inline Result<Event> WaitOnce(const Caller& caller) {
    constexpr auto kName = "WaitForKeyEvent";
    const OneWait turn;
    if (!turn.Granted()) return Caller::Refusal(kName, "another wait is in progress");
    // A wait needs the token library for nothing, but would bind it beside other threads.
    static_cast<void>(caller.EnsureInitialised().ok());
    unsigned kind = 0;
    unsigned length = 0;
    char mediaId[64] = {};  // 17 bytes are used
    const auto outcome = Caller::CallUnlocked(caller.functions().WaitForKeyEvent, &kind,
                                              static_cast<char*>(mediaId), &length);
    mediaId[sizeof mediaId - 1] = '\0';
    // A wait that could not begin writes no kind; an arrived key that cannot be read does.
    if (outcome.raised || (outcome.code != KESTA_OK && kind == 0)) {
        return caller.Describe(kName, outcome);
    }
    Event event;
    event.kind = kind <= KESTA_EVENT_STOPPED ? static_cast<Event::Kind>(kind) : Event::Kind::kOther;
    event.mediaId = mediaId;
    event.code = outcome.code;
    return event;
}

// Waits on a thread of its own until it is stopped or destroyed. Events go to a callback, or wait
// in a queue for Next. A failing wait is reported and tried again.
class EventWaiter {
public:
    using OnEvent = std::function<void(const Event&)>;
    using OnFailure = std::function<void(const Failure&)>;

    // The queue form.
    template <class Library>
    explicit EventWaiter(const Library& library)
        : EventWaiter(library.functions(), nullptr, nullptr) {}

    // The callback form. Callbacks run on the waiting thread, one at a time; an exception that
    // leaves one ends the process. A callback may call any operation and Stop; it must not destroy
    // the waiter.
    template <class Library>
    EventWaiter(const Library& library, OnEvent onEvent, OnFailure onFailure = nullptr)
        : EventWaiter(library.functions(), std::move(onEvent), std::move(onFailure)) {}

    EventWaiter(const EventWaiter&) = delete;
    EventWaiter& operator=(const EventWaiter&) = delete;

    ~EventWaiter() {
        Stop();
        if (thread_.joinable()) thread_.join();
    }

    // Ends the wait. Returns when the waiting thread is done, except from a callback, where it
    // returns at once and no further callback follows.
    void Stop() {
        std::unique_lock<std::mutex> lock(mutex_);
        stopping_ = true;
        changed_.notify_all();
        if (std::this_thread::get_id() == thread_.get_id()) return;
        // A stop that comes before the wait has begun its loop is lost.
        while (!done_) {
            lock.unlock();
            static_cast<void>(Caller::CallUnlocked(caller_.functions().StopDetectUKey));
            lock.lock();
            changed_.wait_for(lock, kStopInterval, [this] { return done_; });
        }
    }

    // The queue form's next event, or nothing after the time or a stop. The latest failure of a
    // wait is handed out once, by LastFailure.
    std::optional<Event> Next(std::chrono::milliseconds patience) {
        std::unique_lock<std::mutex> lock(mutex_);
        changed_.wait_for(lock, patience, [this] { return !queue_.empty() || stopping_; });
        if (queue_.empty()) return std::nullopt;
        Event event = std::move(queue_.front());
        queue_.pop_front();
        return event;
    }

    std::optional<Failure> LastFailure() {
        const std::lock_guard<std::mutex> lock(mutex_);
        return std::exchange(failure_, std::nullopt);
    }

private:
    static constexpr std::chrono::milliseconds kStopInterval{5};
    static constexpr std::chrono::milliseconds kRetryInterval{250};

    EventWaiter(const Functions& functions, OnEvent onEvent, OnFailure onFailure)
        : caller_(functions), onEvent_(std::move(onEvent)), onFailure_(std::move(onFailure)) {
        const std::lock_guard<std::mutex> lock(mutex_);  // thread_ is set before it is compared
        thread_ = std::thread([this] { Loop(); });
    }

    void Loop() {
        while (!Stopping()) {
            Result<Event> result = WaitOnce(caller_);
            if (!result.ok()) {
                Report(result.failure());
            } else if (result.value().kind != Event::Kind::kStopped && !Stopping()) {
                Deliver(result.value());
            }
        }
        const std::lock_guard<std::mutex> lock(mutex_);
        done_ = true;
        changed_.notify_all();
    }

    bool Stopping() {
        const std::lock_guard<std::mutex> lock(mutex_);
        return stopping_;
    }

    void Deliver(const Event& event) {
        if (onEvent_) return onEvent_(event);
        const std::lock_guard<std::mutex> lock(mutex_);
        queue_.push_back(event);
        changed_.notify_all();
    }

    // The pause keeps a wait that fails at once from filling the log.
    void Report(const Failure& failure) {
        if (onFailure_) onFailure_(failure);
        std::unique_lock<std::mutex> lock(mutex_);
        failure_ = failure;
        changed_.wait_for(lock, kRetryInterval, [this] { return stopping_; });
    }

    Caller caller_;
    OnEvent onEvent_;
    OnFailure onFailure_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<Event> queue_;
    std::optional<Failure> failure_;
    bool stopping_ = false;
    bool done_ = false;
    std::thread thread_;
};

}  // namespace kesta

#endif

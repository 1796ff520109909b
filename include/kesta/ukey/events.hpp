// Waiting for keys to come and go.
#ifndef KESTA_UKEY_EVENTS_HPP
#define KESTA_UKEY_EVENTS_HPP

#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>

#include "kesta/ukey/caller.hpp"
#include "kesta/ukey/turns.hpp"

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

inline Failure WaitInProgress(const char* operation) {
    return {KESTA_BAD_ARGUMENT, operation, Say(Sentence::kWaitInProgress),
            Failure::Origin::kRefused, Kind::kBusy};
}

inline constexpr const char* kWaitName = "WaitForKeyEvent";

// For who holds the one wait.
inline Result<Event> WaitOnce(const Caller& caller) {
    // A wait needs the token library for nothing, but would bind it beside other threads.
    static_cast<void>(caller.EnsureInitialised().ok());
    unsigned kind = 0;
    unsigned length = 0;
    char mediaId[64] = {};  // 17 bytes are used
    const auto outcome = Caller::Call(caller.functions().WaitForKeyEvent, &kind,
                                      static_cast<char*>(mediaId), &length);
    mediaId[sizeof mediaId - 1] = '\0';
    // A wait that could not begin writes no kind; an arrived key that cannot be read does.
    if (outcome.raised || (outcome.code != KESTA_OK && kind == 0)) {
        return caller.DescribeLate(kWaitName, outcome);
    }
    Event event;
    event.kind = kind <= KESTA_EVENT_STOPPED ? static_cast<Event::Kind>(kind) : Event::Kind::kOther;
    event.mediaId = mediaId;
    event.code = outcome.code;
    return event;
}

// A descriptor that is readable while there is something to fetch.
class ReadyDescriptor {
public:
    ReadyDescriptor() : descriptor_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}
    ReadyDescriptor(const ReadyDescriptor&) = delete;
    ReadyDescriptor& operator=(const ReadyDescriptor&) = delete;
    ~ReadyDescriptor() {
        if (descriptor_ >= 0) ::close(descriptor_);
    }

    int Number() const { return descriptor_; }
    void Set(bool ready) {
        if (ready == ready_ || descriptor_ < 0) return;
        ready_ = ready;
        std::uint64_t count = 1;
        // Neither can fail on a counter that is 0 or 1.
        if (ready) {
            static_cast<void>(!::write(descriptor_, &count, sizeof count));
        } else {
            static_cast<void>(!::read(descriptor_, &count, sizeof count));
        }
    }

private:
    const int descriptor_;
    bool ready_ = false;
};

// Waits on a thread of its own until it is stopped or destroyed. Events go to a callback, or wait
// in a queue for Next. A failing wait is reported and tried again. While there is a waiter, another
// one cannot be made: its constructor throws Error of Kind::kBusy, its Start answers the failure.
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

    // Either form without an exception.
    template <class Library, class... Callbacks>
    static Result<std::unique_ptr<EventWaiter>> Start(const Library& library,
                                                      Callbacks&&... callbacks) {
        try {
            return std::make_unique<EventWaiter>(library, std::forward<Callbacks>(callbacks)...);
        } catch (const Error& error) {
            return error.failure();
        }
    }

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
            static_cast<void>(Caller::Call(caller_.functions().StopDetectUKey));
            lock.lock();
            changed_.wait_for(lock, kStopInterval, [this] { return done_; });
        }
    }

    // The queue form's next event, or nothing after the time or a stop. The latest failure of a
    // wait is handed out once, by LastFailure.
    std::optional<Event> Next(std::chrono::milliseconds patience) {
        std::unique_lock<std::mutex> lock(mutex_);
        changed_.wait_for(lock, Countable(patience),
                          [this] { return !queue_.empty() || stopping_; });
        if (queue_.empty()) return std::nullopt;
        Event event = std::move(queue_.front());
        queue_.pop_front();
        Signal();
        return event;
    }

    std::optional<Failure> LastFailure() {
        const std::lock_guard<std::mutex> lock(mutex_);
        auto failure = std::exchange(failure_, std::nullopt);
        Signal();
        return failure;
    }

    // For the loops of Qt, GLib and epoll: the queue form's descriptor is readable while Next has
    // an event, or LastFailure a failure, without waiting. It is the waiter's: only poll it.
    int Descriptor() const { return descriptor_.Number(); }

private:
    static constexpr std::chrono::milliseconds kStopInterval{5};
    static constexpr std::chrono::milliseconds kRetryInterval{250};

    EventWaiter(const Functions& functions, OnEvent onEvent, OnFailure onFailure)
        : caller_(functions), onEvent_(std::move(onEvent)), onFailure_(std::move(onFailure)) {
        if (!turn_.Granted()) throw Error(WaitInProgress("EventWaiter"));
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
        Signal();
        changed_.notify_all();
    }

    // The pause keeps a wait that fails at once from filling the log.
    void Report(const Failure& failure) {
        if (onFailure_) onFailure_(failure);
        std::unique_lock<std::mutex> lock(mutex_);
        if (!onFailure_) failure_ = failure;
        Signal();
        changed_.wait_for(lock, kRetryInterval, [this] { return stopping_; });
    }

    // Under the lock.
    void Signal() { descriptor_.Set(!queue_.empty() || failure_.has_value()); }

    const OneWait turn_;
    Caller caller_;
    OnEvent onEvent_;
    OnFailure onFailure_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<Event> queue_;
    std::optional<Failure> failure_;
    ReadyDescriptor descriptor_;
    bool stopping_ = false;
    bool done_ = false;
    std::thread thread_;
};

}  // namespace kesta

#endif

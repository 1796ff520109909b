// Operations take turns: the library has no lock and wants one call at a time.
#ifndef KESTA_UKEY_TURNS_HPP
#define KESTA_UKEY_TURNS_HPP

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>

namespace kesta {

// How long an operation waits for its turn; nothing: as long as it takes.
using Patience = std::optional<std::chrono::milliseconds>;

// The same time within what a clock can count, which the largest number of milliseconds is not.
inline std::chrono::milliseconds Countable(std::chrono::milliseconds time) {
    constexpr std::chrono::milliseconds kCentury = std::chrono::hours(24 * 36525);
    return std::clamp(time, std::chrono::milliseconds(0), kCentury);
}

// One operation's turn, with its probe and its message. Program-wide.
class Turn {
public:
    explicit Turn(const Patience& patience) {
        Queue& queue = Queue::Of();
        std::unique_lock<std::mutex> lock(queue.mutex);
        const auto free = [&queue] { return !queue.taken; };
        if (!patience) {
            queue.freed.wait(lock, free);
        } else if (!queue.freed.wait_for(lock, Countable(*patience), free)) {
            return;
        }
        granted_ = queue.taken = true;
    }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;
    ~Turn() {
        if (!granted_) return;
        Queue& queue = Queue::Of();
        const std::lock_guard<std::mutex> lock(queue.mutex);
        queue.taken = false;
        queue.freed.notify_one();
    }

    bool Granted() const { return granted_; }

private:
    // Never destroyed: a thread may be inside while the process ends.
    struct Queue {
        std::mutex mutex;
        std::condition_variable freed;
        bool taken = false;

        static Queue& Of() {
            static Queue* const queue = new Queue;
            return *queue;
        }
    };

    bool granted_ = false;
};

}  // namespace kesta

#endif

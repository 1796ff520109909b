// A library with all functions and no key behind them: it records what it is asked and answers
// what the test says, however untrue.
#ifndef FACE_STAND_IN_H
#define FACE_STAND_IN_H

#include <atomic>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

struct StandIn {
    struct Occurrence {
        unsigned kind = 1;
        std::string mediaId;
        int code = 0;
    };

    std::vector<std::string> calls;         // "SetLabel SN label"
    int code = 0;                           // of every function that asks a token
    int probeCode = 0;                      // of a probe for one text
    bool probeSilent = false;               // the probe writes no length
    std::string text;                       // what is written to buffers
    std::optional<std::uint32_t> reported;  // length written in place of the true one
    std::optional<std::uint32_t> probed;    // the same for probes
    std::size_t beyond = 0;                 // bytes written behind the capacity
    bool raise = false;                     // throw out of the next token call
    std::string message = "token text";
    int messageCode = 0;
    int fetchCode = 0;       // added to what a fetch of kept requests answers
    bool fetchLost = false;  // a fetch finds nothing and answers -404

    // Events.
    std::deque<Occurrence> occurrences;
    int waitFailure = 0;             // code of a wait that cannot begin
    std::atomic<int> deafMillis{0};  // a wait loses stops that come earlier than this
    std::atomic<bool> running{false};
    std::atomic<int> waits{0};
    std::atomic<int> stops{0};
    std::mutex mutex;  // guards the deque and the calls

    // Threads.
    std::atomic<int> inside{0};
    std::atomic<int> mostInside{0};
    std::atomic<int> sleepMillis{0};
    std::atomic<bool> asking{false};  // VerifyPIN returns when this is no longer so

    void Reset();
};

__attribute__((visibility("default"))) StandIn& stand_in();

#endif

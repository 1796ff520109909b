// A key whose entry points do what a plan says.
#ifndef TESTS_SOFTKEY_PLANNED_CALLS_H
#define TESTS_SOFTKEY_PLANNED_CALLS_H

#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <csignal>
#include <thread>

#include "softkey/crypto/base64.h"
#include "softkey/misbehaviour/misbehaviour.h"
#include "softkey/store/keys.h"
#include "softkey/store/pairs.h"
#include "token_fixture.h"

namespace softkey {

class PlannedCalls : public TokenTest {
protected:
    PlannedCalls() { CreateKey(); }

    void Plan(const std::string& rules) {
        SetMisbehaviour(Home(), R"({"rules": [)" + rules + "]}");
    }

    int Label(std::array<char, 512>& label, const char* serial = kSerial) {
        std::string copy = serial;
        return token.GetLabel(copy.data(), label.data());
    }
    int Label(const char* serial = kSerial) {
        std::array<char, 512> label{};
        return Label(label, serial);
    }
    int Store(const std::string& value, std::uint32_t number = 0) {
        return token.SetData("0123456789", number, value.c_str());
    }
    std::uint64_t Counted(const std::string& entry) { return MisbehaviourCounts(Home())[entry]; }
    std::size_t Pairs() { return PairTable(*OpenStore()).Of(kSerial).size(); }

    // What the call answers when the key is out for a moment in the time that the plan makes it
    // last. Nobody ever sees the key out, so the call does not find it absent at its beginning; and
    // when the call had not looked at the key yet, the key moves again.
    template <typename Act>
    int WithAJolt(const std::string& entry, Act act) {
        std::atomic<bool> ended{false};
        std::thread hand([&] {
            auto store = OpenStore();
            while (Counted(entry) == 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
            while (!ended) {
                std::this_thread::sleep_for(std::chrono::milliseconds(30));
                Transaction jolt(*store);
                KeyTable(*store).SetInserted(kSerial, false);
                KeyTable(*store).SetInserted(kSerial, true);
                jolt.Commit();
            }
        });
        const int code = act();
        ended = true;
        hand.join();
        return code;
    }

    // The signal that ends a process which makes the call, or 0.
    template <typename Act>
    static int SignalOf(Act act) {
        const pid_t child = fork();
        if (child == 0) {
            for (const int number : {SIGSEGV, SIGABRT}) std::signal(number, SIG_DFL);
            act();
            _exit(0);
        }
        int status = 0;
        waitpid(child, &status, 0);
        return WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    }
};

}  // namespace softkey

#endif

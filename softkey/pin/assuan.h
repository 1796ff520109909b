// A child program spoken to over the Assuan protocol, by libassuan. Everything that passes may be a
// PIN, so what that library holds is on the secure heap and nothing is ever logged. libassuan
// starts no program here: it would run code between fork and exec that a client with threads cannot
// bear.
#ifndef SOFTKEY_PIN_ASSUAN_H
#define SOFTKEY_PIN_ASSUAN_H

#include <assuan.h>
#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "softkey/pin/secret_text.h"

namespace softkey {

// What a request came to. kBroken is the program's death, silence or nonsense; nothing can be
// asked of it after that.
enum class AssuanResult { kOk, kError, kBroken };

// A text as it stands in a request: %, CR and LF, and the other control characters, become %XX.
std::string AssuanEscape(std::string_view text);
// Two hexadecimal digits stand behind each %.
bool IsAssuanEscaped(std::string_view text);

class AssuanProgram {
public:
    using Milliseconds = std::chrono::milliseconds;

    AssuanProgram() = default;
    // Says BYE, gives the program a moment to leave, then kills it. No zombie stays behind.
    ~AssuanProgram();
    AssuanProgram(const AssuanProgram&) = delete;
    AssuanProgram& operator=(const AssuanProgram&) = delete;

    // Starts the program, found through $PATH, with the environment less the named variables, and
    // reads its greeting. It inherits no descriptor but its two ends of the conversation.
    bool Start(const char* program, const std::vector<std::string>& hiddenVariables,
               Milliseconds patience);

    // Sends one request and reads up to its OK or ERR. D lines are put into data, where it is
    // given; status lines (S …) into statuses. data that does not fit sets dataTooLong.
    struct Answer {
        SecretText* data = nullptr;
        bool dataTooLong = false;
        std::vector<std::string> statuses;
    };
    AssuanResult Ask(const std::string& request, Milliseconds patience, Answer* answer = nullptr);

private:
    using Clock = std::chrono::steady_clock;

    static assuan_system_hooks kBoundedInput;
    static ssize_t Read(assuan_context_t context, int socket, void* buffer, std::size_t size);
    static ssize_t Write(assuan_context_t context, int socket, const void* bytes, std::size_t size);
    static unsigned Watch(assuan_context_t context, void* self, int direction, const char* line,
                          std::size_t length);
    template <typename Move>
    ssize_t Transfer(short events, Move move) const;
    bool WaitFor(short events) const;
    void Allow(Milliseconds patience);

    bool Greet(Milliseconds patience);
    AssuanResult ReadAnswer(Answer* answer);
    void Dismiss();
    bool Break();

    assuan_context_t context_ = nullptr;
    int socket_ = -1;
    pid_t child_ = -1;
    Clock::time_point deadline_;
    std::size_t bytesLeft_ = 0;  // of the answer
    bool wellFormed_ = true;
};

}  // namespace softkey

#endif

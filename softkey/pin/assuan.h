// A child program spoken to over the Assuan protocol: lines of text, one answer to each request.
// Everything that passes may be a PIN, so every buffer wipes itself and none is ever logged.
#ifndef SOFTKEY_PIN_ASSUAN_H
#define SOFTKEY_PIN_ASSUAN_H

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

// Undoes %XX in place and returns the new length; false at the end of `ok` for a lone %.
std::size_t AssuanUnescape(char* text, std::size_t length, bool& ok);

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

    AssuanResult ReadAnswer(Clock::time_point deadline, Answer* answer);
    bool SendLine(std::string_view line, Clock::time_point deadline);
    bool ReadLine(Clock::time_point deadline, std::string_view& line);
    bool WaitFor(short events, Clock::time_point deadline) const;
    void Dismiss();
    bool Break();

    // The protocol's longest line is 1000 bytes with its end.
    static constexpr std::size_t kLineBytes = 1024;

    int socket_ = -1;
    pid_t child_ = -1;
    char received_[kLineBytes] = {};
    std::size_t receivedBytes_ = 0;
    std::size_t consumedBytes_ = 0;
};

}  // namespace softkey

#endif

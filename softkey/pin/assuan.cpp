#include "softkey/pin/assuan.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>

namespace softkey {
namespace {

constexpr int kMostLinesOfAnAnswer = 1000;

int HexDigit(char character) {
    if (character >= '0' && character <= '9') return character - '0';
    if (character >= 'A' && character <= 'F') return character - 'A' + 10;
    if (character >= 'a' && character <= 'f') return character - 'a' + 10;
    return -1;
}

bool StartsWith(std::string_view text, std::string_view start) {
    return text.substr(0, start.size()) == start;
}

// A verb stands alone or in front of a blank.
bool IsVerb(std::string_view line, std::string_view verb) {
    return StartsWith(line, verb) && (line.size() == verb.size() || line[verb.size()] == ' ');
}

std::vector<char*> EnvironmentWithout(const std::vector<std::string>& names) {
    std::vector<char*> kept;
    for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
        const std::string_view text = *entry;
        const bool hidden = std::any_of(names.begin(), names.end(), [&](const std::string& name) {
            return StartsWith(text, name + "=");
        });
        if (!hidden) kept.push_back(*entry);
    }
    kept.push_back(nullptr);
    return kept;
}

// What the child starts with: both ends of its conversation on one socket, silence on the error
// output, no other descriptor, and signals as a fresh program expects them. It stays in the
// client's process group, or a terminal would not let it read.
class SpawnSettings {
public:
    explicit SpawnSettings(int socket) {
        posix_spawn_file_actions_init(&actions_);
        posix_spawnattr_init(&attributes_);
        posix_spawn_file_actions_adddup2(&actions_, socket, STDIN_FILENO);
        posix_spawn_file_actions_adddup2(&actions_, socket, STDOUT_FILENO);
        posix_spawn_file_actions_addopen(&actions_, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
        posix_spawn_file_actions_addclosefrom_np(&actions_, STDERR_FILENO + 1);
        sigset_t none;
        sigset_t all;
        sigemptyset(&none);
        sigfillset(&all);
        posix_spawnattr_setsigmask(&attributes_, &none);
        posix_spawnattr_setsigdefault(&attributes_, &all);
        posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    }
    ~SpawnSettings() {
        posix_spawn_file_actions_destroy(&actions_);
        posix_spawnattr_destroy(&attributes_);
    }
    SpawnSettings(const SpawnSettings&) = delete;
    SpawnSettings& operator=(const SpawnSettings&) = delete;

    bool Spawn(pid_t& child, const char* program, char** environment) const {
        std::string name = program;
        char* arguments[] = {name.data(), nullptr};
        return posix_spawnp(&child, program, &actions_, &attributes_, arguments, environment) == 0;
    }

private:
    posix_spawn_file_actions_t actions_;
    posix_spawnattr_t attributes_;
};

// A socket below 3 would be overwritten while the child's own ends are put in place, which happens
// in a client that has closed its standard descriptors.
int AboveStandardDescriptors(int descriptor) {
    if (descriptor < 0 || descriptor > STDERR_FILENO) return descriptor;
    const int moved = fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    close(descriptor);
    return moved;
}

}  // namespace

std::string AssuanEscape(std::string_view text) {
    static constexpr char kDigits[] = "0123456789ABCDEF";
    std::string result;
    for (const char character : text) {
        const auto value = static_cast<unsigned char>(character);
        if (character != '%' && value >= 0x20 && value != 0x7F) {
            result += character;
            continue;
        }
        result += '%';
        result += kDigits[value >> 4];
        result += kDigits[value & 15];
    }
    return result;
}

std::size_t AssuanUnescape(char* text, std::size_t length, bool& ok) {
    std::size_t written = 0;
    ok = true;
    for (std::size_t i = 0; i < length; ++i) {
        if (text[i] != '%') {
            text[written++] = text[i];
            continue;
        }
        const int high = i + 2 < length ? HexDigit(text[i + 1]) : -1;
        const int low = i + 2 < length ? HexDigit(text[i + 2]) : -1;
        if (high < 0 || low < 0) {
            ok = false;
            return 0;
        }
        text[written++] = static_cast<char>(high * 16 + low);
        i += 2;
    }
    return written;
}

AssuanProgram::~AssuanProgram() {
    Dismiss();
    explicit_bzero(received_, sizeof received_);
}

bool AssuanProgram::Start(const char* program, const std::vector<std::string>& hiddenVariables,
                          Milliseconds patience) {
    int ends[2];
    // A socket instead of pipes: writing to a program that died must not raise SIGPIPE in the
    // client's process.
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) return false;
    ends[0] = AboveStandardDescriptors(ends[0]);
    ends[1] = AboveStandardDescriptors(ends[1]);
    socket_ = ends[0];
    std::vector<char*> environment = EnvironmentWithout(hiddenVariables);
    const bool started = ends[0] >= 0 && ends[1] >= 0 &&
                         SpawnSettings(ends[1]).Spawn(child_, program, environment.data());
    if (ends[1] >= 0) close(ends[1]);
    if (!started) {
        child_ = -1;
        return false;
    }
    return ReadAnswer(Clock::now() + patience, nullptr) == AssuanResult::kOk;
}

AssuanResult AssuanProgram::Ask(const std::string& request, Milliseconds patience, Answer* answer) {
    const Clock::time_point deadline = Clock::now() + patience;
    if (!SendLine(request, deadline)) return AssuanResult::kBroken;
    return ReadAnswer(deadline, answer);
}

AssuanResult AssuanProgram::ReadAnswer(Clock::time_point deadline, Answer* answer) {
    for (int lines = 0; lines < kMostLinesOfAnAnswer; ++lines) {
        std::string_view line;
        if (!ReadLine(deadline, line)) return AssuanResult::kBroken;
        if (IsVerb(line, "OK")) return AssuanResult::kOk;
        if (IsVerb(line, "ERR")) return AssuanResult::kError;
        if (line.empty() || line[0] == '#') continue;
        if (StartsWith(line, "S ")) {
            if (answer != nullptr) answer->statuses.emplace_back(line.substr(2));
        } else if (StartsWith(line, "D ")) {
            if (answer == nullptr || answer->data == nullptr) continue;
            char* const text = const_cast<char*>(line.data()) + 2;  // in received_, ours to change
            bool wellFormed = false;
            const std::size_t length = AssuanUnescape(text, line.size() - 2, wellFormed);
            if (!wellFormed) break;
            if (!answer->data->Append(text, length)) answer->dataTooLong = true;
        } else {
            break;
        }
    }
    Break();
    return AssuanResult::kBroken;
}

bool AssuanProgram::SendLine(std::string_view line, Clock::time_point deadline) {
    if (socket_ < 0) return false;
    const std::string bytes = std::string(line) + '\n';
    for (std::size_t sent = 0; sent < bytes.size();) {
        if (!WaitFor(POLLOUT, deadline)) return Break();
        const ssize_t count =
            send(socket_, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (count < 0 && errno != EINTR && errno != EAGAIN) return Break();
        if (count > 0) sent += static_cast<std::size_t>(count);
    }
    return true;
}

// The line stays valid until the next one is read.
bool AssuanProgram::ReadLine(Clock::time_point deadline, std::string_view& line) {
    if (socket_ < 0) return false;
    std::memmove(received_, received_ + consumedBytes_, receivedBytes_ - consumedBytes_);
    receivedBytes_ -= consumedBytes_;
    consumedBytes_ = 0;
    for (;;) {
        const void* const end = std::memchr(received_, '\n', receivedBytes_);
        if (end != nullptr) {
            std::size_t length =
                static_cast<std::size_t>(static_cast<const char*>(end) - received_);
            consumedBytes_ = length + 1;
            if (length > 0 && received_[length - 1] == '\r') --length;
            line = std::string_view(received_, length);
            return true;
        }
        if (receivedBytes_ == sizeof received_ || !WaitFor(POLLIN, deadline)) return Break();
        const ssize_t count = recv(socket_, received_ + receivedBytes_,
                                   sizeof received_ - receivedBytes_, MSG_DONTWAIT);
        if (count == 0 || (count < 0 && errno != EINTR && errno != EAGAIN)) return Break();
        if (count > 0) receivedBytes_ += static_cast<std::size_t>(count);
    }
}

bool AssuanProgram::WaitFor(short events, Clock::time_point deadline) const {
    for (;;) {
        const auto left = std::chrono::duration_cast<Milliseconds>(deadline - Clock::now()).count();
        if (left <= 0) return false;
        pollfd entry{socket_, events, 0};
        const int ready = poll(&entry, 1, static_cast<int>(std::min<long long>(left + 1, 1000)));
        if (ready > 0) return true;
        if (ready < 0 && errno != EINTR) return false;
    }
}

// Ends a conversation that cannot go on. Always false, for use in a return.
bool AssuanProgram::Break() {
    if (child_ > 0) kill(child_, SIGKILL);
    Dismiss();
    return false;
}

void AssuanProgram::Dismiss() {
    if (socket_ >= 0) {
        static constexpr char kBye[] = "BYE\n";
        (void)!send(socket_, kBye, sizeof kBye - 1, MSG_NOSIGNAL | MSG_DONTWAIT);
        shutdown(socket_, SHUT_WR);
    }
    constexpr int kSteps = 100;
    constexpr timespec kStep{0, 5000000};
    for (int step = 0; child_ > 0; ++step) {
        if (step == kSteps) kill(child_, SIGKILL);
        const pid_t gone = waitpid(child_, nullptr, step < kSteps ? WNOHANG : 0);
        // Somebody else may have reaped it: a client that ignores SIGCHLD or waits for all.
        if (gone == child_ || (gone < 0 && errno != EINTR)) child_ = -1;
        if (child_ > 0) nanosleep(&kStep, nullptr);
    }
    if (socket_ >= 0) close(socket_);
    socket_ = -1;
}

}  // namespace softkey

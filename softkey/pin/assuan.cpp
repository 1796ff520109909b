#include "softkey/pin/assuan.h"

#include <fcntl.h>
#include <openssl/crypto.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <climits>
#include <cstring>
#include <thread>

namespace softkey {
namespace {

constexpr std::size_t kMostBytesOfAnAnswer = 64 * 1024;
constexpr std::chrono::milliseconds kFarewell{100};

// What the library holds of the conversation is where secrets are.
void* SecureMalloc(std::size_t size) {
    return OPENSSL_secure_malloc(size);
}
void SecureFree(void* block) {
    OPENSSL_secure_free(block);  // wipes it
}
// Nothing grows in what is used of the library here.
void* SecureRealloc(void*, std::size_t) {
    return nullptr;
}
assuan_malloc_hooks kSecureHeap{SecureMalloc, SecureRealloc, SecureFree};

int LogNothing(assuan_context_t, void*, unsigned, const char*) {
    return 0;
}

int LeaveOpen(assuan_context_t, int) {
    return 0;
}

std::vector<char*> EnvironmentWithout(const std::vector<std::string>& names) {
    std::vector<char*> kept;
    for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
        const std::string_view text = *entry;
        const bool hidden = std::any_of(names.begin(), names.end(), [&](const std::string& name) {
            return text.substr(0, name.size() + 1) == name + "=";
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
        Add(posix_spawn_file_actions_adddup2(&actions_, socket, STDIN_FILENO));
        Add(posix_spawn_file_actions_adddup2(&actions_, socket, STDOUT_FILENO));
        Add(posix_spawn_file_actions_addopen(&actions_, STDERR_FILENO, "/dev/null", O_WRONLY, 0));
        Add(posix_spawn_file_actions_addclosefrom_np(&actions_, STDERR_FILENO + 1));
        const sigset_t none{};
        sigset_t all{};
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

    // Leaves child as it is where it fails.
    bool Spawn(pid_t& child, std::string& program, char** environment) const {
        char* arguments[] = {program.data(), nullptr};
        pid_t number = child;
        const bool started = complete_ && posix_spawnp(&number, program.c_str(), &actions_,
                                                       &attributes_, arguments, environment) == 0;
        if (started) child = number;
        return started;
    }

private:
    // With a part of them, or with a socket that is none, the program would talk with the client's
    // own input.
    void Add(int error) { complete_ = complete_ && error == 0; }

    posix_spawn_file_actions_t actions_;
    posix_spawnattr_t attributes_;
    bool complete_ = true;
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

// Of what the library does with the system only this is used. It knows no deadline of its own.
assuan_system_hooks AssuanProgram::kBoundedInput = [] {
    assuan_system_hooks hooks{};
    hooks.version = ASSUAN_SYSTEM_HOOKS_VERSION;
    hooks.close = LeaveOpen;
    hooks.read = Read;
    hooks.write = Write;
    return hooks;
}();

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

bool IsAssuanEscaped(std::string_view text) {
    for (std::size_t at = text.find('%'); at != text.npos; at = text.find('%', at + 3)) {
        const std::string_view digits = text.substr(at + 1, 2);
        if (digits.size() < 2 || !std::isxdigit(static_cast<unsigned char>(digits[0])) ||
            !std::isxdigit(static_cast<unsigned char>(digits[1]))) {
            return false;
        }
    }
    return true;
}

AssuanProgram::~AssuanProgram() {
    Dismiss();
}

bool AssuanProgram::Start(const char* program, const std::vector<std::string>& hiddenVariables,
                          Milliseconds patience) {
    PrepareSecureHeap();
    // Before there is a descriptor that would stay open where memory is lacking.
    std::vector<char*> environment = EnvironmentWithout(hiddenVariables);
    std::string name = program;
    int ends[2];
    // A socket instead of pipes: writing to a program that died must not raise SIGPIPE in the
    // client's process.
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) return false;
    ends[0] = AboveStandardDescriptors(ends[0]);
    ends[1] = AboveStandardDescriptors(ends[1]);
    socket_ = ends[0];
    const bool started =
        socket_ >= 0 && SpawnSettings(ends[1]).Spawn(child_, name, environment.data());
    close(ends[1]);
    return (started && Greet(patience)) || Break();
}

bool AssuanProgram::Greet(Milliseconds patience) {
    if (assuan_new_ext(&context_, GPG_ERR_SOURCE_USER_1, &kSecureHeap, LogNothing, nullptr) != 0) {
        context_ = nullptr;
        return false;
    }
    assuan_begin_confidential(context_);
    assuan_set_pointer(context_, this);
    assuan_set_io_monitor(context_, Watch, this);
    assuan_ctx_set_system_hooks(context_, &kBoundedInput);
    Allow(patience);
    return assuan_socket_connect_fd(context_, socket_, 0) == 0;
}

void AssuanProgram::Allow(Milliseconds patience) {
    deadline_ = Clock::now() + patience;
    bytesLeft_ = kMostBytesOfAnAnswer;
    wellFormed_ = true;
}

AssuanResult AssuanProgram::Ask(const std::string& request, Milliseconds patience, Answer* answer) {
    if (context_ == nullptr) return AssuanResult::kBroken;
    Allow(patience);
    AssuanResult result = AssuanResult::kBroken;
    if (assuan_write_line(context_, request.c_str()) == 0) result = ReadAnswer(answer);
    if (result == AssuanResult::kBroken) Break();
    return result;
}

AssuanResult AssuanProgram::ReadAnswer(Answer* answer) {
    for (;;) {
        char* line = nullptr;
        int length = 0, offset = 0;
        assuan_response_t response = ASSUAN_RESPONSE_ERROR;
        if (assuan_client_read_response(context_, &line, &length) != 0 ||
            assuan_client_parse_response(context_, line, length, &response, &offset) != 0) {
            return AssuanResult::kBroken;
        }
        const auto size = static_cast<std::size_t>(length - offset);
        switch (response) {
            case ASSUAN_RESPONSE_OK:
                return AssuanResult::kOk;
            case ASSUAN_RESPONSE_ERROR:
                return AssuanResult::kError;
            case ASSUAN_RESPONSE_COMMENT:
                break;
            case ASSUAN_RESPONSE_STATUS:
                if (answer != nullptr) answer->statuses.emplace_back(line + offset, size);
                break;
            case ASSUAN_RESPONSE_DATA:
                if (!wellFormed_) return AssuanResult::kBroken;
                if (answer == nullptr || answer->data == nullptr) break;
                if (!answer->data->Append(line + offset, size)) answer->dataTooLong = true;
                break;
            default:
                return AssuanResult::kBroken;
        }
    }
}

// Sees the lines before the library undoes their escapes, which takes anything behind a percent
// sign.
unsigned AssuanProgram::Watch(assuan_context_t, void* self, int direction, const char* line,
                              std::size_t length) {
    const std::string_view text(line, length);
    if (direction == ASSUAN_IO_FROM_PEER && text.substr(0, 2) == "D " && !IsAssuanEscaped(text)) {
        static_cast<AssuanProgram*>(self)->wellFormed_ = false;
    }
    return 0;
}

ssize_t AssuanProgram::Read(assuan_context_t context, int socket, void* buffer, std::size_t size) {
    auto& self = *static_cast<AssuanProgram*>(assuan_get_pointer(context));
    return self.Transfer(POLLIN, [&] {
        const ssize_t count = recv(socket, buffer, std::min(size, self.bytesLeft_), MSG_DONTWAIT);
        if (count > 0) self.bytesLeft_ -= static_cast<std::size_t>(count);
        return count;  // 0, the end, also once the answer has had all its bytes
    });
}

ssize_t AssuanProgram::Write(assuan_context_t context, int socket, const void* bytes,
                             std::size_t size) {
    auto& self = *static_cast<AssuanProgram*>(assuan_get_pointer(context));
    return self.Transfer(POLLOUT,
                         [&] { return send(socket, bytes, size, MSG_NOSIGNAL | MSG_DONTWAIT); });
}

// Nothing that is ready has to be tried again: nobody else is at this end.
template <typename Move>
ssize_t AssuanProgram::Transfer(short events, Move move) const {
    if (WaitFor(events)) return move();
    errno = ETIMEDOUT;
    return -1;
}

bool AssuanProgram::WaitFor(short events) const {
    pollfd entry{socket_, events, 0};
    for (;;) {
        const auto left =
            std::chrono::duration_cast<Milliseconds>(deadline_ - Clock::now()).count();
        if (left <= 0) return false;
        const int ready = poll(&entry, 1, static_cast<int>(std::min<long long>(left, INT_MAX)));
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
    Allow(kFarewell);
    assuan_release(context_);  // says BYE
    context_ = nullptr;
    shutdown(socket_, SHUT_WR);  // of none it does nothing
    constexpr int kSteps = 100;
    constexpr Milliseconds kStep{5};
    for (int step = 0; child_ > 0; ++step) {
        if (step == kSteps) kill(child_, SIGKILL);
        // Somebody else may have reaped it: a client that ignores SIGCHLD or waits for all.
        if (waitpid(child_, nullptr, WNOHANG) != 0) {
            child_ = -1;
        } else {
            std::this_thread::sleep_for(kStep);
        }
    }
    close(socket_);
    socket_ = -1;
}

}  // namespace softkey

#include "doctor/key_answers.h"

#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <optional>

#include "kesta/ukey.hpp"
#include "session.h"

namespace ukey {
namespace {

constexpr std::uint32_t kLongestText = 8192;

// In front of each text in the pipe.
struct Head {
    std::int32_t code;
    std::int32_t kind;
    std::uint32_t length;
};

// The child's end. What cannot be written is of no use to anybody.
class Teller {
public:
    explicit Teller(int output) : output_(output) {}

    template <class T, class Text>
    bool Tell(const kesta::Result<T>& result, const Text& text) const {
        return result ? Send(KESTA_OK, kesta::Kind::kOk, text(result.value()))
                      : Send(result.code(), result.failure().kind(), result.failure().message);
    }

private:
    bool Send(int code, kesta::Kind kind, const std::string& text) const {
        const std::string sent = text.substr(0, kLongestText);
        const Head head{code, static_cast<std::int32_t>(kind),
                        static_cast<std::uint32_t>(sent.size())};
        std::string bytes(reinterpret_cast<const char*>(&head), sizeof head);
        bytes += sent;
        if (::write(output_, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size())) {
            ::_exit(1);
        }
        return code == KESTA_OK;
    }

    const int output_;
};

[[noreturn]] void Answer(const KeyQuestion& question, int output) {
    const Teller teller(output);
    const auto asIs = [](const std::string& text) { return text; };
    const auto library = kesta::Library::TryLoad(
        question.libraryFile.empty() ? kesta::Library::kFileName : question.libraryFile);
    const auto nothing = [](const auto&) { return std::string(); };
    if (!library) {
        if (question.version) teller.Tell(library, nothing);
        teller.Tell(library, nothing);
        ::_exit(0);
    }
    UsePersonsLanguage(library.value());
    const auto& ask = library.value().Try();
    if (question.version) teller.Tell(ask.GetDllVersion(), asIs);
    std::string serial = question.serial;
    if (serial.empty()) {
        const auto found = ask.GetPrintNumber();
        if (!teller.Tell(found, asIs)) ::_exit(0);
        serial = found.value();
    } else {
        const auto label = ask.GetLabel(serial);  // the first that tells whether it is there
        if (!teller.Tell(label, [&](const auto&) { return serial; })) ::_exit(0);
    }
    teller.Tell(ask.GetPinInfo(serial), [](const kesta::Bytes& record) {
        return std::string(record.begin(), record.end());
    });
    for (const KeyPair& pair : kKeyPairs) {
        teller.Tell(ask.GetCert(serial, pair.certType, pair.keyType), asIs);
    }
    ::_exit(0);
}

// The parent's end, with a limit of time for all of it.
class Listener {
public:
    Listener(int input, int seconds)
        : input_(input), end_(std::chrono::steady_clock::now() + std::chrono::seconds(seconds)) {}

    std::optional<KeyAnswer> Next() {
        Head head{};
        KeyAnswer answer;
        if (!Read(&head, sizeof head) || head.length > kLongestText) return std::nullopt;
        answer.text.resize(head.length);
        if (!Read(answer.text.data(), head.length)) return std::nullopt;
        answer.code = head.code;
        answer.kind = static_cast<kesta::Kind>(head.kind);
        return answer;
    }
    bool late() const { return late_; }

private:
    bool Read(void* place, std::size_t size) {
        auto* at = static_cast<char*>(place);
        while (size != 0) {
            if (!Ready()) return false;
            const ssize_t got = ::read(input_, at, size);
            if (got < 0 && errno == EINTR) continue;
            if (got <= 0) return false;
            at += got;
            size -= static_cast<std::size_t>(got);
        }
        return true;
    }

    bool Ready() {
        for (;;) {
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                end_ - std::chrono::steady_clock::now());
            pollfd wait{input_, POLLIN, 0};
            const int ready =
                ::poll(&wait, 1, left.count() < 0 ? 0 : static_cast<int>(left.count()));
            if (ready > 0) return true;
            if (ready < 0 && errno == EINTR) continue;
            late_ = ready == 0;
            return false;
        }
    }

    const int input_;
    const std::chrono::steady_clock::time_point end_;
    bool late_ = false;
};

bool All(const std::vector<KeyAnswer>& answers) {
    return answers.size() == 2 + std::size(kKeyPairs) ||
           (answers.size() == 1 && answers.front().code != KESTA_OK);
}

std::string Ending(int status, bool late, int seconds) {
    if (late) {
        return Fill(seconds == 1 ? _("the token library gave no answer in {1} second")
                                 : _("the token library gave no answer in {1} seconds"),
                    {std::to_string(seconds)});
    }
    if (!WIFSIGNALED(status)) return _("the token library ended without an answer");
    return Fill(_("the token library crashed with {1}"), {_(::strsignal(WTERMSIG(status)))});
}

}  // namespace

KeyAnswers AskKey(const KeyQuestion& question) {
    KeyAnswers heard;
    int ends[2];
    if (::pipe(ends) != 0) {
        heard.startError = errno;
        return heard;
    }
    std::fflush(nullptr);
    const pid_t child = ::fork();
    if (child == 0) {
        ::close(ends[0]);
        Answer(question, ends[1]);
    }
    if (child < 0) heard.startError = errno;
    ::close(ends[1]);
    if (child > 0) {
        Listener listener(ends[0], question.seconds);
        if (question.version) {
            const auto told = listener.Next();
            if (told && told->code == KESTA_OK) heard.version = told->text;
        }
        while (!All(heard.answers)) {
            auto answer = listener.Next();
            if (!answer) break;
            heard.answers.push_back(std::move(*answer));
        }
        if (listener.late()) ::kill(child, SIGKILL);
        int status = 0;
        while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
        }
        if (!All(heard.answers)) heard.ending = Ending(status, listener.late(), question.seconds);
    }
    ::close(ends[0]);
    return heard;
}

const char* AskedFunction(std::size_t number) {
    return number == 0   ? _("Initialize and GetPrintNumber")
           : number == 1 ? "GetPinInfo"
                         : "GetCert";
}

}  // namespace ukey

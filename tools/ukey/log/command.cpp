// log: the diagnostic log, as calls with their durations and results.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <thread>
#include <vector>

#include "commands.h"
#include "interrupt.h"
#include "kesta/places.h"
#include "log/show.h"

namespace ukey {
namespace {

struct LogWish {
    std::string file = kesta::places::kLogFile;
    std::string operation;
    std::size_t last = 0;
    bool follow = false;
    bool records = false;
    bool failed = false;
    bool showKeys = false;

    bool Wants(const LogCall& call) const {
        if (!operation.empty() && call.operation != operation) return false;
        return !failed || (call.code && *call.code != 0);
    }
};

// A file that grows, is cut short, or is replaced by another one of the same name.
class GrowingFile {
public:
    explicit GrowingFile(std::string path) : path_(std::move(path)) {}
    ~GrowingFile() { Close(); }
    GrowingFile(const GrowingFile&) = delete;
    GrowingFile& operator=(const GrowingFile&) = delete;

    // False when there is no such file; errno says why.
    bool Open() {
        Close();
        descriptor_ = ::open(path_.c_str(), O_RDONLY | O_CLOEXEC);
        offset_ = 0;
        return descriptor_ >= 0;
    }

    // What has been added; empty when nothing has.
    std::string Read() {
        char block[65536];
        const ssize_t got = descriptor_ < 0 ? 0 : ::read(descriptor_, block, sizeof block);
        if (got < 0 && errno != EINTR) throw FileError(path_ + " cannot be read", errno);
        if (got <= 0) return {};
        offset_ += got;
        return std::string(block, static_cast<std::size_t>(got));
    }

    // True when what stands under the name now is not what is being read.
    bool Replaced() const {
        struct stat now {};
        struct stat open {};
        if (::stat(path_.c_str(), &now) != 0) return false;
        if (descriptor_ < 0 || ::fstat(descriptor_, &open) != 0) return true;
        return now.st_ino != open.st_ino || now.st_dev != open.st_dev || now.st_size < offset_;
    }

private:
    void Close() {
        if (descriptor_ >= 0) ::close(descriptor_);
        descriptor_ = -1;
    }

    const std::string path_;
    int descriptor_ = -1;
    off_t offset_ = 0;
};

// The text of a code: our own for the library's, the token library's where it can be asked.
std::string MessageOf(Session& session, int code) {
    const std::string own = kesta::OwnMessage(code);
    if (!own.empty()) return own;
    const auto& library = session.TryLibrary();
    if (!library) return {};
    const auto text = library.value().Try().GetErrorMsg(code);
    return text ? text.value() : std::string();
}

LogShow MakeShow(Session& session, const LogWish& wish) {
    return LogShow(wish.showKeys, wish.records,
                   [&session](int code) { return MessageOf(session, code); });
}

// Names of columns are in the way of a program.
bool ForPerson(const Session& session) {
    return !session.json && ::isatty(STDOUT_FILENO) == 1;
}

// Calls come as they are over; here they get into the order in which they began. Of more than most
// the latest stay; 0 is no bound.
void KeepLatest(std::vector<LogCall>& calls, std::size_t most) {
    std::sort(calls.begin(), calls.end(),
              [](const LogCall& a, const LogCall& b) { return a.number < b.number; });
    if (most != 0 && calls.size() > most) {
        calls.erase(calls.begin(), calls.end() - static_cast<std::ptrdiff_t>(most));
    }
}

void TellStrange(const LogReader& reader) {
    if (reader.strangeBytes() == 0) return;
    std::fprintf(stderr, "ukey: %zu bytes of the log belong to no record and are left out\n",
                 reader.strangeBytes());
}

Exit ShowAll(Session& session, const LogWish& wish) {
    GrowingFile file(wish.file);
    if (!file.Open()) throw FileError(wish.file + " cannot be read", errno);
    std::vector<LogCall> calls;
    LogPairing pairing(nullptr, [&](const LogCall& call) {
        if (!wish.Wants(call)) return;
        calls.push_back(call);
        // A long log must not fill the memory for a few calls at its end.
        if (wish.last != 0 && calls.size() > 100 && calls.size() / 2 > wish.last) {
            KeepLatest(calls, wish.last);
        }
    });
    LogReader reader;
    for (std::string piece = file.Read(); !piece.empty(); piece = file.Read()) {
        for (LogRecord& record : reader.Feed(piece)) pairing.Take(std::move(record));
    }
    for (LogRecord& record : reader.Pause()) pairing.Take(std::move(record));
    pairing.Finish();
    KeepLatest(calls, wish.last);
    LogShow show = MakeShow(session, wish);
    Json shown = Json::array();
    if (ForPerson(session) && !calls.empty()) LogShow::PrintHead();
    for (const LogCall& call : calls) {
        const char* const state = call.code ? "ended" : "no-end";
        if (session.json) {
            shown.push_back(show.ToJson(call, state));
        } else {
            show.Print(call, state);
        }
    }
    if (session.json) {
        PrintJson(Success({{"file", wish.file},
                           {"strangeBytes", reader.strangeBytes()},
                           {"calls", std::move(shown)}}));
    } else {
        TellStrange(reader);
    }
    return Exit::kOk;
}

// Calls are shown twice, when they begin and when they are over: one that hangs is to be seen.
Exit Follow(Session& session, const LogWish& wish) {
    LogShow show = MakeShow(session, wish);
    if (ForPerson(session)) LogShow::PrintHead();
    const auto tell = [&](const LogCall& call, const char* state) {
        if (!wish.Wants(call)) return;
        if (session.json) {
            PrintJson(Success(show.ToJson(call, state)));
        } else {
            show.Print(call, state);
        }
    };
    LogPairing pairing([&](const LogCall& call) { tell(call, "begun"); },
                       [&](const LogCall& call) { tell(call, call.code ? "ended" : "no-end"); });
    const Interrupt interrupt;
    GrowingFile file(wish.file);
    auto reader = std::make_unique<LogReader>();
    file.Open();
    while (!Interrupt::Came()) {
        const std::string piece = file.Read();
        for (LogRecord& record : piece.empty() ? reader->Pause() : reader->Feed(piece)) {
            pairing.Take(std::move(record));
        }
        if (!piece.empty()) continue;
        FinishOutput();
        if (file.Replaced()) {
            file.Open();
            reader = std::make_unique<LogReader>();
            continue;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    return Exit::kInterrupted;
}

}  // namespace

void AddLogCommand(CLI::App& app, Session& session) {
    CLI::App* const command = AddCommand(
        app, session, "log", "Show the library's diagnostic log: calls, durations, results",
        "  ukey log --failed --last 20\n"
        "  ukey log --follow --records      everything, as it happens\n"
        "  ukey log --json | jq '.calls[] | select(.microseconds > 1000000)'",
        {true, false});
    auto wish = std::make_shared<LogWish>();
    command->add_option("file", wish->file, "The log; by default " + wish->file)->type_name("FILE");
    command->add_flag("-f,--follow", wish->follow, "Go on with what is added, until interrupted");
    command->add_option("-n,--last", wish->last, "The last calls alone")->type_name("N");
    command->add_option("--operation", wish->operation, "Calls of this function alone")
        ->type_name("NAME");
    command->add_flag("--failed", wish->failed, "Failed calls alone");
    command->add_flag("-r,--records", wish->records, "With the records of each call");
    command->add_flag("--show-keys", wish->showKeys,
                      "Show escrowed keys, which are replaced by their lengths otherwise");
    command->callback([&session, wish] {
        session.action = [&session, wish] {
            return wish->follow ? Follow(session, *wish) : ShowAll(session, *wish);
        };
    });
}

}  // namespace ukey

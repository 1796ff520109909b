// log: the diagnostic log, as calls with their durations and results.
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <functional>
#include <queue>
#include <vector>

#include "kesta/places.h"
#include "kit/interrupt.h"
#include "kit/language.h"
#include "log/journal.h"
#include "log/order.h"
#include "log/show.h"
#include "log/writers.h"
#include "session.h"

namespace ukey {
namespace {

constexpr long long kMostLast = 1000000;

struct Asked {
    std::string file = kesta::places::kLogFile;
    std::string operation;
    std::optional<std::size_t> last;
    bool follow = false;
    bool records = false;
    bool failed = false;
    bool showKeys = false;
    bool journal = false;

    bool Wants(const LogCall& call) const {
        if (!operation.empty() && call.operation != operation) return false;
        return !(failed || journal) || (call.code && *call.code != 0);
    }
};

// The text of a code: our own for the library's, the token library's where it can be asked.
std::string MessageOf(Session& session, int code) {
    const std::string own = kesta::OwnMessage(code);
    if (!own.empty()) return own;
    const auto& library = session.TryLibrary();
    if (!library) return {};
    const auto text = library.value().Try().GetErrorMsg(code);
    return text ? ToUtf8(text.value()) : std::string();
}

LogShow MakeShow(Session& session, const Asked& wish) {
    return LogShow(wish.showKeys, wish.records,
                   [&session](int code) { return MessageOf(session, code); });
}

// Names of columns are in the way of a program.
bool ForPerson(const Session& session) {
    return !session.json && ::isatty(STDOUT_FILENO) == 1;
}

// The number of the first call to be shown, when the last so many that are wanted are.
std::size_t FirstOfLast(const LogSource& source, const Asked& wish) {
    if (!wish.last) return 0;
    std::priority_queue<std::size_t, std::vector<std::size_t>, std::greater<>> latest;
    std::size_t calls = 0;
    LogOrder(source, false).Read([&](const LogCall& call) {
        calls = call.number;
        if (!wish.Wants(call)) return;
        latest.push(call.number);
        if (latest.size() > *wish.last) latest.pop();
    });
    return latest.empty() ? calls + 1 : latest.top();
}

// What an empty or a short list does not say by itself.
void TellMore(const Asked& wish, const LogOrder& order, std::size_t shown) {
    const std::string name = LogName(wish.file);
    const std::size_t strange = order.strangeBytes();
    std::string text;
    if (order.calls() == 0 && strange != 0) {
        text = Fill(_("{1} holds no record of the library; a compressed one is read by `zcat {1} | "
                      "ukey log -`, one in UTF-16 by `iconv -f UTF-16 -t UTF-8 {1} | ukey log -`"),
                    {name});
    } else if (order.calls() == 0) {
        text = Fill(_("{1} is empty"), {name});
    } else if (shown == 0) {
        const std::string calls = std::to_string(order.calls());
        text = wish.operation.empty()
                   ? Fill(_("none of the log's {1} calls is asked for"), {calls})
                   : Fill(_("none of the log's {1} calls is asked for; these functions write to "
                            "it: {2}"),
                          {calls, LoggedFunctions()});
    }
    if (!text.empty()) TellAside(text);
    if (strange == 0 || order.calls() == 0) return;
    TellAside(Fill(_("{1} bytes of the log belong to no record and are left out"),
                   {std::to_string(strange)}));
}

// One object, written as the log is read: what it says of success comes last.
class JsonList {
public:
    explicit JsonList(const std::string& file) {
        Put("{\"file\":" + Json(file).Text() + ",\"calls\":[");
    }
    void Add(const Json& call) {
        Put((empty_ ? "" : ",") + call.Text());
        empty_ = false;
    }
    void End(const LogOrder& order) {
        Put("],\"strangeBytes\":" + std::to_string(order.strangeBytes()) + ",\"ok\":true}\n");
    }
    void Fail(const std::string& message) {
        const Json error = {{"kind", Name(Exit::kFile)}, {"message", message}};
        Put("],\"ok\":false,\"error\":" + error.Text() + "}\n");
    }

private:
    bool empty_ = true;
};

const char* StateOf(const LogCall& call) {
    return call.code ? "ended" : "no-end";
}

Exit ShowJson(Session& session, const Asked& wish, const LogSource& source) {
    const std::size_t first = FirstOfLast(source, wish);
    LogShow show = MakeShow(session, wish);
    LogOrder order(source, wish.records);
    JsonList list(wish.file);
    try {
        order.Read([&](const LogCall& call) {
            if (call.number < first || !wish.Wants(call)) return;
            list.Add(show.ToJson(call, StateOf(call)));
        });
    } catch (const FileError& error) {
        list.Fail(error.what());
        return Exit::kFile;
    }
    list.End(order);
    return Exit::kOk;
}

Exit ShowText(Session& session, const Asked& wish, const LogSource& source) {
    const std::size_t first = FirstOfLast(source, wish);
    LogShow show = MakeShow(session, wish);
    LogOrder order(source, wish.records);
    std::size_t shown = 0;
    order.Read([&](const LogCall& call) {
        if (call.number < first || !wish.Wants(call)) return;
        if (shown++ == 0 && ForPerson(session)) LogShow::PrintHead();
        show.Print(call, StateOf(call));
    });
    FinishOutput();
    TellMore(wish, order, shown);
    return Exit::kOk;
}

Exit SendAll(Session& session, const Asked& wish, const LogSource& source) {
    const Journal journal;
    const std::size_t first = FirstOfLast(source, wish);
    std::size_t sent = 0;
    LogOrder(source, false).Read([&](const LogCall& call) {
        if (call.number < first || !wish.Wants(call)) return;
        journal.Send(call, MessageOf(session, *call.code));
        ++sent;
    });
    if (session.json) {
        PrintJson(Success({{"sent", sent}}));
    } else {
        PrintLine(Fill(sent == 1 ? _("{1} failed call sent to the journal")
                                 : _("{1} failed calls sent to the journal"),
                       {std::to_string(sent)}));
    }
    return Exit::kOk;
}

Exit ShowAll(Session& session, const Asked& wish) {
    const LogSource source(wish.file);
    if (wish.journal) return SendAll(session, wish, source);
    return session.json ? ShowJson(session, wish, source) : ShowText(session, wish, source);
}

// Which of the calls that are there already come before the last so many. Those that are written
// between this look and the next come behind.
std::size_t FirstToFollow(const Asked& wish) {
    if (!wish.last || ::access(wish.file.c_str(), F_OK) != 0) return 0;
    return FirstOfLast(LogSource(wish.file), wish);
}

// A moment, or less when nobody reads the output any more.
void WaitForMore() {
    pollfd output{STDOUT_FILENO, 0, 0};
    if (::poll(&output, 1, 100) == 1 && (output.revents & POLLERR) != 0) {
        Put("\n");  // ends as every write into a closed pipe does
        FinishOutput();
    }
}

// Until an interrupt, or the end of a pipe.
Exit ReadOn(GrowingLog& file, LogPairing& pairing) {
    auto reader = std::make_unique<LogReader>();
    const auto take = [&pairing](std::vector<LogRecord> records) {
        for (LogRecord& record : records) pairing.Take(std::move(record));
    };
    while (!Interrupt::Came() && !file.ended()) {
        const std::string piece = file.Read();
        take(piece.empty() ? reader->Pause() : reader->Feed(piece));
        if (!piece.empty()) continue;
        FinishOutput();
        if (file.Replaced()) {
            reader = std::make_unique<LogReader>();
        } else if (!file.ended()) {
            WaitForMore();
        }
    }
    if (Interrupt::Came()) return Exit::kInterrupted;
    take(reader->Finish());
    pairing.Finish();
    return Exit::kOk;
}

// Calls are shown twice, when they begin and when they are over: one that hangs is to be seen.
Exit Follow(Session& session, const Asked& wish) {
    if (wish.last && wish.file == "-") {
        throw UsageError(_("--last with --follow takes a file, not standard input"));
    }
    const Interrupt interrupt;
    std::optional<Journal> journal;
    if (wish.journal) journal.emplace();
    const std::size_t first = FirstToFollow(wish);
    LogShow show = MakeShow(session, wish);
    GrowingLog file(wish.file);
    if (!file.present()) {
        TellAside(Fill(_("{1} is not there yet"), {wish.file}));
    }
    if (ForPerson(session) && !journal) LogShow::PrintHead();
    const auto tell = [&](const LogCall& call, const char* state) {
        if (call.number < first || !wish.Wants(call)) return;
        if (journal) {
            journal->Send(call, MessageOf(session, *call.code));
        } else if (session.json) {
            PrintJson(Success(show.ToJson(call, state)));
        } else {
            show.Print(call, state);
        }
    };
    LogPairing pairing([&](const LogCall& call) { tell(call, "begun"); },
                       [&](LogCall&& call) { tell(call, StateOf(call)); }, wish.records);
    return ReadOn(file, pairing);
}

Exit ShowLog(Session& session, const Asked& given) {
    Asked wish = given;
    if (!wish.operation.empty()) wish.operation = LoggedFunction(wish.operation);
    return wish.follow ? Follow(session, wish) : ShowAll(session, wish);
}

}  // namespace

Action Log(const Options& options, Session& session) {
    const auto wish = std::make_shared<Asked>();
    options.Text("FILE", wish->file, "FILE",
                 Fill(_("The log; by default {1}; - for standard input"), {wish->file}).c_str());
    options.Flag("-f,--follow", wish->follow, N_("Go on with what is added, until interrupted"));
    options.Number("-n,--last", wish->last, 0, kMostLast, "N", N_("The last calls alone"));
    options.Text("--operation", wish->operation, "NAME", N_("Calls of this function alone"));
    options.Flag("--failed", wish->failed, N_("Failed calls alone"));
    options.Flag("-r,--records", wish->records, N_("With the records of each call"));
    options.Flag("--show-keys", wish->showKeys,
                 N_("Show escrowed keys, which are replaced by their lengths otherwise"));
    options.Flag("--journal", wish->journal,
                 N_("Send failed calls to the system's journal instead of showing them"));
    options.Examples(
        "  ukey log --failed --last 20\n"
        "  ukey log --follow --records      everything, as it happens\n"
        "  ukey log --follow --last 0 --journal\n"
        "  ukey log --json | jq '.calls[] | select(.microseconds > 1000000)'");
    return Does(ShowLog, session, wish);
}

}  // namespace ukey

// wait: insertions and removals as they happen.
#include <chrono>

#include "commands.h"
#include "interrupt.h"

namespace ukey {
namespace {

using Clock = std::chrono::steady_clock;

struct WaitWish {
    unsigned count = 1;
    bool forever = false;
    double timeout = 0;  // seconds; 0: none
    std::string kind = "any";
};

const char* KindName(const kesta::Event& event) {
    switch (event.kind) {
        case kesta::Event::Kind::kArrival:
            return "inserted";
        case kesta::Event::Kind::kRemoval:
            return "removed";
        default:
            return "other";
    }
}

void Show(const Session& session, const kesta::Event& event) {
    if (session.json) {
        Json line = Success({{"event", KindName(event)}, {"mediaId", event.mediaId}});
        if (event.code != KESTA_OK) line["code"] = event.code;
        PrintJson(line);
    } else {
        std::string line = KindName(event);
        line.append(10 - line.size(), ' ');
        line += event.mediaId.empty() ? "(media id not known)" : Printable(event.mediaId);
        if (event.code != KESTA_OK) line += "  could not be read, " + kesta::CodeText(event.code);
        PrintLine(line);
    }
    FinishOutput();  // a reader at the end of a pipe sees it now
}

bool Wanted(const WaitWish& wish, const kesta::Event& event) {
    return wish.kind == "any" || wish.kind == KindName(event);
}

Exit Wait(Session& session, const WaitWish& wish) {
    session.library().Initialize();
    const Interrupt interrupt;
    kesta::EventWaiter waiter(session.library());
    const auto end = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                        std::chrono::duration<double>(wish.timeout));
    unsigned seen = 0;
    while (wish.forever || seen < wish.count) {
        if (Interrupt::Came()) return Exit::kInterrupted;
        if (const auto failure = waiter.LastFailure()) throw kesta::Error(*failure);
        if (wish.timeout > 0 && Clock::now() >= end) {
            const char* const text = "no event in time";
            Complain({Exit::kTimeout, text, "", "", 0}, session.json);
            return Exit::kTimeout;
        }
        const auto event = waiter.Next(std::chrono::milliseconds(100));
        if (!event || !Wanted(wish, *event)) continue;
        Show(session, *event);
        ++seen;
    }
    return Exit::kOk;
}

}  // namespace

void AddWaitCommand(CLI::App& app, Session& session) {
    CLI::App* const command =
        AddCommand(app, session, "wait", "Wait until a key is inserted or removed",
                   "  ukey wait                        one event\n"
                   "  ukey wait --for inserted --timeout 30\n"
                   "  ukey wait --forever --json       one JSON object on each line",
                   {true, false});
    auto wish = std::make_shared<WaitWish>();
    // Checks without descriptions of their own, which would stand in the help beside the names.
    CLI::Option* const forever =
        command->add_flag("-f,--forever", wish->forever, "Go on until interrupted");
    command->add_option("-n,--count", wish->count, "End after so many events, by default 1")
        ->type_name("N")
        ->check(CLI::Range(1U, 1000000U).description(""))
        ->excludes(forever);
    command->add_option("-t,--timeout", wish->timeout, "Give up after so many seconds")
        ->type_name("SECONDS")
        ->check([](const std::string& text) {
            double seconds = 0;
            const bool good = CLI::detail::lexical_cast(text, seconds) && seconds > 0;
            return good && seconds <= 1e6 ? "" : "it takes a number of seconds above 0";
        });
    command->add_option("--for", wish->kind, "Count these alone, by default any")
        ->type_name("inserted|removed|any")
        ->check(CLI::IsMember({"inserted", "removed", "any"}).description(""));
    command->callback(
        [&session, wish] { session.action = [&session, wish] { return Wait(session, *wish); }; });
}

}  // namespace ukey

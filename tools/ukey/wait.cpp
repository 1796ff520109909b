#include <chrono>
#include <cstdlib>

#include "kit/interrupt.h"
#include "session.h"

namespace ukey {
namespace {

using Clock = std::chrono::steady_clock;

struct Wish {
    unsigned count = 1;
    bool forever = false;
    double timeout = 0;  // seconds; 0: none
    std::string kind = "any";

    bool Wants(const char* event) const { return kind == "any" || kind == event; }
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
        line += event.mediaId.empty() ? _("(media id not known)") : Printable(event.mediaId);
        if (event.code != KESTA_OK) {
            line += "  " + Fill(_("could not be read, {1}"), {kesta::CodeText(event.code)});
        }
        PrintLine(line);
    }
    FinishOutput();  // a reader at the end of a pipe sees it now
}

// The next event, or nothing after a while.
std::optional<kesta::Event> Next(kesta::EventWaiter& waiter, Clock::time_point end, bool limited) {
    if (const auto failure = waiter.LastFailure()) throw kesta::Error(*failure);
    if (limited && Clock::now() >= end) {
        throw Failed({static_cast<int>(Exit::kTimeout), _("no event in time"), "", "", {}});
    }
    return waiter.Next(std::chrono::milliseconds(100));
}

Exit WaitFor(Session& session, const Wish& wish) {
    session.library().Initialize();
    const Interrupt interrupt;
    kesta::EventWaiter waiter(session.library());
    const auto end = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                        std::chrono::duration<double>(wish.timeout));
    unsigned seen = 0;
    std::optional<Hint> hint;
    while (wish.forever || seen < wish.count) {
        if (Interrupt::Came()) return Exit::kInterrupted;
        if (!hint && !session.json) {
            hint.emplace(_("Waiting for a key to be inserted or removed; Ctrl-C ends it."));
        }
        const auto event = Next(waiter, end, wish.timeout > 0);
        if (!event || !wish.Wants(KindName(*event))) continue;
        hint.reset();
        Show(session, *event);
        ++seen;
    }
    return Exit::kOk;
}

double Seconds(const std::string& text) {
    char* rest = nullptr;
    const double seconds = std::strtod(text.c_str(), &rest);
    if (text.empty() || *rest != '\0' || !(seconds > 0) || seconds > 1e6) {
        throw UsageError(_("--timeout: it takes a number of seconds above 0, at most 1000000"));
    }
    return seconds;
}

}  // namespace

Action Wait(const Options& options, Session& session) {
    const auto wish = std::make_shared<Wish>();
    const Option forever =
        options.Flag("-f,--forever", wish->forever, N_("Go on until interrupted"));
    options
        .Number("-n,--count", wish->count, 1, 1000000, "N",
                N_("End after so many events, by default 1"))
        .Excludes(forever);
    options.Read(
        "-t,--timeout", [wish](const std::string& text) { wish->timeout = Seconds(text); },
        "SECONDS", N_("Give up after so many seconds"));
    options.Text("--for", wish->kind, "inserted|removed|any",
                 N_("Count these alone, by default any"));
    options.Examples(
        "  ukey wait                        one event\n"
        "  ukey wait --for inserted --timeout 30\n"
        "  ukey wait --forever --json       one JSON object on each line");
    return Does(WaitFor, session, wish);
}

}  // namespace ukey

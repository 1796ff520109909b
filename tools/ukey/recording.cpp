// record, replay and trace show: what the recorder's folder does, as subcommands.
#include <iostream>

#include "command/run.h"
#include "command/show.h"
#include "kit/files.h"
#include "kit/output.h"
#include "session.h"
#include "version.h"

namespace ukey {
namespace {

namespace recorder = kesta::recorder;

// Statuses of a command that was run are passed on as they are.
constexpr auto kDiffers = static_cast<Exit>(20);

// The recorder's own errors, as this command's.
template <typename Work>
Exit Guarded(const std::string& file, Work work) {
    try {
        return work();
    } catch (const recorder::BadRecording& bad) {
        throw kit::FileError(file + ": " + bad.what(), 0);
    } catch (const recorder::CannotRun& cannot) {
        throw kit::FileError(cannot.what(), 0);
    }
}

void Tell(const std::string& line) {
    std::cerr << "ukey: " << line << "\n";
}

Option TakesCommand(const Options& options, std::vector<std::string>& words) {
    return options
        .Texts("COMMAND", words, "COMMAND", N_("What to run, with its arguments, behind --"))
        .Required();
}

struct RunWish {
    std::string file;
    bool full = false;
    bool tolerant = false;
    bool timed = false;
    std::vector<std::string> command;
};

Exit RunRecorded(const RunWish& wish) {
    const recorder::Recorded recorded =
        recorder::record(wish.file, wish.full, UKEY_VERSION, wish.command);
    if (recorded.lost != 0) {
        Tell(wish.file + ": the recording ends early, there was no room for " +
             std::to_string(recorded.lost) + " records; the command was not disturbed");
    } else if (recorded.calls == 0) {
        Tell(wish.file + ": the command made no call of the library");
    }
    return static_cast<Exit>(recorded.status);
}

Exit RunReplayed(const RunWish& wish) {
    const recorder::Replayed replayed =
        recorder::replay(wish.file, wish.tolerant, wish.timed, wish.command);
    if (replayed.difference.empty()) return static_cast<Exit>(replayed.status);
    Tell("the replay differs: " + replayed.difference);
    return kDiffers;
}

Exit ShowTrace(const Session& session, const std::string& file, const std::string& page) {
    const recorder::Recording recording = recorder::readRecording(file);
    const auto print = [](const std::string& line) { kit::Put(line + "\n"); };
    if (!page.empty()) {
        kit::WriteOutput(page, recorder::showPage(recording));
    } else if (session.json) {
        recorder::showJson(recording, print);
    } else {
        recorder::showText(recording, print);
    }
    return Exit::kOk;
}

}  // namespace

Action Record(const Options& options, Session&) {
    const auto wish = std::make_shared<RunWish>();
    options.Text("-o,--output", wish->file, "FILE", N_("The recording; an earlier one is replaced"))
        .Required();
    options.Flag("--full", wish->full,
                 N_("Keep identifiers and contents; for keys of one's own. Secrets never"));
    TakesCommand(options, wish->command);
    options.Examples(
        "  ukey record -o case.rec -- ./client\n"
        "  ukey-sandbox ukey record -o case.rec -- ./client   with the software key");
    return [wish] { return Guarded(wish->file, [&] { return RunRecorded(*wish); }); };
}

Action Replay(const Options& options, Session&) {
    const auto wish = std::make_shared<RunWish>();
    options.Text("FILE", wish->file, "FILE", N_("The recording")).Required();
    TakesCommand(options, wish->command);
    options.Flag("--tolerant", wish->tolerant,
                 N_("Answer by entry point and arguments, in whatever order calls come"));
    options.Flag("--timed", wish->timed, N_("Deliver events when they came, not at once"));
    options.Examples(
        "  ukey replay case.rec -- ./client\n"
        "  ukey replay --tolerant case.rec -- ./client   in another order");
    options.Remark(
        N_("The first call that differs from the recording, and each one after it, returns -7900; "
           "the exit status is then 20, else the command's."));
    return [wish] { return Guarded(wish->file, [&] { return RunReplayed(*wish); }); };
}

Action TraceShow(const Options& options, Session& session) {
    const auto file = std::make_shared<std::string>();
    const auto page = std::make_shared<std::string>();
    options.Text("FILE", *file, "FILE", N_("The recording")).Required();
    options.Text("--html", *page, "FILE", N_("Write one page that needs nothing else"));
    options.Examples(
        "  ukey trace show case.rec\n"
        "  ukey trace show --json case.rec | jq 'select(.failed)'\n"
        "  ukey trace show --html case.html case.rec");
    return [&session, file, page] {
        return Guarded(*file, [&] { return ShowTrace(session, *file, *page); });
    };
}

}  // namespace ukey

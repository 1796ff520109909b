#include "command/run.h"
#include "recording.h"
#include "version.h"

namespace ukey {
namespace {

struct Wish {
    std::string file;
    bool full = false;
    std::vector<std::string> command;
};

// The status of the command that was run is passed on as it is.
Exit Run(const Wish& wish) {
    const auto recorded = kesta::recorder::Record(wish.file, wish.full, UKEY_VERSION, wish.command);
    if (recorded.lost != 0) {
        TellAside(Fill(_("{1}: the recording ends early, there was no room for {2} records; the "
                         "command was not disturbed"),
                       {wish.file, std::to_string(recorded.lost)}));
    } else if (recorded.calls == 0) {
        TellAside(Fill(_("{1}: the command made no call of the library"), {wish.file}));
    }
    return static_cast<Exit>(recorded.status);
}

}  // namespace

Action Record(const Options& options, Session&) {
    const auto wish = std::make_shared<Wish>();
    options.Text("-o,--output", wish->file, "FILE", N_("The recording; an earlier one is replaced"))
        .Required();
    options.Flag("--full", wish->full,
                 N_("Keep identifiers and contents; for keys of one's own. Secrets never"));
    TakeCommand(options, wish->command);
    options.Examples(
        "  ukey record -o case.rec -- ./client\n"
        "  ukey-sandbox ukey record -o case.rec -- ./client   with the software key");
    return [wish] { return OnRecording(wish->file, [&] { return Run(*wish); }); };
}

}  // namespace ukey

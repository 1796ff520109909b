#include "command/run.h"
#include "recording.h"

namespace ukey {
namespace {

struct Wish {
    std::string file;
    bool tolerant = false;
    bool timed = false;
    std::vector<std::string> command;
};

// The status of the command that was run is passed on as it is.
Exit Run(const Wish& wish) {
    const auto replayed =
        kesta::recorder::Replay(wish.file, wish.tolerant, wish.timed, wish.command);
    if (replayed.difference.empty()) return static_cast<Exit>(replayed.status);
    TellAside(Fill(_("the replay differs: {1}"), {RecorderText(replayed.difference)}));
    return Exit::kDiffers;
}

}  // namespace

Action Replay(const Options& options, Session&) {
    const auto wish = std::make_shared<Wish>();
    options.Text("FILE", wish->file, "FILE", N_("The recording")).Required();
    TakeCommand(options, wish->command);
    options.Flag("--tolerant", wish->tolerant,
                 N_("Answer by entry point and arguments, in whatever order calls come"));
    options.Flag("--timed", wish->timed, N_("Deliver events when they came, not at once"));
    options.Examples(
        "  ukey replay case.rec -- ./client\n"
        "  ukey replay --tolerant case.rec -- ./client   in another order");
    options.Remark(
        N_("The first call that differs from the recording, and each one after it, returns\n"
           "-7900; the exit status is then 20, else the command's."));
    return [wish] { return OnRecording(wish->file, [&] { return Run(*wish); }); };
}

}  // namespace ukey

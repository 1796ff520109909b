#include "command/show.h"
#include "kit/files.h"
#include "kit/output.h"
#include "recording.h"

namespace ukey {
namespace {

namespace recorder = kesta::recorder;

Exit Show(const Session& session, const std::string& file, const std::string& page) {
    const recorder::Recording recording = recorder::ReadRecording(file);
    const auto print = [](const std::string& line) { kit::Put(line + "\n"); };
    if (!page.empty()) {
        kit::WriteOutput(page, recorder::ShowPage(recording));
    } else if (session.json) {
        recorder::ShowJson(recording, print);
    } else {
        recorder::ShowText(recording, [](const std::string& line) { kit::PrintLine(line); });
    }
    return Exit::kOk;
}

}  // namespace

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
        return OnRecording(*file, [&] { return Show(session, *file, *page); });
    };
}

}  // namespace ukey

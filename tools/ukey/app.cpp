// The whole command line.
#include "commands.h"
#include "help.h"
#include "version.h"

namespace ukey {
namespace {

std::string ExitText() {
    std::string text = "Exit status:\n";
    for (const ExitKind& kind : kExitKinds) {
        const std::string number = std::to_string(static_cast<int>(kind.code));
        text += "  " + number + std::string(5 - number.size(), ' ') + kind.words + "\n";
    }
    return text + "\n`ukey COMMAND --help` shows a command's options and examples.";
}

}  // namespace

std::unique_ptr<CLI::App> MakeApp(Session& session) {
    auto app = std::make_unique<CLI::App>(
        "Reads, enrols and uses a USB security key, and finds out why one does not work", "ukey");
    app->require_subcommand(1);
    app->set_version_flag("--version", "ukey " UKEY_VERSION);
    app->formatter(std::make_shared<HelpFormatter>());
    AddInfoCommands(*app, session);
    AddPinCommands(*app, session);
    AddEnrolCommands(*app, session);
    AddImportCommand(*app, session);
    AddCertificateCommands(*app, session);
    AddSignCommands(*app, session);
    AddDecryptCommand(*app, session);
    AddDataCommands(*app, session);
    AddWaitCommand(*app, session);
    AddLogCommand(*app, session);
    AddDoctorCommand(*app, session);
    AddCompletionCommands(*app, session);
    app->footer(ExitText());  // last: subcommands would inherit it
    return app;
}

}  // namespace ukey

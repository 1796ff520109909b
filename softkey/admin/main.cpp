// softkey: the desk of the software key.
#include <cstdio>
#include <exception>
#include <iostream>
#include <new>
#include <system_error>

#include "softkey/admin/commands.h"
#include "softkey/messages.h"

namespace {

using namespace softkey;
using namespace softkey::admin;

constexpr char kFooter[] =
    "The state is kept below $KESTA_SOFTKEY_HOME, else $XDG_DATA_HOME/kesta-softkey,\n"
    "else ~/.local/share/kesta-softkey.\n"
    "\n"
    "Exit codes: 0 done, 1 internal failure, 2 bad command line, 3 no such key or\n"
    "object, 4 PIN, 5 bad input file, 6 damaged state, 7 state out of reach.\n"
    "\n"
    "Examples:\n"
    "  KESTA_SOFTKEY_PIN=123456 softkey create --serial SK0001\n"
    "  softkey list\n"
    "  softkey remove SK0001\n";

std::string Hexadecimal(Code code) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%04X", static_cast<unsigned>(code));
    return text;
}

// Says what went wrong on the error output, as one line of JSON with --json.
int Report(const Session& session, ExitCode exitCode, const std::string& message,
           const std::string& code = {}) {
    std::cout.flush();
    if (session.json) {
        Json error = {{"exit_code", exitCode}, {"message", message}};
        if (!code.empty()) error["code"] = code;
        std::cerr << Json{{"error", error}}.dump(-1, ' ', false, Json::error_handler_t::replace)
                  << '\n';
    } else {
        std::cerr << "softkey: " << Printable(message) << '\n';
    }
    return exitCode;
}

int ReportFailure(const Session& session, const Failure& failure) {
    std::string message = MessageText(failure.code(), Language::kEnglish, Charset::kUtf8);
    if (!failure.detail().empty()) message += ": " + failure.detail();
    return Report(session, ExitCodeFor(failure.code()), message, Hexadecimal(failure.code()));
}

void AddAll(CLI::App& app, Session& session) {
    app.add_flag("--json", session.json, "Answer in JSON; errors too, on the error output");
    app.require_subcommand(1);
    app.footer(kFooter);
    for (const auto add :
         {AddCreate, AddList, AddShow, AddUnlock, AddInsert, AddRemove, AddDelete, AddCheck,
          AddScreen, AddButton, AddMisbehave, AddEnvelope, AddExportCert, AddPath}) {
        add(app, session);
    }
}

int Run(CLI::App& app, Session& session, int count, char** arguments) {
    try {
        app.parse(count, arguments);
        return session.exitCode;
    } catch (const CLI::Success& request) {
        return app.exit(request);  // --help
    } catch (const CLI::ParseError& error) {
        return Report(session, kExitUsage, std::string(error.what()) + " (see softkey --help)");
    } catch (const Failure& failure) {
        return ReportFailure(session, failure);
    } catch (const InputError& error) {
        return Report(session, kExitInput, error.what());
    } catch (const std::system_error& error) {
        return Report(session, kExitState, error.what());
    } catch (const std::exception& error) {
        return Report(session, kExitInternal, error.what());
    }
}

}  // namespace

int main(int count, char** arguments) {
    try {
        CLI::App app("The desk of the software key: make keys, insert and pull them, look at them",
                     "softkey");
        Session session;
        AddAll(app, session);
        const int exitCode = Run(app, session, count, arguments);
        std::cout.flush();
        if (std::cout) return exitCode;
        return Report(session, kExitState, "the standard output cannot be written");
    } catch (const std::exception& error) {
        std::fprintf(stderr, "softkey: %s\n", error.what());
        return kExitInternal;
    }
}

// The ukey command: what a developer or a support engineer asks of a key, from a shell.
#include <algorithm>
#include <csignal>
#include <string_view>

#include "commands.h"

namespace ukey {
namespace {

int Fail(const Session& session, const Complaint& complaint) {
    Complain(complaint, session.json);
    return static_cast<int>(complaint.kind);
}

int Fail(const Session& session, Exit kind, const std::exception& error) {
    return Fail(session, Complaint{kind, error.what(), "", "", 0});
}

int Act(Session& session) {
    try {
        const Exit result = session.action();
        FinishOutput();
        return static_cast<int>(result);
    } catch (const kesta::Error& error) {
        const kesta::Failure& failure = error.failure();
        return Fail(session, Complaint{KindOf(failure), failure.message, Advice(failure),
                                       failure.operation, failure.code});
    } catch (const UsageError& error) {
        return Fail(session, Exit::kUsage, error);
    } catch (const Refused& error) {
        return Fail(session, Exit::kRefused, error);
    } catch (const FileError& error) {
        return Fail(session, Exit::kFile, error);
    } catch (const std::exception& error) {
        return Fail(session, Exit::kFailed, error);
    }
}

// CLI11 misses a command before it looks at the words that are none.
std::string Reason(const CLI::App& app, const std::exception& error) {
    const auto words = app.remaining(true);
    const bool missing = dynamic_cast<const CLI::RequiredError*>(&error) != nullptr;
    if (!missing || words.empty() || words.front().front() == '-') return error.what();
    return "there is no command \"" + words.front() + "\"";
}

// Wrong options: the advice names the command that was asked for.
int Misused(const Session& session, const CLI::App& app, const std::exception& error) {
    std::string name = "ukey";
    for (auto found = app.get_subcommands(); !found.empty();
         found = found.front()->get_subcommands()) {
        name += " " + found.front()->get_name();
    }
    return Fail(session, Complaint{Exit::kUsage, Reason(app, error),
                                   "`" + name + " --help` shows what it takes", "", 0});
}

int Run(int count, char** arguments) {
    Session session;
    // Known before the options are parsed, so that a wrong option is told in JSON too.
    session.json = std::any_of(arguments + 1, arguments + count, [](const char* argument) {
        return std::string_view(argument) == "--json";
    });
    const auto app = MakeApp(session);
    try {
        app->parse(count, arguments);
    } catch (const CLI::Success& help) {
        return app->exit(help);
    } catch (const CLI::ParseError& error) {
        return Misused(session, *app, error);
    } catch (const UsageError& error) {
        return Misused(session, *app, error);
    }
    return Act(session);
}

}  // namespace
}  // namespace ukey

int main(int count, char** arguments) {
    std::signal(SIGPIPE, SIG_IGN);  // the token library may write to others; see FinishOutput
    return ukey::Run(count, arguments);
}

// softkey: makes software keys, inserts and pulls them, and shows what is on them.
#include <system_error>

#include "commands.h"
#include "kit/language.h"
#include "softkey/messages.h"
#include "state.h"

namespace {

using namespace softkey;

// The kit knows its own errors; here are the software key's, and what belongs to its state.
bool Translate(const std::exception& error, kit::Complaint& complaint) {
    if (const auto* const failure = dynamic_cast<const Failure*>(&error)) {
        complaint.message =
            MessageText(failure->code(), command::PersonsLanguage(), Charset::kUtf8);
        if (!failure->detail().empty()) {
            complaint.message =
                kit::Fill(kit::_("{1}: {2}"), {complaint.message, failure->detail()});
        }
        complaint.status = command::ExitFor(failure->code());
        complaint.code = failure->code();
        return true;
    }
    const bool unwritable = dynamic_cast<const kit::OutputError*>(&error) != nullptr;
    const bool system = dynamic_cast<const std::system_error*>(&error) != nullptr;
    if (!unwritable && !system) return false;
    complaint.status = command::kExitState;
    return true;
}

int Run(int count, char** arguments) {
    kit::UsePersonsLocale();
    translate = kit::_;
    kit::Console console;
    kit::Program program(command::kAbout, console, Translate);
    command::AddCommands(program, console);
    return program.Run(count, arguments);
}

}  // namespace

int main(int count, char** arguments) {
    return kit::Guarded(command::kAbout, Run, count, arguments);
}

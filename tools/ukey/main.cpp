// The ukey command: what a developer or a support engineer asks of a key, from a shell.
#include "about.h"
#include "commands.h"
#include "kit/language.h"
#include "kit/program.h"

namespace {

bool Translate(const std::exception& error, kit::Complaint& complaint) {
    const auto* const failed = dynamic_cast<const kesta::Error*>(&error);
    if (failed == nullptr) return false;
    const kesta::Failure& failure = failed->failure();
    complaint = {static_cast<int>(ukey::KindOf(failure)), failure.message, ukey::Advice(failure),
                 failure.operation, failure.code};
    return true;
}

int Run(int count, char** arguments) {
    kit::UsePersonsLocale();
    if (kit::SpeaksChinese()) kesta::Speak(kesta::Language::kChinese);
    ukey::Session session;
    kit::Program program(ukey::kAbout, session, Translate);
    ukey::AddCommands(program, session);
    return program.Run(count, arguments);
}

}  // namespace

int main(int count, char** arguments) {
    return kit::Guarded(ukey::kAbout, Run, count, arguments);
}

#include "kit/console.h"

#include <unistd.h>

#include <iostream>

#include "kit/files.h"

namespace kit {
namespace {

// A file and a pipe get the bytes as they are, a terminal what it cannot be steered by.
void Show(const std::string& text, bool exact) {
    if (::isatty(STDOUT_FILENO) != 1) return WriteOutput("-", text);
    std::string shown = Printable(text, "\n\t");
    if (exact && !shown.empty() && shown.back() != '\n') shown += '\n';
    Say(shown);
}

}  // namespace

void Console::Confirm(const std::string& question) const {
    if (yes) return;
    if (::isatty(STDIN_FILENO) != 1) {
        throw UsageError(Fill(_("{1} Nobody can be asked here: confirm with --yes."), {question}));
    }
    SayAside(Printable(question) + " [y/N] ");
    std::string answer;
    std::getline(std::cin, answer);
    if (answer != "y" && answer != "Y" && answer != "yes") throw Refused(_("nothing was done"));
}

void Console::GiveText(const TextAnswer& answer, Json more) const {
    const bool exact = answer.form == TextForm::kExact;
    const std::string written = exact ? answer.text : answer.text + "\n";
    if (ToFile()) WriteOutput(outputFile, written);
    if (json) {
        more[ToFile() ? "output" : answer.field] = ToFile() ? outputFile : answer.text;
        PrintJson(Success(more));
    } else if (ToFile()) {
        PrintLine(Fill(_("{1} written to {2}"), {_(answer.what), Printable(outputFile)}));
    } else {
        Show(written, exact);
    }
}

void Console::GiveLines(const char* field, const std::vector<std::string>& texts,
                        const std::string& text, const char* written, Json more) const {
    if (ToFile()) WriteOutput(outputFile, text);
    if (json) {
        more[field] = texts;
        if (ToFile()) more["output"] = outputFile;
        PrintJson(Success(more));
    } else if (ToFile()) {
        PrintLine(Fill(written, {std::to_string(texts.size()), Printable(outputFile)}));
    } else {
        Show(text, false);
    }
}

void Console::GiveRows(const Rows& rows, const Json& fields) const {
    json ? PrintJson(Success(fields)) : PrintRows(rows);
}

void Console::GiveDone(const std::string& sentence, const Json& fields) const {
    json ? PrintJson(Success(fields)) : PrintLine(Printable(sentence));
}

}  // namespace kit

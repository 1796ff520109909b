#include "session.h"

#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <iostream>

namespace ukey {
void UsePersonsLanguage(const kesta::Library& library) {
    for (const char* const name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const char* const value = std::getenv(name);
        if (value == nullptr || *value == '\0') continue;
        if (std::strncmp(value, "zh", 2) == 0) return;
        break;
    }
    static_cast<void>(library.Try().SetLanguage("en_US", "").ok());
}

const kesta::Result<kesta::Library>& Session::TryLibrary() {
    if (!library_) {
        library_ =
            kesta::Library::TryLoad(libraryFile.empty() ? kesta::Library::kFileName : libraryFile);
        if (library_->ok()) UsePersonsLanguage(library_->value());
    }
    return *library_;
}

const kesta::Library& Session::library() {
    return TryLibrary().value();
}

std::string Session::Serial() {
    return givenSerial.empty() ? library().GetPrintNumber() : givenSerial;
}

void Session::Confirm(const std::string& question) const {
    if (yes) return;
    if (::isatty(STDIN_FILENO) != 1) {
        throw UsageError(question + " Nobody can be asked here: confirm with --yes.");
    }
    std::cerr << question << " [y/N] " << std::flush;
    std::string answer;
    std::getline(std::cin, answer);
    if (answer != "y" && answer != "Y" && answer != "yes") throw Refused("nothing was done");
}

CLI::App* AddCommand(CLI::App& parent, Session& session, const std::string& name,
                     const std::string& description, const std::string& examples,
                     const Takes& takes) {
    CLI::App* const command = parent.add_subcommand(name, description);
    command->add_flag("--json", session.json, "Print one JSON object instead of text");
    if (takes.library) {
        command->add_option("--library", session.libraryFile, "Load this library file")
            ->type_name("FILE");
    }
    if (takes.serial) {
        command
            ->add_option("-s,--serial", session.givenSerial,
                         "Use the key with this serial number, not the one that is present")
            ->type_name("SN");
    }
    if (takes.output) {
        command
            ->add_option("-o,--output", session.outputFile,
                         "Write the result to this file, readable by its owner alone")
            ->type_name("FILE");
    }
    if (takes.yes) command->add_flag("-y,--yes", session.yes, "Do it without asking");
    if (!examples.empty()) command->footer("Examples:\n" + examples);
    return command;
}

Json Success(Json fields) {
    Json object = {{"ok", true}};
    object.update(fields);
    return object;
}

void GiveText(const Session& session, TextForm form, const std::string& field,
              const std::string& text, Json more) {
    const std::string what = field == "dn"      ? "distinguished name"
                             : field == "plain" ? "plain text"
                                                : field;
    const bool inFile = session.ToFile();
    const bool prompt = form == TextForm::kExact && !inFile && ::isatty(STDOUT_FILENO) == 1;
    const bool line = form == TextForm::kLine || (prompt && !text.empty() && text.back() != '\n');
    const std::string written = line ? text + "\n" : text;
    if (inFile) WriteOutput(session.outputFile, written);
    if (session.json) {
        more[inFile ? "output" : field] = inFile ? session.outputFile : text;
        PrintJson(Success(std::move(more)));
    } else if (inFile) {
        PrintLine(what + " written to " + Printable(session.outputFile));
    } else {
        WriteOutput("-", written);
    }
}

void GiveLines(const Session& session, const std::string& kind,
               const std::vector<std::string>& texts, const std::string& text, Json more) {
    if (session.ToFile()) WriteOutput(session.outputFile, text);
    if (session.json) {
        more[kind + "s"] = texts;
        if (session.ToFile()) more["output"] = session.outputFile;
        PrintJson(Success(std::move(more)));
    } else if (session.ToFile()) {
        PrintLine(std::to_string(texts.size()) + " " + kind + (texts.size() == 1 ? "" : "s") +
                  " written to " + Printable(session.outputFile));
    } else {
        WriteOutput("-", text);
    }
}

void GiveDone(const Session& session, const std::string& sentence, Json fields) {
    if (session.json) {
        PrintJson(Success(std::move(fields)));
    } else {
        PrintLine(Printable(sentence));
    }
}

}  // namespace ukey

// What every subcommand shares: the options that all of them take, the loaded library, the key.
#ifndef UKEY_SESSION_H
#define UKEY_SESSION_H

#include <CLI/CLI.hpp>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "files.h"
#include "kesta/ukey.hpp"
#include "output.h"

namespace ukey {

// Messages in English, unless the person's locale is Chinese. A token library that does not know
// the name, or cannot be bound, stays as it is: the command itself will tell.
void UsePersonsLanguage(const kesta::Library& library);

// A person said no.
struct Refused : std::runtime_error {
    using std::runtime_error::runtime_error;
};

class Session {
public:
    bool json = false;
    bool yes = false;
    std::string libraryFile;
    std::string givenSerial;
    std::string outputFile;

    // What the command line asks for; set by the subcommand that was named.
    std::function<Exit()> action;

    // Loads the library when it is first needed.
    const kesta::Library& library();
    const kesta::Result<kesta::Library>& TryLibrary();

    // The key that --serial names, else the one that is present.
    std::string Serial();

    // True where --output names a file, not standard output.
    bool ToFile() const { return !outputFile.empty() && outputFile != "-"; }

    // Asks before something is lost. Throws Refused; without a terminal, UsageError.
    void Confirm(const std::string& question) const;

private:
    std::optional<kesta::Result<kesta::Library>> library_;
};

// Which options of the session a subcommand takes.
struct Takes {
    bool library = true;
    bool serial = true;
    bool output = false;
    bool yes = false;
};

// Adds a subcommand with the common options; the examples stand at the end of its help.
CLI::App* AddCommand(CLI::App& parent, Session& session, const std::string& name,
                     const std::string& description, const std::string& examples,
                     const Takes& takes = {});

// {"ok":true,…}
Json Success(Json fields = Json::object());

// A result that is one text: the text alone for a person or a file, a field of an object in JSON.
// A line ends with a line break; an exact text is given byte by byte, but for a terminal, where the
// prompt would stand behind it.
enum class TextForm { kLine, kExact };
void GiveText(const Session& session, TextForm form, const std::string& field,
              const std::string& text, Json more = Json::object());

// Several texts of one kind, which are an array in JSON; text is what a person or a file gets.
void GiveLines(const Session& session, const std::string& kind,
               const std::vector<std::string>& texts, const std::string& text, Json more);

// An action without a result: a sentence for a person.
void GiveDone(const Session& session, const std::string& sentence, Json fields = Json::object());

}  // namespace ukey

#endif

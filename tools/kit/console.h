// How a command answers: as text or as JSON, to standard output or into a file, and what it asks
// before it destroys something.
#ifndef KIT_CONSOLE_H
#define KIT_CONSOLE_H

#include <string>
#include <vector>

#include "kit/output.h"

namespace kit {

// A line ends with a line break; an exact text is given byte by byte. On a terminal both are made
// harmless, and an exact text gets a line break so that the prompt does not stand behind it.
enum class TextForm { kLine, kExact };

// A result that is one text.
struct TextAnswer {
    TextForm form = TextForm::kLine;
    const char* field = "";  // its name in JSON
    const char* what = "";   // its name for a person
    std::string text;
};

class Console {
public:
    bool json = false;
    bool yes = false;
    std::string outputFile;

    // True where --output names a file, not standard output.
    bool ToFile() const { return !outputFile.empty() && outputFile != "-"; }

    // Asks before something is lost. Throws Refused; without a terminal, UsageError.
    void Confirm(const std::string& question) const;

    // The text alone for a person or a file, a field of an object in JSON.
    void GiveText(const TextAnswer& answer, Json more = Json::object()) const;
    // Several texts of one kind, which are an array in JSON; text is what a person or a file gets.
    // written: the sentence that tells of a file, with the number {1} and the file's name {2}.
    void GiveLines(const char* field, const std::vector<std::string>& texts,
                   const std::string& text, const char* written, Json more = Json::object()) const;
    // "name  value" lines for a person.
    void GiveRows(const Rows& rows, const Json& fields) const;
    // An action without a result: a sentence for a person.
    void GiveDone(const std::string& sentence, const Json& fields = Json::object()) const;
};

}  // namespace kit

#endif

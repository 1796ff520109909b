#include "input.h"

namespace ukey {

std::string ReadSomething(const std::string& file) {
    const bool standard = file.empty() || file == "-";
    std::string content = ReadInput(standard ? "-" : file);
    if (content.empty()) {
        throw UsageError(standard ? _("standard input is empty") : Fill(_("{1} is empty"), {file}));
    }
    return content;
}

std::string Input::Read() const {
    return given ? *given : ReadSomething(file);
}

void AddInput(const Options& options, Input& input, const char* name, const char* fileSentence,
              const char* textSentence) {
    const Option file = options.Text("FILE", input.file, "FILE", fileSentence);
    options
        .Read(
            name, [&input](const std::string& text) { input.given = text; }, "TEXT", textSentence)
        .Excludes(file);
}

}  // namespace ukey

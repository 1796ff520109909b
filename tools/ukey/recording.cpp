#include "recording.h"

#include <iostream>

#include "command/run.h"
#include "file/reader.h"
#include "kit/files.h"

namespace ukey {

namespace recorder = kesta::recorder;

Exit OnRecording(const std::string& file, const std::function<Exit()>& work) {
    try {
        return work();
    } catch (const recorder::BadRecording& bad) {
        throw kit::FileError(file + ": " + bad.what(), 0);
    } catch (const recorder::CannotRun& cannot) {
        throw kit::FileError(cannot.what(), 0);
    }
}

void TellAside(const std::string& line) {
    std::cerr << "ukey: " << Printable(line) << "\n";
}

void TakeCommand(const Options& options, std::vector<std::string>& words) {
    options.Texts("COMMAND", words, "COMMAND", N_("What to run, with its arguments, behind --"))
        .Required();
}

}  // namespace ukey

// Runs a command so that its calls are recorded, or answered from a recording.
#ifndef KESTA_RECORDER_RUN_H
#define KESTA_RECORDER_RUN_H

#include <cstdint>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

namespace kesta {
namespace recorder {

// The command cannot be run, or the recording cannot be made; the text says why.
class CannotRun : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Of a file that exists.
std::string AbsolutePath(const std::string& path);

// The folder with the recorder's libraries: of the build that this program is in, or installed.
std::string RecorderFolder();

// Variables for a command that is to find the recorder's libraries in front of the real ones.
std::map<std::string, std::string> LoaderVariables(const std::string& folder);

struct Ended {
    int status = 0;      // as a shell tells it
    bool alone = false;  // no process that it started is left
};

// Runs the command with these variables and waits for its end. Interrupts from the keyboard are the
// command's to handle. 127: it was not found, 126: it could not be run.
Ended Run(const std::vector<std::string>& command,
          const std::map<std::string, std::string>& variables);

struct Recorded {
    int status = 0;
    std::uint64_t lost = 0;  // records for which there was no room
    std::uint64_t calls = 0;
};

// Creates the recording and runs the command. An earlier recording of that name is replaced,
// another file is not.
Recorded Record(const std::string& file, bool full, const std::string& version,
                const std::vector<std::string>& command);

struct Replayed {
    int status = 0;
    std::string difference;  // the first; empty where there is none
};

// Runs the command with the recording in the place of the token libraries. Throws BadRecording.
Replayed Replay(const std::string& file, bool tolerant, bool timed,
                const std::vector<std::string>& command);

}  // namespace recorder
}  // namespace kesta

#endif

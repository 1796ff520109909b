// Reads a recording: damaged or cut, it gives what can be read and says what cannot.
#ifndef KESTA_RECORDER_READER_H
#define KESTA_RECORDER_READER_H

#include <cstdint>
#include <map>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <vector>

#include "layout.h"

namespace kesta {
namespace recorder {

using Json = nlohmann::json;

// The file is not what is needed; the text says why.
class BadRecording : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct Call {
    std::uint64_t number = 0;
    std::uint64_t parent = 0;  // the export that it lies beneath; 0: none
    std::uint64_t process = 0;
    std::uint64_t thread = 0;
    std::uint64_t start = 0;   // nanoseconds of the machine's steady clock
    std::uint64_t end = 0;     // 0: it never ended
    std::size_t function = 0;  // of the recording's own list
    Json arguments;            // one value for each parameter
    int how = kReturned;
    Json result;
    Json lastError;  // null for entry points
    Json outputs;    // one value for each parameter; null for those that are not written

    bool ended() const { return end != 0; }
};

struct Function {
    std::string name;
    std::string boundary;
    struct Parameter {
        std::string name;
        std::string visibility;
    };
    std::vector<Parameter> parameters;
};

struct Process {
    std::uint64_t number = 0;
    std::uint64_t id = 0;
    std::uint64_t wall = 0;  // nanoseconds since 1970, at time
    std::uint64_t time = 0;
    std::string program;
    std::string machine;
};

struct Library {
    std::uint64_t process = 0;
    std::string boundary;
    std::string file;
    std::uint64_t size = 0;
    std::string build;
};

struct Recording {
    Json description;
    bool full = false;
    std::vector<Function> functions;
    std::vector<Process> processes;
    std::vector<Library> libraries;
    std::vector<Call> calls;       // by number
    std::uint64_t lost = 0;        // records that found no room
    std::uint64_t unfinished = 0;  // records whose writer ended meanwhile
    std::uint64_t damaged = 0;     // records that say nothing sensible

    const Function& FunctionOf(const Call& call) const { return functions[call.function]; }
    std::string KeyBytes() const;  // empty unless full
};

// Throws BadRecording.
Recording ReadRecording(const std::string& path);
Recording ParseRecording(const std::string& bytes);

// A description of this version's functions, to be the first record.
Json DescribeFunctions();

// [0, map] as bytes.
std::string DescriptionRecord(Json description);

}  // namespace recorder
}  // namespace kesta

#endif

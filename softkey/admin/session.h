// What all subcommands share: the form of the output, the exit code, and the key at hand.
#ifndef SOFTKEY_ADMIN_SESSION_H
#define SOFTKEY_ADMIN_SESSION_H

#include <CLI/CLI.hpp>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "softkey/result.h"
#include "softkey/store/records.h"
#include "softkey/store/store.h"

namespace softkey::admin {

using Json = nlohmann::ordered_json;

// Documented in the manual page; scripts rely on them.
enum ExitCode : int {
    kExitDone = 0,
    kExitInternal = 1,
    kExitUsage = 2,
    kExitNotFound = 3,
    kExitPin = 4,
    kExitInput = 5,
    kExitDamaged = 6,
    kExitState = 7,
};

ExitCode ExitCodeFor(Code code);

// A file that was given to the command and is not what it should be.
class InputError : public std::exception {
public:
    explicit InputError(std::string text) : text_(std::move(text)) {}
    const char* what() const noexcept override { return text_.c_str(); }

private:
    std::string text_;
};

struct Session {
    bool json = false;
    int exitCode = kExitDone;

    // Prints the object with --json, the text without. The text ends with its line end.
    void Print(const Json& object, const std::string& text) const;
};

// A subcommand with its help text and examples, one per line.
CLI::App* AddCommand(CLI::App& app, const std::string& name, const std::string& purpose,
                     const std::string& examples);
// The optional positional argument that names a key.
void AddSerial(CLI::App& command, std::string& serial);

// Opens the state of the folder; kKeyAbsent when there is none yet.
std::unique_ptr<Store> OpenState();
// The key of that serial number; the only key there is when the text is empty. kKeyAbsent,
// kSeveralKeys.
KeyRecord ChooseKey(Store& store, const std::string& serial);

// A whole file, or the standard input for "-". Throws InputError.
std::string ReadInput(const std::string& path);
// Writes a file readable by its owner alone, or the standard output for an empty path or "-".
void WriteOutput(const std::string& path, const std::string& bytes);

// Texts from a key may hold anything; a terminal must not obey them.
std::string Printable(const std::string& text);

}  // namespace softkey::admin

#endif

// Where the command takes a new PIN from: never from the command line.
#ifndef SOFTKEY_COMMAND_PIN_SOURCE_H
#define SOFTKEY_COMMAND_PIN_SOURCE_H

#include <string>
#include <utility>

#include "softkey/pin/pinentry.h"
#include "state.h"

namespace softkey::command {

struct PinSource {
    std::string file;
    bool standardInput = false;
};

// Adds --pin-file and --pin-stdin, which exclude each other.
std::pair<Option, Option> AddPinOptions(const Options& options, PinSource& source);

// From the file or the standard input, where one was named, else as AskNewPin takes it. Throws
// Failure with the code of what went wrong, and FileError for the file.
void ChooseNewPin(const PinSource& source, const PinContext& context, NewPinKind kind,
                  SecretText& pin);

}  // namespace softkey::command

#endif

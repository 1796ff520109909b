// Where the desk's command takes a new PIN from: never from the command line.
#ifndef SOFTKEY_ADMIN_PIN_SOURCE_H
#define SOFTKEY_ADMIN_PIN_SOURCE_H

#include <string>

#include "softkey/admin/session.h"
#include "softkey/pin/pinentry.h"

namespace softkey::admin {

struct PinSource {
    std::string file;
    bool standardInput = false;
};

// Adds --pin-file and --pin-stdin, which exclude each other.
void AddPinOptions(CLI::App& command, PinSource& source);

// From the file or the standard input, where one was named, else as AskNewPin takes it. Throws
// Failure with the code of what went wrong, and InputError for the file.
void ChooseNewPin(const PinSource& source, const PinContext& context, NewPinKind kind,
                  SecretText& pin);

}  // namespace softkey::admin

#endif

// A text that a subcommand works on: given as an option, in a file, or on standard input.
#ifndef UKEY_INPUT_H
#define UKEY_INPUT_H

#include <optional>
#include <string>

#include "session.h"

namespace ukey {

struct Input {
    std::string file;
    std::optional<std::string> given;

    // An empty file or pipe is more often a command that failed than what is wanted, so that it is
    // refused; an empty text can still be given as the option.
    std::string Read() const;
};

// FILE, and the option of that name and form, of which one may be given.
void AddInput(const Options& options, Input& input, const char* name, const char* fileSentence,
              const char* textSentence);

// The content of a file or of standard input, for "-" or an empty name. Throws UsageError when
// there is nothing in it.
std::string ReadSomething(const std::string& file);

}  // namespace ukey

#endif

// What every subcommand shares: the options that many of them take, the loaded library, the key.
#ifndef UKEY_SESSION_H
#define UKEY_SESSION_H

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "exit_codes.h"
#include "kesta/ukey.hpp"
#include "kit/console.h"
#include "kit/options.h"
#include "names.h"

namespace ukey {

// Messages in the language and the charset of the person's locale. A token library that does not
// know the names, or cannot be bound, stays as it is: the command itself will tell.
void UsePersonsLanguage(const kesta::Library& library);

class Session : public kit::Console {
public:
    std::string libraryFile;
    std::string codesFile;
    std::string givenSerial;
    bool skipPin = false;

    // Loads the library when it is first needed.
    const kesta::Library& library();
    const kesta::Result<kesta::Library>& TryLibrary();

    // The key that --serial names, else the one that is present.
    std::string Serial();

    // The key, after the token library has asked for its PIN: everything that uses a private key or
    // changes the key begins so, unless --no-pin was given.
    std::string UnlockedSerial();
    void VerifyPin(const std::string& serial);

private:
    std::optional<kesta::Result<kesta::Library>> library_;
};

// What a subcommand does once the command line is read.
using Action = std::function<Exit()>;

// The usual form: the step gets what the options were written into.
template <class Wish>
Action Does(Exit (*step)(Session&, const Wish&), Session& session, std::shared_ptr<Wish> wish) {
    return [&session, step, wish] { return step(session, *wish); };
}

}  // namespace ukey

#endif

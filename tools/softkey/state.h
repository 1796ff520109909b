// What the subcommands share: the key at hand, exit statuses, and where an answer goes.
#ifndef SOFTKEY_COMMAND_STATE_H
#define SOFTKEY_COMMAND_STATE_H

#include <functional>
#include <memory>
#include <string>

#include "kit/console.h"
#include "kit/files.h"
#include "kit/options.h"
#include "softkey/messages.h"
#include "softkey/result.h"
#include "softkey/store/records.h"
#include "softkey/store/store.h"

namespace softkey::command {

using namespace kit;

// Documented in the manual page; scripts rely on them.
enum Exit : int {
    kExitDone = 0,
    kExitFailed = 1,
    kExitUsage = 2,
    kExitNotFound = 3,
    kExitPin = 4,
    kExitFile = 5,
    kExitDamaged = 6,
    kExitState = 7,
};

Exit ExitFor(Code code);

// The language of the software key's own texts, for the person at the command.
Language PersonsLanguage();

using Action = std::function<Exit()>;

// The usual form: the step gets what the options were written into.
template <class Wish>
Action Does(Exit (*step)(Console&, const Wish&), Console& console, std::shared_ptr<Wish> wish) {
    return [&console, step, wish] { return step(console, *wish); };
}

// The optional positional argument that names a key.
void AddSerial(const Options& options, std::string& serial);

// Opens the state of the folder; kKeyAbsent when there is none yet.
std::unique_ptr<Store> OpenState();
// The key of that serial number; the only key there is when the text is empty. kKeyAbsent,
// kSeveralKeys.
KeyRecord ChooseKey(Store& store, const std::string& serial);

// A key is lost. A person at a terminal is asked; scripts, which name the key, are not.
void ConfirmLoss(const Console& console, const std::string& question);

}  // namespace softkey::command

#endif

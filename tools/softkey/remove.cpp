#include "move.h"

namespace softkey::command {

Action RemoveCommand(const Options& options, Console& console) {
    const auto serial = std::make_shared<std::string>();
    AddSerial(options, *serial);
    options.Examples("  softkey remove\n  softkey remove SK0001");
    return [&console, serial] { return Move(console, *serial, false); };
}

}  // namespace softkey::command

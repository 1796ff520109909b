#include "move.h"

namespace softkey::command {

Action InsertCommand(const Options& options, Console& console) {
    const auto serial = std::make_shared<std::string>();
    AddSerial(options, *serial);
    options.Examples("  softkey insert\n  softkey insert SK0001");
    return [&console, serial] { return Move(console, *serial, true); };
}

}  // namespace softkey::command

#include "state.h"
#include "view.h"

namespace softkey::command {
namespace {

Exit Show(Console& console, const std::string& serial) {
    const std::unique_ptr<Store> store = OpenState();
    const KeyRecord key = ChooseKey(*store, serial);
    if (console.json) {
        PrintJson(Success(KeyWithContentsJson(*store, key)));
    } else {
        Say(KeyWithContentsText(*store, key));
    }
    return kExitDone;
}

}  // namespace

Action ShowCommand(const Options& options, Console& console) {
    const auto serial = std::make_shared<std::string>();
    AddSerial(options, *serial);
    options.Examples("  softkey show\n  softkey show SK0001 --json");
    return Does(Show, console, serial);
}

}  // namespace softkey::command

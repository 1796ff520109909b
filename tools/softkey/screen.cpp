#include "softkey/store/screen.h"

#include "softkey/store/questions.h"
#include "state.h"

namespace softkey::command {
namespace {

Exit ShowScreen(Console& console, const std::string& serial) {
    const std::unique_ptr<Store> store = OpenState();
    const KeyRecord key = ChooseKey(*store, serial);
    const std::string text = Screen(*store).Text(key.serial);
    const std::size_t waiting = QuestionTable(*store).Waiting(key.serial).size();
    if (console.json) {
        PrintJson(Success({{"serial", key.serial}, {"text", text}, {"waiting", waiting}}));
        return kExitDone;
    }
    PrintLine(text.empty() ? _("(the screen is empty)") : Printable(text, "\n\t"));
    if (waiting != 0) PrintLine(_("(waiting for the button)"));
    return kExitDone;
}

}  // namespace

Action ScreenCommand(const Options& options, Console& console) {
    const auto serial = std::make_shared<std::string>();
    AddSerial(options, *serial);
    options.Examples("  softkey screen\n  softkey screen SK0001 --json | jq -r .text");
    return Does(ShowScreen, console, serial);
}

}  // namespace softkey::command

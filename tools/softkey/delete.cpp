#include "softkey/store/keys.h"
#include "state.h"

namespace softkey::command {
namespace {

Exit Delete(Console& console, const std::string& serial) {
    const std::unique_ptr<Store> store = OpenState();
    ChooseKey(*store, serial);
    ConfirmLoss(console, Fill(_("Delete {1} with all that is on it?"), {serial}));
    KeyTable(*store).Delete(serial);
    console.GiveDone(Fill(_("deleted {1}"), {serial}), {{"deleted", serial}});
    return kExitDone;
}

}  // namespace

Action DeleteCommand(const Options& options, Console& console) {
    const auto serial = std::make_shared<std::string>();
    options.Text("SERIAL", *serial, "SERIAL", N_("Serial number of the key")).Required();
    options.Examples(
        "  softkey delete SK0001    asks before on a terminal\n"
        "  softkey delete SK0001 --yes");
    return Does(Delete, console, serial);
}

}  // namespace softkey::command

#include "softkey/store/home.h"
#include "softkey/store/keys.h"
#include "softkey/store/pairs.h"
#include "state.h"
#include "view.h"

namespace softkey::command {
namespace {

Exit List(Console& console) {
    const std::unique_ptr<Store> store = Store::OpenExisting(StateHome());
    Json keys = Json::array();
    kit::Table table;
    table.Row({_("SERIAL"), _("SLOT"), _("STATE"), _("PIN"), _("PAIRS"), _("CERTS"), _("MEDIA ID"),
               _("LABEL")});
    for (const KeyRecord& key : store ? KeyTable(*store).All() : std::vector<KeyRecord>()) {
        std::size_t certificates = 0;
        const auto pairs = PairTable(*store).Of(key.serial);
        for (const PairRecord& pair : pairs) certificates += pair.certificate.empty() ? 0U : 1U;
        Json object = KeyJson(key);
        object["pairs"] = pairs.size();
        object["certificates"] = certificates;
        keys.push_back(object);
        table.Row({key.serial, std::to_string(key.slot),
                   key.inserted ? _("inserted") : _("removed"),
                   key.triesLeft == 0 ? _("locked")
                                      : Fill(_("{1} tries"), {std::to_string(key.triesLeft)}),
                   std::to_string(pairs.size()), std::to_string(certificates), key.mediaId,
                   Printable(key.label)});
    }
    if (console.json) {
        PrintJson(Success({{"keys", keys}}));
    } else {
        Say(keys.empty() ? std::string(_("no keys")) + "\n" : table.Text());
    }
    return kExitDone;
}

}  // namespace

Action ListCommand(const Options& options, Console& console) {
    options.Examples(
        "  softkey list\n"
        "  softkey list --json | jq -r '.keys[].serial'");
    return [&console] { return List(console); };
}

}  // namespace softkey::command

#include "pin_source.h"
#include "softkey/store/home.h"
#include "softkey/store/key_admin.h"
#include "view.h"

namespace softkey::command {
namespace {

struct Wish {
    NewKey key;
    bool removed = false;
    PinSource pin;
};

Exit Make(Console& console, const Wish& wish) {
    NewKey wanted = wish.key;
    wanted.inserted = !wish.removed;
    PinContext context;
    context.serial = wanted.serial;
    context.label = wanted.label;
    context.language = Language::kEnglish;
    SecretText pin;
    ChooseNewPin(wish.pin, context, NewPinKind::kFirst, pin);
    const std::unique_ptr<Store> store = Store::Open(StateHome());
    const KeyRecord key = CreateKey(*store, wanted, pin.View());
    console.GiveDone(Fill(key.inserted ? _("created {1} in slot {2}")
                                       : _("created {1} in slot {2}, not inserted"),
                          {key.serial, std::to_string(key.slot)}),
                     KeyJson(key));
    return kExitDone;
}

}  // namespace

Action CreateCommand(const Options& options, Console& console) {
    const auto wish = std::make_shared<Wish>();
    options.Text("--serial", wish->key.serial, "TEXT", N_("Serial number (default: made up)"));
    options.Text("--label", wish->key.label, "TEXT", N_("Label (default: the serial number)"));
    options.Text("--media-id", wish->key.mediaId, "TEXT", N_("Media id (default: made up)"));
    options.Number("--slot", wish->key.slot, 0, 0xFFFFFFFF, "N",
                   N_("Slot (default: the lowest free one, from 1)"));
    options.Flag("--removed", wish->removed, N_("Do not insert the key"));
    AddPinOptions(options, wish->pin);
    options.Examples(
        "  softkey create\n"
        "  softkey create --serial SK0001 --label \"Li Wei\" --slot 2\n"
        "  softkey create --pin-file pin.txt --removed\n"
        "  pass show softkey | softkey create --pin-stdin --json\n"
        "                           the PIN comes from $KESTA_SOFTKEY_PIN, a file, the standard\n"
        "                           input or pinentry, never from the command line");
    return Does(Make, console, wish);
}

}  // namespace softkey::command

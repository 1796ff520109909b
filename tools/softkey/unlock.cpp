#include "pin_source.h"
#include "softkey/crypto/vault.h"
#include "softkey/store/key_admin.h"
#include "softkey/store/keys.h"
#include "softkey/store/pins.h"
#include "view.h"

namespace softkey::command {
namespace {

struct Wish {
    std::string serial;
    bool erase = false;
    PinSource pin;
};

// The private keys cannot be opened without the old PIN, so a new one comes with an empty key.
void EraseWithNewPin(const Wish& wish, const KeyRecord& key, Store& store) {
    PinContext context;
    context.serial = key.serial;
    context.label = key.label;
    context.language = PersonsLanguage();
    SecretText pin;
    ChooseNewPin(wish.pin, context, NewPinKind::kChange, pin);
    CheckPinLength(pin.View());
    const PinSeal seal = SealMaster(MasterKey::Random(), pin.View(), key.serial);
    Transaction transaction(store);
    KeyTable(store).Erase(key.serial);
    PinTable(store).SetSeal(key.serial, seal);
    transaction.Commit();
}

Exit GiveTriesBack(Console& console, const Wish& wish) {
    const std::unique_ptr<Store> store = OpenState();
    const KeyRecord chosen = ChooseKey(*store, wish.serial);
    if (wish.erase) {
        ConfirmLoss(console,
                    Fill(_("Erase {1}? Its key pairs, certificates and data will be lost."),
                         {chosen.serial}));
        EraseWithNewPin(wish, chosen, *store);
    } else {
        UnlockKey(*store, chosen.serial);
    }
    const KeyRecord key = ChooseKey(*store, chosen.serial);
    console.GiveDone(Fill(wish.erase ? _("erased and unlocked {1}, {2} tries left")
                                     : _("unlocked {1}, {2} tries left"),
                          {key.serial, std::to_string(key.triesLeft)}),
                     KeyJson(key));
    return kExitDone;
}

}  // namespace

Action UnlockCommand(const Options& options, Console& console) {
    const auto wish = std::make_shared<Wish>();
    AddSerial(options, wish->serial);
    const Option erase = options.Flag(
        "--erase", wish->erase,
        N_("Set a new PIN; key pairs, certificates and data, which the old one guards, go"));
    const auto [file, standard] = AddPinOptions(options, wish->pin);
    file.Needs(erase);
    standard.Needs(erase);
    options.Examples(
        "  softkey unlock           the PIN stays\n"
        "  softkey unlock SK0001\n"
        "  KESTA_SOFTKEY_NEW_PIN=654321 softkey unlock SK0001 --erase\n"
        "                           else the new PIN comes from a file, the standard input or\n"
        "                           pinentry; asks before on a terminal");
    return Does(GiveTriesBack, console, wish);
}

}  // namespace softkey::command

#include "softkey/admin/commands.h"
#include "softkey/admin/pin_source.h"
#include "softkey/admin/view.h"
#include "softkey/crypto/vault.h"
#include "softkey/store/key_admin.h"
#include "softkey/store/keys.h"
#include "softkey/store/pins.h"

namespace softkey::admin {
namespace {

struct UnlockOptions {
    std::string serial;
    bool erase = false;
    PinSource pin;
};

// The private keys cannot be opened without the old PIN, so a new one comes with an empty key.
void EraseWithNewPin(const UnlockOptions& options, const KeyRecord& key, Store& store) {
    PinContext context;
    context.serial = key.serial;
    context.label = key.label;
    context.language = Language::kEnglish;
    SecretText pin;
    ChooseNewPin(options.pin, context, NewPinKind::kChange, pin);
    CheckPinLength(pin.View());
    const PinSeal seal = SealMaster(MasterKey::Random(), pin.View(), key.serial);
    Transaction transaction(store);
    KeyTable(store).Erase(key.serial);
    PinTable(store).SetSeal(key.serial, seal);
    transaction.Commit();
}

void Unlock(const UnlockOptions& options, const Session& session) {
    const std::unique_ptr<Store> store = OpenState();
    const KeyRecord chosen = ChooseKey(*store, options.serial);
    if (options.erase) {
        EraseWithNewPin(options, chosen, *store);
    } else {
        UnlockKey(*store, chosen.serial);
    }
    const KeyRecord key = ChooseKey(*store, chosen.serial);
    const std::string what = options.erase ? "erased and unlocked " : "unlocked ";
    session.Print(KeyJson(key),
                  what + key.serial + ", " + std::to_string(key.triesLeft) + " tries left\n");
}

}  // namespace

void AddUnlock(CLI::App& app, Session& session) {
    const auto options = std::make_shared<UnlockOptions>();
    CLI::App* const command = AddCommand(
        app, "unlock",
        "Give back all PIN tries, as the issuer's desk does; the PIN stays. With --erase the key "
        "gets a new PIN and loses its key pairs, certificates and data, which the old PIN guards",
        "softkey unlock\n"
        "softkey unlock SK0001\n"
        "KESTA_SOFTKEY_NEW_PIN=654321 softkey unlock SK0001 --erase");
    AddSerial(*command, options->serial);
    CLI::Option* const erase =
        command->add_flag("--erase", options->erase,
                          "Erase the key and set a new PIN, from $KESTA_SOFTKEY_NEW_PIN, a file, "
                          "the standard input, or pinentry");
    AddPinOptions(*command, options->pin);
    command->get_option("--pin-file")->needs(erase);
    command->get_option("--pin-stdin")->needs(erase);
    command->callback([options, &session] { Unlock(*options, session); });
}

}  // namespace softkey::admin

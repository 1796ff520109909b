#include "softkey/admin/commands.h"
#include "softkey/admin/pin_source.h"
#include "softkey/admin/view.h"
#include "softkey/store/home.h"
#include "softkey/store/key_admin.h"

namespace softkey::admin {
namespace {

struct CreateOptions {
    NewKey key;
    std::uint32_t slot = 0;
    bool removed = false;
    PinSource pin;
};

void Create(const CreateOptions& options, const Session& session) {
    PinContext context;
    context.serial = options.key.serial;
    context.label = options.key.label;
    context.language = Language::kEnglish;
    SecretText pin;
    ChooseNewPin(options.pin, context, NewPinKind::kFirst, pin);
    const std::unique_ptr<Store> store = Store::Open(StateHome());
    const KeyRecord key = CreateKey(*store, options.key, pin.View());
    session.Print(KeyJson(key), "created " + key.serial + " in slot " + std::to_string(key.slot) +
                                    (key.inserted ? "\n" : ", not inserted\n"));
}

}  // namespace

void AddCreate(CLI::App& app, Session& session) {
    const auto options = std::make_shared<CreateOptions>();
    CLI::App* const command = AddCommand(
        app, "create",
        "Make a key. Its PIN comes from $KESTA_SOFTKEY_PIN, a file, the standard input, or "
        "pinentry, never from the command line",
        "softkey create\n"
        "softkey create --serial SK0001 --label \"Li Wei\" --slot 2\n"
        "softkey create --pin-file pin.txt --removed\n"
        "pass show softkey | softkey create --pin-stdin --json");
    command->add_option("--serial", options->key.serial, "Serial number (default: made up)");
    command->add_option("--label", options->key.label, "Label (default: the serial number)");
    command->add_option("--media-id", options->key.mediaId, "Media id (default: made up)");
    CLI::Option* const slot =
        command->add_option("--slot", options->slot, "Slot (default: the lowest free one, from 1)");
    command->add_flag("--removed", options->removed, "Do not insert the key");
    AddPinOptions(*command, options->pin);
    command->callback([options, slot, &session] {
        if (slot->count() != 0) options->key.slot = options->slot;
        options->key.inserted = !options->removed;
        Create(*options, session);
    });
}

}  // namespace softkey::admin

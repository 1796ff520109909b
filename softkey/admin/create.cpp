#include <cerrno>
#include <cstdio>
#include <cstring>

#include "softkey/admin/commands.h"
#include "softkey/admin/view.h"
#include "softkey/home.h"
#include "softkey/key_admin.h"
#include "softkey/pinentry.h"
#include "softkey/secret_text.h"

namespace softkey::admin {
namespace {

struct Options {
    NewKey key;
    std::uint32_t slot = 0;
    bool removed = false;
    std::string pinFile;
    bool pinStdin = false;
};

// Up to the end of the first line. A file is read to the capacity of a PIN and no further, so that
// nothing of it stays behind in buffers.
void ReadPinLine(const std::string& path, SecretText& pin) {
    std::FILE* const file = path == "-" ? stdin : std::fopen(path.c_str(), "re");
    if (file == nullptr) throw InputError(path + ": " + std::strerror(errno));
    std::setvbuf(file, nullptr, _IONBF, 0);
    bool fits = true;
    for (int next = std::fgetc(file); fits && next != EOF && next != '\n';
         next = std::fgetc(file)) {
        const char character = static_cast<char>(next);
        fits = pin.Append(&character, 1);
    }
    if (file != stdin) std::fclose(file);
    if (!fits) throw Failure(kPinLength);
}

void ChoosePin(const Options& options, SecretText& pin) {
    if (options.pinStdin) return ReadPinLine("-", pin);
    if (!options.pinFile.empty()) return ReadPinLine(options.pinFile, pin);
    PinContext context;
    context.serial = options.key.serial;
    context.label = options.key.label;
    context.language = Language::kEnglish;
    const Code code = AskNewPin(context, pin, NewPinKind::kFirst);
    if (code == kPinCancelled) {
        throw Failure(code, "set KESTA_SOFTKEY_PIN, or give --pin-file or --pin-stdin");
    }
    if (code != kOk) throw Failure(code);
}

void Run(const Options& options, const Session& session) {
    SecretText pin;
    ChoosePin(options, pin);
    const std::unique_ptr<Store> store = Store::Open(StateHome());
    const KeyRecord key = CreateKey(*store, options.key, pin.View());
    session.Print(KeyJson(key), "created " + key.serial + " in slot " + std::to_string(key.slot) +
                                    (key.inserted ? "\n" : ", not inserted\n"));
}

}  // namespace

void AddCreate(CLI::App& app, Session& session) {
    const auto options = std::make_shared<Options>();
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
    CLI::Option* const file = command
                                  ->add_option("--pin-file", options->pinFile,
                                               "Take the PIN from this file's first "
                                               "line")
                                  ->type_name("FILE");
    command->add_flag("--pin-stdin", options->pinStdin, "Take the PIN from the standard input")
        ->excludes(file);
    command->callback([options, slot, &session] {
        if (slot->count() != 0) options->key.slot = options->slot;
        options->key.inserted = !options->removed;
        Run(*options, session);
    });
}

}  // namespace softkey::admin

#include "commands.h"

#include "state.h"

namespace softkey::command {
namespace {

constexpr const char* kKeys = N_("Keys");
constexpr const char* kPanel = N_("Screen, button and misbehaviour");
constexpr const char* kAuthority = N_("The authority's part");
constexpr const char* kState = N_("The stored state");

// What a subcommand takes beside its own options.
enum Takes : unsigned { kNothing = 0, kOutput = 1, kConfirm = 2 };

// Name, sentence, group, what it takes, and the function that describes its options and returns
// what it does.
#define SOFTKEY_COMMANDS(COMMAND)                                                                 \
    COMMAND("create", N_("Make a key"), kKeys, kNothing, CreateCommand)                           \
    COMMAND("list", N_("List the keys"), kKeys, kNothing, ListCommand)                            \
    COMMAND("show", N_("Show a key, its pairs, certificates and names of data objects"), kKeys,   \
            kNothing, ShowCommand)                                                                \
    COMMAND("insert", N_("Put a key into its slot; every waiting client sees the event"), kKeys,  \
            kNothing, InsertCommand)                                                              \
    COMMAND("remove", N_("Pull a key out; what it is doing ends, waiting clients see it"), kKeys, \
            kNothing, RemoveCommand)                                                              \
    COMMAND("unlock", N_("Give back all PIN tries, as the issuer does"), kKeys, kConfirm,         \
            UnlockCommand)                                                                        \
    COMMAND("delete", N_("Delete a key with all that is on it, for good"), kKeys, kConfirm,       \
            DeleteCommand)                                                                        \
    COMMAND("screen", N_("Show what the key displays"), kPanel, kNothing, ScreenCommand)          \
    COMMAND("button", N_("Decide at the key's button, now or from now on"), kPanel, kNothing,     \
            ButtonCommand)                                                                        \
    COMMAND("misbehave", N_("Make entry points fail, hang or lie, by a plan"), kPanel, kNothing,  \
            MisbehaveCommand)                                                                     \
    COMMAND("envelope", N_("Seal an SM2 key pair to the public key of a request, for import"),    \
            kAuthority, kOutput, EnvelopeCommand)                                                 \
    COMMAND("export-cert", N_("Print a certificate of a key"), kAuthority, kOutput,               \
            ExportCertCommand)                                                                    \
    COMMAND("check", N_("Look for damage in the stored state and name it"), kState, kNothing,     \
            CheckCommand)                                                                         \
    COMMAND("path", N_("Print the folder that holds the state"), kState, kOutput, PathCommand)

}  // namespace

#define SOFTKEY_FUNCTION(path, sentence, group, takes, define) \
    Action define(const Options&, Console&);
SOFTKEY_COMMANDS(SOFTKEY_FUNCTION)

namespace {

struct Row {
    const char* path;
    const char* sentence;
    const char* group;
    unsigned takes;
    Action (*define)(const Options&, Console&);
};

constexpr Row kRows[] = {
#define SOFTKEY_ROW(path, sentence, group, takes, define) {path, sentence, group, takes, define},
    SOFTKEY_COMMANDS(SOFTKEY_ROW)};

}  // namespace

void AddCommands(kit::Program& program, kit::Console& console) {
    for (const Row& row : kRows) {
        const Options options = program.Add(row.path, row.sentence, row.group);
        options.AddJson(console);
        if ((row.takes & kOutput) != 0) options.AddOutput(console, "-o,--output,--out");
        if ((row.takes & kConfirm) != 0) options.AddYes(console);
        const Action action = row.define(options, console);
        program.Does(row.path, [action] { return static_cast<int>(action()); });
    }
}

}  // namespace softkey::command

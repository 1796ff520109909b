#include "commands.h"

#include "kit/codes_file.h"

namespace ukey {
namespace {

// The groups of the help.
constexpr const char* kEveryday = N_("Everyday");
constexpr const char* kEnrolment = N_("Enrolment");
constexpr const char* kHolding = N_("What the key holds");
constexpr const char* kPin = N_("PIN and initialisation");
constexpr const char* kDiagnosis = N_("Diagnosis");

// What a subcommand takes beside its own options.
enum Takes : unsigned {
    kNothing = 0,
    kLibrary = 1,   // --library
    kSerial = 2,    // --serial
    kNoPin = 4,     // --no-pin
    kOutput = 8,    // --output
    kConfirm = 16,  // --yes
    kKey = kLibrary | kSerial,
};

// Name, sentence, group, what it takes, and the function that describes its options and returns
// what it does. A subcommand of a subcommand follows its parent.
#define UKEY_COMMANDS(GROUP, COMMAND)                                                              \
    COMMAND("info", N_("Show the library, the key and its certificates"), kEveryday, kKey, Info)   \
    COMMAND("list", N_("List the keys that are present, as far as can be known"), kEveryday,       \
            kLibrary, List)                                                                        \
    COMMAND("sign", N_("Sign a text; the key shows a warning and waits for its button"),           \
            kEveryday, kKey | kNoPin | kOutput, Sign)                                              \
    COMMAND("sign-hash", N_("Sign a hash that was computed elsewhere"), kEveryday,                 \
            kKey | kNoPin | kOutput, SignHash)                                                     \
    COMMAND("batch-sign", N_("Sign several texts, in the order in which they are given"),          \
            kEveryday, kKey | kNoPin | kOutput, BatchSign)                                         \
    COMMAND("decrypt", N_("Decrypt a text with the key's private key"), kEveryday,                 \
            kKey | kNoPin | kOutput, Decrypt)                                                      \
    COMMAND("wait", N_("Wait until a key is inserted or removed"), kEveryday, kLibrary, Wait)      \
    COMMAND("request", N_("Make certificate requests on the key"), kEnrolment, kKey | kOutput,     \
            Request)                                                                               \
    COMMAND("batch-request",                                                                       \
            N_("Make up to three requests in one call, on an initialised key if asked to"),        \
            kEnrolment, kKey | kOutput | kConfirm, BatchRequest)                                   \
    COMMAND("import", N_("Install certificates and escrowed keys on the key"), kEnrolment,         \
            kKey | kNoPin, Import)                                                                 \
    GROUP("cert", N_("Read or delete a certificate on the key"), kHolding)                         \
    COMMAND("cert get", N_("Print a certificate"), kHolding, kKey | kOutput, CertGet)              \
    COMMAND("cert dn", N_("Print a certificate's distinguished name"), kHolding, kKey | kOutput,   \
            CertDn)                                                                                \
    COMMAND("cert info", N_("Show whose a certificate is and how long it is valid"), kHolding,     \
            kKey, CertInfo)                                                                        \
    COMMAND("cert delete", N_("Delete a certificate and its temporary key"), kHolding,             \
            kKey | kNoPin | kConfirm, CertDelete)                                                  \
    GROUP("label", N_("Read or write the key's label"), kHolding)                                  \
    COMMAND("label get", N_("Print the label"), kHolding, kKey | kOutput, LabelGet)                \
    COMMAND("label set", N_("Write the label"), kHolding, kKey | kNoPin, LabelSet)                 \
    GROUP("data", N_("Read or write a named data object"), kHolding)                               \
    COMMAND("data get", N_("Print a data object"), kHolding, kLibrary | kOutput, DataGet)          \
    COMMAND("data set", N_("Write a data object of at most 300 characters"), kHolding,             \
            kKey | kNoPin, DataSet)                                                                \
    GROUP("pin", N_("Verify, change or forget the PIN"), kPin)                                     \
    COMMAND("pin verify", N_("Ask for the PIN and check it"), kPin, kKey, PinVerify)               \
    COMMAND("pin change", N_("Ask for the PIN and a new one"), kPin, kKey, PinChange)              \
    COMMAND("pin info", N_("Show how many tries are left, and the PIN information record"), kPin,  \
            kKey, PinInfo)                                                                         \
    COMMAND("pin cache", N_("Verify the PIN and let the token library keep it"), kPin, kKey,       \
            PinCache)                                                                              \
    COMMAND("pin forget", N_("Make the token library forget a cached PIN"), kPin, kLibrary,        \
            PinForget)                                                                             \
    COMMAND("init", N_("Initialise the key: it loses everything it holds"), kPin, kKey | kConfirm, \
            Initialise)                                                                            \
    COMMAND("doctor", N_("Find out why a key does not work, and what to do"), kDiagnosis, kKey,    \
            Doctor)                                                                                \
    COMMAND("self-test", N_("Sign, verify, encrypt and decrypt once, to see that the key works"),  \
            kDiagnosis, kKey | kNoPin, SelfTest)                                                   \
    COMMAND("log", N_("Show the library's diagnostic log: calls, durations, results"), kDiagnosis, \
            kLibrary, Log)                                                                         \
    COMMAND("record", N_("Run a command and record its calls of the library"), kDiagnosis,         \
            kNothing, Record)                                                                      \
    COMMAND("replay", N_("Run a command against a recording, without any key"), kDiagnosis,        \
            kNothing, Replay)                                                                      \
    GROUP("trace", N_("Show what ukey record has recorded"), kDiagnosis)                           \
    COMMAND("trace show", N_("Print a recording, or make a page of it"), kDiagnosis, kNothing,     \
            TraceShow)                                                                             \
    COMMAND("report",                                                                              \
            N_("Pack what a developer needs to know into an archive that may be mailed"),          \
            kDiagnosis, kKey | kOutput, MakeReport)                                                \
    COMMAND("error", N_("Explain a result code"), kDiagnosis, kLibrary, ExplainError)              \
    COMMAND("check-install", N_("Ask the library whether the install directory is there"),         \
            kDiagnosis, kLibrary, CheckInstall)                                                    \
    COMMAND("charset", N_("Try whether the token library knows a charset"), kDiagnosis, kKey,      \
            Charset)                                                                               \
    COMMAND("language", N_("Try whether the token library knows a language"), kDiagnosis, kKey,    \
            Language)

}  // namespace

#define UKEY_NO_FUNCTION(path, sentence, group)
#define UKEY_FUNCTION(path, sentence, group, takes, define) Action define(const Options&, Session&);
UKEY_COMMANDS(UKEY_NO_FUNCTION, UKEY_FUNCTION)

namespace {

struct Row {
    const char* path;
    const char* sentence;
    const char* group;
    unsigned takes;
    Action (*define)(const Options&, Session&);  // null for one that only has subcommands
};

constexpr Row kRows[] = {
#define UKEY_GROUP_ROW(path, sentence, group) {path, sentence, group, kNothing, nullptr},
#define UKEY_ROW(path, sentence, group, takes, define) {path, sentence, group, takes, define},
    UKEY_COMMANDS(UKEY_GROUP_ROW, UKEY_ROW)};

void AddTaken(const Options& options, Session& session, unsigned takes) {
    if ((takes & kLibrary) != 0) {
        options.Text("--library", session.libraryFile, "FILE", N_("Load this library file"));
        options.Text("--codes", session.codesFile, "FILE",
                     N_("Read the token library's codes from this file"));
    }
    if ((takes & kSerial) != 0) {
        options.Text("-s,--serial", session.givenSerial, "SN",
                     N_("Use the key with this serial number, not the one that is present"));
    }
    if ((takes & kOutput) != 0) options.AddOutput(session);
    if ((takes & kConfirm) != 0) options.AddYes(session);
    if ((takes & kNoPin) != 0) {
        options.Flag("--no-pin", session.skipPin, N_("Do not verify the PIN before"));
    }
}

}  // namespace

void AddCommands(kit::Program& program, Session& session) {
    for (const Row& row : kRows) {
        const Options options = program.Add(row.path, row.sentence, row.group);
        options.AddJson(session);
        if (row.define == nullptr) continue;
        AddTaken(options, session, row.takes);
        const Action action = row.define(options, session);
        program.Does(row.path, [action, &session] {
            kit::UseCodes(session.codesFile);
            return static_cast<int>(action());
        });
    }
}

}  // namespace ukey

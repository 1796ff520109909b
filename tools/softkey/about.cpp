#include "commands.h"
#include "state.h"
#include "version.h"

namespace softkey::command {
namespace {

const std::vector<Status> kStatuses = {
    {kExitDone, "ok", N_("done")},
    {kExitFailed, "failed", N_("an internal failure, or a person said no at a question")},
    {kExitUsage, "usage", N_("a bad command line, several keys to choose from included")},
    {kExitNotFound, "not-found", N_("no such key, key pair, certificate or data object")},
    {kExitPin, "pin", N_("the PIN is missing, was cancelled, or has a wrong length")},
    {kExitFile, "file", N_("a file that was given is missing or is not what it should be")},
    {kExitDamaged, "damaged", N_("the stored state is damaged")},
    {kExitState, "state", N_("the stored state is out of reach or busy, or no output is possible")},
};

constexpr const char* kDescription = N_(R"roff(.SH DESCRIPTION
The software key stands in for a USB security key: a token library and an event library with real
cryptography, whose state is kept in a folder.
.B softkey
makes such keys, inserts and pulls them, and shows what is on them.
.PP
.I SERIAL
is the serial number of a key. It may be left out when there is only one key.
No PIN is taken from the command line, and neither a PIN nor a private key is ever printed.
.PP
With
.BR \-\-json ,
before or behind the name of the command, a command prints one object on one line. Its member
.I ok
is true; or it is false, and
.I error
holds
.IR kind " and " message ,
and where a code of the software key says what happened
.IR code " and " codeText .
.PP
What would destroy a key is asked for on a terminal, unless
.B \-\-yes
is given; a script is not asked.
)roff");

constexpr const char* kClosing = N_(R"roff(.SH ENVIRONMENT
.TP
.B KESTA_SOFTKEY_HOME
The folder that holds the state. Default:
.IR $XDG_DATA_HOME/kesta\-softkey ,
else
.IR ~/.local/share/kesta\-softkey .
.TP
.B KESTA_SOFTKEY_PIN
The PIN, for clients and for
.BR create .
.TP
.B KESTA_SOFTKEY_NEW_PIN
The new PIN when a client changes it, and for
.BR "unlock \-\-erase" .
.TP
.B KESTA_SOFTKEY_BUTTON_MS
How many milliseconds a question waits for the button. Default: 30000.
.TP
.B KESTA_SOFTKEY_PIN_COST
What a guess at the PIN of a new key costs: scrypt's N, a power of two from 1024 to 524288. Default:
32768, an eighth of a second. Less is for keys of tests.
.TP
.BR LC_ALL ", " LC_MESSAGES ", " LC_CTYPE ", " LANG ", " LANGUAGE
Language and charset of what a person reads: English or simplified Chinese. JSON is UTF-8 always; of
it the sentences alone follow the language.
.TP
.B NO_COLOR
If set, nothing is coloured. Nothing is coloured outside a terminal either.
.SH FILES
.TP
.I softkey.db
All keys of the folder. The folder has mode 0700, its files 0600.
.TP
.I misbehaviour.json
The plan in force.
.SH SEE ALSO
.BR ukey (1),
.BR ukey\-sandbox (1),
.BR pinentry (1),
.BR openssl (1)
)roff");

std::string Closing() {
    return _(kClosing);
}

}  // namespace

const kit::About kAbout = {
    "softkey",
    N_("The command of the software key: make keys, insert and pull them, look at them"),
    SOFTKEY_VERSION,
    kStatuses,
    kExitFailed,
    kExitUsage,
    kExitFailed,
    kExitFile,
    N_("The state is kept below $KESTA_SOFTKEY_HOME, else $XDG_DATA_HOME/kesta-softkey,\n"
       "else ~/.local/share/kesta-softkey."),
    N_("make software keys, insert and pull them, look at them"),
    kDescription,
    Closing};

}  // namespace softkey::command

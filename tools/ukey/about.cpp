#include "about.h"

#include "exit_codes.h"
#include "kesta/places.h"
#include "version.h"

namespace ukey {

using kit::_;
using kit::Fill;
using kit::N_;

namespace {

constexpr const char* kDescription = N_(R"roff(.SH DESCRIPTION
Each command loads the library
.BR libkesta_unified_zrkukey.so ,
which loads the token library of the key's maker.
The token library asks for PINs itself: this command takes none as an option, and prints none.
Inputs are files or standard input, results go to standard output or to a file that its owner
alone can read.
.PP
Commands that use a private key or change the key verify the PIN first; where the token
library asks for it once more by itself,
.B \-\-no\-pin
leaves that out.
.PP
With
.BR \-\-json ,
before or behind the name of the command, a command prints one object on one line. Its member
.I ok
is true; or it is false, and
.I error
holds
.IR kind " and " message ,
and where they apply
.IR operation ,
.IR code ,
.I codeText
and
.IR advice .
.PP
The token library's codes are its maker's to number. Which exit status a code gives is told by a
table: that of
.BR \-\-codes ,
else that of
.IR /etc/kesta/codes.json ,
else the software key's. A code in no table ends with 1, and the token library's own text and code
say what happened.
)roff");

std::string Closing() {
    return Fill(_(R"roff(.SH FILES
.TP
.I {1}/
The install directory of the key's maker, with the token library {2}.
.TP
.I {3}
The library's diagnostic log.
.SH ENVIRONMENT
.TP
.BR LC_ALL ", " LC_MESSAGES ", " LC_CTYPE ", " LANG ", " LANGUAGE
Language and charset of what a person reads: English or simplified Chinese. JSON is UTF-8 always; of
it the sentences alone follow the language.
.TP
.B NO_COLOR
If set, nothing is coloured. Nothing is coloured outside a terminal either.
.SH SEE ALSO
.BR ukey\-sandbox (1)
)roff"),
                {KESTA_INSTALL_DIRECTORY, KESTA_TOKEN_LIBRARY, KESTA_LOG_FILE});
}

}  // namespace

const kit::About kAbout = {
    "ukey",
    kit::N_("Reads, enrols and uses a USB security key, and finds out why one does not work"),
    UKEY_VERSION,
    kExitKinds,
    static_cast<int>(Exit::kFailed),
    static_cast<int>(Exit::kUsage),
    static_cast<int>(Exit::kRefused),
    static_cast<int>(Exit::kFile),
    kit::N_("With hardware, what would end with 3, 4, 5 or 8 ends with 1: these are known by the\n"
            "codes of the software key alone."),
    N_("read, enrol and use a USB security key"),
    kDescription,
    Closing};

}  // namespace ukey

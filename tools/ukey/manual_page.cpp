// The manual page: the definitions' options and examples between texts that are written here.
#include <algorithm>

#include "definitions.h"
#include "exit_codes.h"
#include "kesta/places.h"
#include "version.h"

namespace ukey {
namespace {

// Text of a roff line: backslashes and leading points or quotes have a meaning there, and an
// option's hyphen must stay one that can be copied.
std::string Roff(const std::string& text) {
    std::string safe;
    for (const char c : text) {
        if (c == '\\') {
            safe += "\\e";
        } else if (c == '-') {
            safe += "\\-";
        } else {
            safe += c;
        }
    }
    if (!safe.empty() && (safe[0] == '.' || safe[0] == '\'')) safe.insert(0, "\\&");
    return safe;
}

std::string Synopsis(const CommandFacts& command) {
    std::string line = ".B ukey " + Roff(command.path) + "\n";
    if (!command.subcommands.empty()) return line + "COMMAND ...\n";
    line += "[OPTION]...";
    for (const OptionFacts& option : command.options) {
        if (!option.Positional()) continue;
        std::string value = option.value + (option.repeated ? "..." : "");
        line += option.required ? " " + value : " [" + value + "]";
    }
    return line + "\n";
}

std::string OptionEntry(const OptionFacts& option) {
    std::string names;
    for (const std::string& name : option.names) {
        names += (names.empty() ? "" : ", ") + ("\\fB" + Roff(name) + "\\fR");
    }
    if (option.Positional()) names = "\\fI" + Roff(option.value) + "\\fR";
    if (!option.Positional() && !option.value.empty()) {
        names += " \\fI" + Roff(option.value) + "\\fR";
    }
    return ".TP\n" + names + "\n" + Roff(option.description) + ".\n";
}

std::string Footer(const std::string& footer) {
    constexpr std::string_view kExamples = "Examples:\n";
    if (footer.compare(0, kExamples.size(), kExamples) != 0) {
        return footer.empty() ? "" : ".PP\n" + Roff(footer) + "\n";
    }
    std::string text = ".PP\nExamples:\n.PP\n.nf\n";
    std::string line;
    for (const char c : footer.substr(kExamples.size()) + "\n") {
        if (c != '\n') {
            line += c;
            continue;
        }
        text += Roff(line) + "\n";
        line.clear();
    }
    return text + ".fi\n";
}

std::string Section(const CommandFacts& command) {
    std::string text = ".SS \"ukey " + Roff(command.path) + "\"\n" + Roff(command.description) +
                       ".\n.PP\n" + Synopsis(command);
    for (const OptionFacts& option : command.options) text += OptionEntry(option);
    return text + Footer(command.footer);
}

constexpr const char* kDescription = R"roff(.SH DESCRIPTION
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
.B \-\-json
a command prints one object on one line. Its member
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
)roff";

constexpr const char* kClosing = R"roff(.SH FILES
.TP
.I )roff" KESTA_INSTALL_DIRECTORY R"roff(/
The install directory of the key's maker, with the token library )roff" KESTA_TOKEN_LIBRARY R"roff(.
.TP
.I )roff" KESTA_LOG_FILE R"roff(
The library's diagnostic log.
.SH ENVIRONMENT
.TP
.B NO_COLOR
If set, nothing is coloured. Nothing is coloured outside a terminal either.
.SH SEE ALSO
.BR ukey\-sandbox (1)
)roff";

}  // namespace

std::string ManualPage(const std::vector<CommandFacts>& commands) {
    std::string text = ".TH UKEY 1 \"\" \"ukey " UKEY_VERSION
                       "\" \"User Commands\"\n"
                       ".SH NAME\nukey \\- read, enrol and use a USB security key\n"
                       ".SH SYNOPSIS\n.B ukey\nCOMMAND [OPTION]... [ARGUMENT]...\n";
    text += kDescription;
    text += ".SH OPTIONS\n";
    for (const OptionFacts& option : commands.front().options) text += OptionEntry(option);
    text += ".SH COMMANDS\n";
    for (std::size_t i = 1; i < commands.size(); ++i) text += Section(commands[i]);
    text += ".SH EXIT STATUS\n";
    for (const ExitKind& kind : kExitKinds) {
        text += ".TP\n.B " + std::to_string(static_cast<int>(kind.code)) + "\n" +
                Roff(std::string(kind.words)) + ".\n";
    }
    return text + kClosing;
}

}  // namespace ukey

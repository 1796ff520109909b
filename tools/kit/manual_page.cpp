// The manual page: the definitions' options and examples between texts that are written here.
#include "kit/manual_page.h"

#include <algorithm>
#include <cctype>

#include "kit/language.h"

namespace kit {
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

// Chinese has no blanks at which a line could be broken; groff breaks between its characters once
// it is told to.
const char* Breaking() {
    return SpeaksChinese() ? ".mso zh.tmac\n.ad l\n.nh\n" : "";
}

std::string Synopsis(const std::string& name, const CommandFacts& command) {
    std::string line = ".B " + name + " " + Roff(command.path) + "\n";
    if (!command.subcommands.empty()) return line + _("COMMAND ...") + "\n";
    line += _("[OPTION]...");
    for (const OptionFacts& option : command.options) {
        if (!option.Positional()) continue;
        std::string value = option.shown + (option.repeated ? "..." : "");
        line += option.required ? " " + value : " [" + value + "]";
    }
    return line + "\n";
}

std::string OptionEntry(const OptionFacts& option) {
    std::string names;
    for (const std::string& name : option.names) {
        names += (names.empty() ? "" : ", ") + ("\\fB" + Roff(name) + "\\fR");
    }
    if (option.Positional()) names = "\\fI" + Roff(option.shown) + "\\fR";
    if (!option.Positional() && !option.value.empty()) {
        names += " \\fI" + Roff(option.shown) + "\\fR";
    }
    return ".TP\n" + names + "\n" + Roff(Fill(_("{1}."), {option.description})) + "\n";
}

std::string Footer(const std::string& footer) {
    const std::string_view head = _(kExamplesHead);
    if (footer.compare(0, head.size(), head) != 0) {
        return footer.empty() ? "" : ".PP\n" + Roff(footer) + "\n";
    }
    std::string text = ".PP\n" + std::string(head) + ".PP\n.nf\n";
    std::string line;
    for (const char c : footer.substr(head.size()) + "\n") {
        if (c != '\n') {
            line += c;
            continue;
        }
        text += Roff(line) + "\n";
        line.clear();
    }
    return text + ".fi\n";
}

std::string Section(const std::string& name, const CommandFacts& command) {
    std::string text = ".SS \"" + name + " " + Roff(command.path) + "\"\n" +
                       Roff(Fill(_("{1}."), {command.description})) + "\n.PP\n" +
                       Synopsis(name, command);
    for (const OptionFacts& option : command.options) text += OptionEntry(option);
    return text + Footer(command.footer);
}

}  // namespace

std::string ManualPage(const About& about, const ProgramFacts& program) {
    const std::string name = about.name;
    std::string heading = name;
    std::transform(heading.begin(), heading.end(), heading.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    const auto& commands = program.commands;
    std::string text = ".TH " + heading + " 1 \"\" \"" + name + " " + about.version + "\" \"" +
                       _("User Commands") + "\"\n" + Breaking() + ".SH " + _("NAME") + "\n" + name +
                       " \\- " + Roff(_(about.purpose)) + "\n.SH " + _("SYNOPSIS") + "\n.B " +
                       name + "\n" + _("COMMAND [OPTION]... [ARGUMENT]...") + "\n";
    text += _(about.description);
    text += std::string(".SH ") + _("OPTIONS") + "\n";
    for (const OptionFacts& option : commands.front().options) text += OptionEntry(option);
    std::string group;
    for (std::size_t i = 1; i < commands.size(); ++i) {
        const bool first = commands[i].path.find(' ') == std::string::npos;
        if (first && commands[i].group != group) {
            group = commands[i].group;
            text += ".SH \"" + Fill(_("COMMANDS: {1}"), {Roff(group)}) + "\"\n";
        }
        text += Section(name, commands[i]);
    }
    text += ".SH \"" + std::string(_("EXIT STATUS")) + "\"\n";
    for (const Status& status : about.statuses) {
        text += ".TP\n.B " + std::to_string(status.number) + "\n" +
                Roff(Fill(_("{1}."), {_(status.words)})) + "\n";
    }
    return text + about.closing();
}

}  // namespace kit

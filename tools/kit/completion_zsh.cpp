// Completion script for zsh.
#include "kit/definitions.h"

namespace kit {
namespace {

// '...' in the words of zsh's _arguments; brackets and colons have a meaning there.
std::string ZshQuoted(const std::string& text) {
    std::string quoted;
    for (const char c : text) {
        if (c == '[' || c == ']' || c == ':' || c == '\\') quoted += '\\';
        if (c == '\'') {
            quoted += "'\\''";
        } else {
            quoted += c;
        }
    }
    return quoted;
}

std::string ZshAction(const OptionFacts& option) {
    const auto choices = option.Choices();
    if (option.TakesFile()) {
        return choices.empty() ? "_files" : "{compadd -- " + Joined(choices) + "; _files}";
    }
    if (option.TakesFolder()) return "_files -/";
    return choices.empty() ? " " : "(" + Joined(choices) + ")";
}

std::string ZshArgument(const OptionFacts& option) {
    if (option.Positional()) {
        return "'" + std::string(option.repeated ? "*" : "") + ":" + ZshQuoted(option.description) +
               ":" + ZshAction(option) + "'";
    }
    std::string spec = option.repeated ? "'*'" : "";
    if (option.names.size() > 1) {
        if (!option.repeated) spec += "'(" + Joined(option.names) + ")'";
        std::string names;
        for (const std::string& name : option.names) names += (names.empty() ? "" : ",") + name;
        spec += "{" + names + "}";
    } else {
        spec += option.names.front();
    }
    spec += "'[" + ZshQuoted(option.description) + "]";
    if (!option.value.empty()) {
        spec += ":" + ZshQuoted(option.value) + ":" + ZshAction(option);
    }
    return spec + "'";
}

std::string ZshName(const ProgramFacts& program, const std::string& path) {
    std::string name = "_" + program.name;
    if (!path.empty()) name += "_" + path;
    for (char& c : name) {
        if (c == ' ' || c == '-') c = '_';
    }
    return name;
}

std::string ZshFunction(const ProgramFacts& program, const CommandFacts& command) {
    std::string text =
        ZshName(program, command.path) + "() {\n    local state line\n    _arguments -C";
    for (const OptionFacts& option : command.options) text += " \\\n        " + ZshArgument(option);
    if (command.subcommands.empty()) return text + "\n}\n\n";
    text += " \\\n        '1: :->command' '*:: :->rest'\n    case $state in\n        command)\n";
    text += "            local -a commands=(\n";
    for (const std::string& name : command.subcommands) {
        text += "                '" + name + ":" +
                ZshQuoted(program.Find(command.Child(name))->description) + "'\n";
    }
    text += "            )\n            _describe command commands ;;\n        rest)\n";
    text += "            case $line[1] in\n";
    for (const std::string& name : command.subcommands) {
        text += "                " + name + ") " + ZshName(program, command.Child(name)) + " ;;\n";
    }
    return text + "            esac ;;\n    esac\n}\n\n";
}

}  // namespace

std::string ZshCompletion(const ProgramFacts& program) {
    const std::string& name = program.name;
    std::string text = "#compdef " + name + "\n# Completion of " + name + " for zsh; made by `" +
                       name + " completion zsh`.\n\n";
    for (const CommandFacts& command : program.commands) text += ZshFunction(program, command);
    return text + "if [[ $funcstack[1] == _" + name + " ]]; then\n    _" + name +
           " \"$@\"\nelse\n" + "    compdef _" + name + " " + name + "\nfi\n";
}

}  // namespace kit

// Completion script for bash.
#include "kit/definitions.h"

namespace kit {
namespace {

// What may follow an option that takes a value, as a bash case branch.
std::string BashValueBranch(const CommandFacts& command) {
    std::string branches;
    for (const OptionFacts& option : command.options) {
        if (option.Positional() || option.value.empty()) continue;
        std::string pattern;
        for (const std::string& name : option.names) {
            pattern += (pattern.empty() ? "" : "|") + ("'" + command.path + " " + name + "'");
        }
        std::string answer = "COMPREPLY=()";
        if (option.TakesFile()) answer = "compopt -o default; COMPREPLY=()";
        if (option.TakesFolder()) answer = "compopt -o dirnames; COMPREPLY=()";
        const auto choices = option.Choices();
        if (!choices.empty()) {
            answer = "COMPREPLY=($(compgen -W '" + Joined(choices) + "' -- \"$current\"))";
        }
        branches += "        " + pattern + ") " + answer + "; return ;;\n";
    }
    return branches;
}

// What is offered beside files where a positional takes a file: its words, if it has any.
std::string FilesAssignment(const CommandFacts& command) {
    for (const OptionFacts& option : command.options) {
        if (!option.Positional() || !option.TakesFile()) continue;
        return "; files=yes plain='" + Joined(option.Choices()) + "'";
    }
    return "";
}

std::string BashWordsBranch(const CommandFacts& command) {
    std::vector<std::string> words = command.subcommands;
    for (const OptionFacts& option : command.options) {
        words.insert(words.end(), option.names.begin(), option.names.end());
    }
    // The words of a positional with fixed words come first, as subcommands do.
    for (const OptionFacts& option : command.options) {
        if (!option.Positional()) continue;
        const auto choices = option.Choices();
        words.insert(words.begin(), choices.begin(), choices.end());
    }
    return "        '" + command.path + "') words='" + Joined(words) + "'" +
           FilesAssignment(command) + " ;;\n";
}

}  // namespace

std::string BashCompletion(const ProgramFacts& program) {
    const std::string& name = program.name;
    std::string text =
        "# Completion of " + name + " for bash; made by `" + name + " completion bash`.\n" + "_" +
        name +
        "() {\n"
        "    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD-1]}\n"
        "    local path='' words='' files='' plain='' word i\n"
        "    COMPREPLY=()\n"
        "    for ((i = 1; i < COMP_CWORD; i++)); do\n"
        "        word=${path:+$path }${COMP_WORDS[i]}\n"
        "        case $word in\n            ";
    for (const CommandFacts& command : program.commands) {
        if (command.path.empty()) continue;
        text += (text.back() == ' ' ? "'" : "|'") + command.path + "'";
    }
    text += ") path=$word ;;\n        esac\n    done\n    case \"$path $previous\" in\n";
    for (const CommandFacts& command : program.commands) text += BashValueBranch(command);
    text += "    esac\n    case $path in\n";
    for (const CommandFacts& command : program.commands) text += BashWordsBranch(command);
    return text +
           "    esac\n"
           "    if [[ -n $files && $current != -* ]]; then\n"
           "        compopt -o default\n"
           "        COMPREPLY=($(compgen -W \"$plain\" -- \"$current\"))\n"
           "        return\n"
           "    fi\n"
           "    COMPREPLY=($(compgen -W \"$words\" -- \"$current\"))\n"
           "}\n"
           "complete -F _" +
           name + " " + name + "\n";
}

}  // namespace kit

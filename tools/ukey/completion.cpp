// Completion scripts for bash and zsh.
#include "commands.h"
#include "definitions.h"

namespace ukey {
namespace {

std::string Joined(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words) text += (text.empty() ? "" : " ") + word;
    return text;
}

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
        const auto choices = option.Choices();
        if (!choices.empty()) {
            answer = "COMPREPLY=($(compgen -W '" + Joined(choices) + "' -- \"$current\"))";
        }
        branches += "        " + pattern + ") " + answer + "; return ;;\n";
    }
    return branches;
}

bool TakesFiles(const CommandFacts& command) {
    for (const OptionFacts& option : command.options) {
        if (option.Positional() && option.TakesFile()) return true;
    }
    return false;
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
           (TakesFiles(command) ? "; files=yes" : "") + " ;;\n";
}

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
    if (option.TakesFile()) return "_files";
    const auto choices = option.Choices();
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

std::string ZshName(const std::string& path) {
    std::string name = "_ukey";
    if (!path.empty()) name += "_" + path;
    for (char& c : name) {
        if (c == ' ' || c == '-') c = '_';
    }
    return name;
}

const CommandFacts& Child(const std::vector<CommandFacts>& all, const CommandFacts& parent,
                          const std::string& name) {
    const std::string path = parent.path.empty() ? name : parent.path + " " + name;
    for (const CommandFacts& command : all) {
        if (command.path == path) return command;
    }
    throw std::logic_error("no command " + path);
}

std::string ZshFunction(const std::vector<CommandFacts>& all, const CommandFacts& command) {
    std::string text = ZshName(command.path) + "() {\n    local state line\n    _arguments -C";
    for (const OptionFacts& option : command.options) text += " \\\n        " + ZshArgument(option);
    if (command.subcommands.empty()) return text + "\n}\n\n";
    text += " \\\n        '1: :->command' '*:: :->rest'\n    case $state in\n        command)\n";
    text += "            local -a commands=(\n";
    for (const std::string& name : command.subcommands) {
        text += "                '" + name + ":" +
                ZshQuoted(Child(all, command, name).description) + "'\n";
    }
    text += "            )\n            _describe command commands ;;\n        rest)\n";
    text += "            case $line[1] in\n";
    for (const std::string& name : command.subcommands) {
        text +=
            "                " + name + ") " + ZshName(Child(all, command, name).path) + " ;;\n";
    }
    return text + "            esac ;;\n    esac\n}\n\n";
}

Exit Print(Session&, const std::string& text) {
    WriteOutput("-", text);
    return Exit::kOk;
}

using Maker = std::string (*)(const std::vector<CommandFacts>&);

void AddMaker(CLI::App& parent, CLI::App& root, Session& session, const std::string& name,
              const std::string& description, const std::string& examples, Maker maker,
              bool hidden) {
    CLI::App* const command = parent.add_subcommand(name, description);
    if (!examples.empty()) command->footer("Examples:\n" + examples);
    if (hidden) command->group("");
    command->callback([&session, &root, maker] {
        session.action = [&session, &root, maker] {
            return Print(session, maker(WalkDefinitions(root)));
        };
    });
}

}  // namespace

std::string BashCompletion(const std::vector<CommandFacts>& commands) {
    std::string text =
        "# Completion of ukey for bash; made by `ukey completion bash`.\n"
        "_ukey() {\n"
        "    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD-1]}\n"
        "    local path='' words='' files='' word i\n"
        "    COMPREPLY=()\n"
        "    for ((i = 1; i < COMP_CWORD; i++)); do\n"
        "        word=${path:+$path }${COMP_WORDS[i]}\n"
        "        case $word in\n            ";
    for (const CommandFacts& command : commands) {
        if (command.path.empty()) continue;
        text += (text.back() == ' ' ? "'" : "|'") + command.path + "'";
    }
    text += ") path=$word ;;\n        esac\n    done\n    case \"$path $previous\" in\n";
    for (const CommandFacts& command : commands) text += BashValueBranch(command);
    text += "    esac\n    case $path in\n";
    for (const CommandFacts& command : commands) text += BashWordsBranch(command);
    return text +
           "    esac\n"
           "    if [[ -n $files && $current != -* ]]; then\n"
           "        compopt -o default\n"
           "        return\n"
           "    fi\n"
           "    COMPREPLY=($(compgen -W \"$words\" -- \"$current\"))\n"
           "}\n"
           "complete -F _ukey ukey\n";
}

std::string ZshCompletion(const std::vector<CommandFacts>& commands) {
    std::string text =
        "#compdef ukey\n# Completion of ukey for zsh; made by `ukey completion zsh`.\n\n";
    for (const CommandFacts& command : commands) text += ZshFunction(commands, command);
    return text +
           "if [[ $funcstack[1] == _ukey ]]; then\n"
           "    _ukey \"$@\"\n"
           "else\n"
           "    compdef _ukey ukey\n"
           "fi\n";
}

void AddCompletionCommands(CLI::App& app, Session& session) {
    CLI::App* const completion =
        app.add_subcommand("completion", "Print a completion script for a shell");
    completion->require_subcommand(1);
    AddMaker(*completion, app, session, "bash", "For bash",
             "  source <(ukey completion bash)\n"
             "  ukey completion bash > /etc/bash_completion.d/ukey",
             BashCompletion, false);
    AddMaker(*completion, app, session, "zsh", "For zsh",
             "  ukey completion zsh > ~/.zsh/completions/_ukey", ZshCompletion, false);
    AddMaker(app, app, session, "manual", "Print the manual page", "", ManualPage, true);
}

}  // namespace ukey

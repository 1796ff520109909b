// A program's own definitions, walked: what help, completion, suggestions and the manual page are
// made from.
#ifndef KIT_DEFINITIONS_H
#define KIT_DEFINITIONS_H

#include <string>
#include <string_view>
#include <vector>

#include "kit/text.h"

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace kit {

inline constexpr const char* kExamplesHead = N_("Examples:\n");

struct OptionFacts {
    std::vector<std::string> names;  // "-o", "--output"; empty for a positional
    std::string value;               // its form; empty for a flag
    std::string shown;               // the form as it is shown
    std::string description;
    bool required = false;
    bool repeated = false;

    bool Positional() const { return names.empty(); }
    bool TakesFile() const;  // beside words, or alone
    bool TakesFolder() const { return value == "DIR"; }
    bool TakesCommand() const { return value == "COMMAND"; }
    bool TakesNumber() const;                  // beside words
    std::vector<std::string> Choices() const;  // of a form "a|b|N", without the N or FILE
};

struct CommandFacts {
    std::string path;  // "cert get"; empty for the program itself
    std::string description;
    std::string group;
    std::string footer;
    std::vector<OptionFacts> options;
    std::vector<std::string> subcommands;

    std::string Child(const std::string& name) const {
        return path.empty() ? name : path + " " + name;
    }
};

struct ProgramFacts {
    std::string name;
    std::vector<CommandFacts> commands;  // the program first, then in the order of the help

    const CommandFacts* Find(const std::string& path) const;
};

ProgramFacts WalkDefinitions(const CLI::App& app);

// An option's form as help and manual page show it.
std::string ShownForm(const CLI::Option& option);

std::string BashCompletion(const ProgramFacts& program);
std::string ZshCompletion(const ProgramFacts& program);
std::string FishCompletion(const ProgramFacts& program);

std::string Joined(const std::vector<std::string>& words, const std::string& between = " ");

// Of the words the one that was probably meant, or nothing.
std::string Nearest(const std::string& word, const std::vector<std::string>& words);

}  // namespace kit

#endif

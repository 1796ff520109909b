// The command line's own definitions, walked: what completion and the manual page are made from.
#ifndef UKEY_DEFINITIONS_H
#define UKEY_DEFINITIONS_H

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace ukey {

struct OptionFacts {
    std::vector<std::string> names;  // "-o", "--output"; empty for a positional
    std::string value;               // type name; empty for a flag
    std::string description;
    bool required = false;
    bool repeated = false;

    bool Positional() const { return names.empty(); }
    bool TakesFile() const { return value == "FILE"; }
    std::vector<std::string> Choices() const;  // of a value "a|b|N", without the N
};

struct CommandFacts {
    std::string path;  // "cert get"; empty for the program itself
    std::string description;
    std::string footer;
    std::vector<OptionFacts> options;
    std::vector<std::string> subcommands;
};

// The program first, then every subcommand in the order of the help.
std::vector<CommandFacts> WalkDefinitions(const CLI::App& app);

std::string BashCompletion(const std::vector<CommandFacts>& commands);
std::string ZshCompletion(const std::vector<CommandFacts>& commands);
std::string ManualPage(const std::vector<CommandFacts>& commands);

}  // namespace ukey

#endif

// Completion script for fish.
#include "kit/definitions.h"

namespace kit {
namespace {

std::string Quoted(const std::string& text) {
    std::string quoted = "'";
    for (const char c : text) {
        if (c == '\'' || c == '\\') quoted += '\\';
        quoted += c;
    }
    return quoted + "'";
}

// One offer, made where the words so far lead to that command.
std::string Line(const ProgramFacts& program, const CommandFacts& command,
                 const std::string& offer) {
    return "complete -c " + program.name + " -n " +
           Quoted("__" + program.name + "_at " + Quoted(command.path)) + " " + offer + "\n";
}

std::string Values(const OptionFacts& option) {
    if (option.value.empty()) return {};
    if (option.TakesFile()) return " -r -F";
    if (option.TakesFolder()) return " -x -a '(__fish_complete_directories)'";
    return " -x -a " + Quoted(Joined(option.Choices()));
}

std::string Offer(const OptionFacts& option) {
    if (option.Positional()) {
        const std::string files = option.TakesFile() ? "-F" : "";
        const auto words = option.Choices();
        if (words.empty()) return files;
        return files + (files.empty() ? "-a " : " -a ") + Quoted(Joined(words)) + " -d " +
               Quoted(option.description);
    }
    std::string offer;
    for (const std::string& name : option.names) {
        const bool isLong = name.compare(0, 2, "--") == 0;
        offer +=
            (offer.empty() ? "" : " ") + (isLong ? "-l " + name.substr(2) : "-s " + name.substr(1));
    }
    return offer + Values(option) + " -d " + Quoted(option.description);
}

std::string Lines(const ProgramFacts& program, const CommandFacts& command) {
    std::string text;
    for (const std::string& name : command.subcommands) {
        const std::string& sentence = program.Find(command.Child(name))->description;
        text += Line(program, command, "-a " + Quoted(name) + " -d " + Quoted(sentence));
    }
    for (const OptionFacts& option : command.options) {
        const std::string offer = Offer(option);
        if (!offer.empty()) text += Line(program, command, offer);
    }
    return text;
}

}  // namespace

std::string FishCompletion(const ProgramFacts& program) {
    const std::string& name = program.name;
    std::string paths;
    for (const CommandFacts& command : program.commands) {
        if (!command.path.empty()) paths += " " + Quoted(command.path);
    }
    std::string text = "# Completion of " + name + " for fish; made by `" + name +
                       " completion fish`.\n"
                       "# True where the words so far name exactly this command.\n"
                       "function __" +
                       name +
                       "_at\n"
                       "    set -l path ''\n"
                       "    for word in (commandline -opc)[2..-1]\n"
                       "        set -l longer (string trim -- \"$path $word\")\n"
                       "        if contains -- $longer" +
                       paths +
                       "\n"
                       "            set path $longer\n"
                       "        end\n"
                       "    end\n"
                       "    test \"$path\" = \"$argv[1]\"\n"
                       "end\n\n"
                       "complete -c " +
                       name + " -f\n";
    for (const CommandFacts& command : program.commands) text += Lines(program, command);
    return text;
}

}  // namespace kit

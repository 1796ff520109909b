// A program of subcommands: help in two levels, completion, manual page, errors, exit status.
#ifndef KIT_PROGRAM_H
#define KIT_PROGRAM_H

#include <functional>
#include <memory>
#include <vector>

#include "kit/options.h"

namespace kit {

// What a program is, apart from its subcommands.
struct About {
    const char* name;
    const char* sentence;  // for --help, without a full stop
    const char* version;
    const std::vector<Status>& statuses;
    // Which of them the kit's own errors end with.
    int failed;
    int usage;
    int refused;
    int file;
    const char* footer;        // of the help, behind the exit statuses; may be empty
    const char* purpose;       // for the manual page, behind the name
    const char* description;   // roff: the section DESCRIPTION
    std::string (*closing)();  // roff: what stands behind EXIT STATUS, translated
};

// As in "ukey: message".
const char* ProgramName();

// What main does: a status and a word for whatever ends the command, before it has a parser and
// after, and even when there is no memory to say it nicely.
int Guarded(const About& about, int (*body)(int count, char** arguments), int count,
            char** arguments) noexcept;

class Program {
public:
    using Action = std::function<int()>;
    // Makes a complaint of an exception that the kit does not know, or returns false.
    using Translator = bool (*)(const std::exception& error, Complaint& complaint);

    Program(const About& about, Console& console, Translator translator);
    ~Program();
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    // A subcommand "get" of a subcommand "cert", which was added before, is "cert get". A group of
    // the help; an empty one hides the subcommand.
    Options Add(const std::string& path, const char* sentence, const char* group);
    // What the subcommand does; returns the exit status.
    void Does(const std::string& path, Action action);

    int Run(int count, char** arguments);

private:
    struct Parts;
    std::unique_ptr<Parts> parts_;
};

}  // namespace kit

#endif

#include "kit/program.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <csignal>
#include <cstdio>
#include <new>
#include <regex>
#include <sstream>

#include "kesta/ukey/failure.hpp"
#include "kit/definitions.h"
#include "kit/files.h"
#include "kit/language.h"
#include "kit/manual_page.h"
#include "kit/memory.h"

namespace kit {
namespace {

const char* programName = "";

// As CLI11 does it, without the remarks about options that exclude each other.
class HelpFormatter : public CLI::Formatter {
public:
    HelpFormatter() {
        column_width(29);
        label("Usage", _("Usage"));
        label("OPTIONS", _("OPTIONS"));
        label("SUBCOMMAND", _("SUBCOMMAND"));
    }

    // Groups of options are the parser's own; those of subcommands are translated already.
    std::string make_group(std::string group, bool positional,
                           std::vector<const CLI::Option*> options) const override {
        const char* const name = positional ? _("Positionals") : _("Options");
        return Headed(
            CLI::Formatter::make_group(group.empty() ? group : name, positional, options));
    }

    std::string make_subcommands(const CLI::App* app, CLI::AppFormatMode mode) const override {
        return Headed(CLI::Formatter::make_subcommands(app, mode));
    }

    std::string make_usage(const CLI::App* app, std::string name) const override {
        std::string text = CLI::Formatter::make_usage(app, name);
        return text.replace(text.find(':'), 1, _(":"));
    }

    std::string make_option_opts(const CLI::Option* option) const override {
        if (option->get_type_size() == 0) return {};
        return option->get_positional() ? "" : " " + ShownForm(*option);
    }

    std::string make_option_name(const CLI::Option* option, bool positional) const override {
        if (!positional) return CLI::Formatter::make_option_name(option, positional);
        return ShownForm(*option);
    }

    std::string make_option_usage(const CLI::Option* option) const override {
        std::string name = ShownForm(*option);
        if (option->get_expected_max() > 1) name += "...";
        return option->get_required() ? name : "[" + name + "]";
    }

    // The text of a footer stands as it was written.
    std::string make_description(const CLI::App* app) const override {
        return Fill(_("{1}."), {app->get_description()}) + "\n";
    }

private:
    static std::string Headed(const std::string& text) {
        return std::regex_replace(text, std::regex(":\n"), std::string(_(":")) + "\n");
    }
};

std::string StatusText(const About& about) {
    std::string text = std::string(_("Exit status:")) + "\n";
    for (const Status& status : about.statuses) {
        const std::string number = std::to_string(status.number);
        text += "  " + number + std::string(5 - number.size(), ' ') + _(status.words) + "\n";
    }
    text +=
        "\n" + Fill(_("`{1} help COMMAND` shows a command's options and examples."), {about.name});
    return *about.footer == '\0' ? text : text + "\n\n" + _(about.footer);
}

// What the parser complains of, in English.
const std::vector<const char*> kParserSentences = {
    N_("A subcommand is required"),
    N_("{1} is required"),
    N_("{1} requires {2}"),
    N_("{1} excludes {2}"),
    N_("{1}: {2} required {3} missing"),
    N_("{1}: At least {2} required but received {3}"),
    N_("{1}: At Most {2} required but received {3}"),
    N_("The following argument was not expected: {1}"),
    N_("The following arguments were not expected: {1}"),
    N_("Could not convert: {1} = {2}"),
    N_("{1}: Should be true/false or a number"),
    N_("{1}: {2}"),
};

// Behind "--" stand other programs' options.
bool WantsJson(int count, char** arguments) {
    for (int i = 1; i < count; ++i) {
        const std::string_view argument = arguments[i];
        if (argument == "--") return false;
        if (argument == "--json") return true;
    }
    return false;
}

CLI::App* Child(CLI::App& app, const std::string& name) {
    for (CLI::App* const child : app.get_subcommands([](const CLI::App*) { return true; })) {
        if (child->get_name() == name) return child;
    }
    return nullptr;
}

// The subcommands that were named: "cert get".
std::string PathOf(const CLI::App& app) {
    std::string path;
    for (auto found = app.get_subcommands(); !found.empty();
         found = found.front()->get_subcommands()) {
        path += (path.empty() ? "" : " ") + found.front()->get_name();
    }
    return path;
}

}  // namespace

const char* ProgramName() {
    return programName;
}

struct Program::Parts {
    Parts(const About& what, Console& where, Translator translate)
        : about(what), console(where), translator(translate), app(_(what.sentence), what.name) {}

    CLI::App& At(const std::string& path);
    void AddHelp(Program& program);
    void AddCompletion(Program& program, const char* shell, const char* examples,
                       std::string (*maker)(const ProgramFacts&));
    void AddOwnCommands(Program& program);
    int Help(const std::vector<std::string>& words);
    std::string Suggestion(const std::string& path, const std::string& word) const;
    Complaint Misuse(const std::exception& error) const;
    Complaint Explain(const std::exception& error) const;
    int Fail(const Complaint& complaint, bool json) const;
    int Act() const;

    const About& about;
    Console& console;
    Translator translator;
    CLI::App app;
    Action action;
};

CLI::App& Program::Parts::At(const std::string& path) {
    CLI::App* found = &app;
    std::size_t start = 0;
    while (start < path.size()) {
        const std::size_t end = std::min(path.find(' ', start), path.size());
        found = found->get_subcommand(path.substr(start, end - start));
        start = end + 1;
    }
    return *found;
}

// What is probably meant by a word that is neither a command nor an option there.
std::string Program::Parts::Suggestion(const std::string& path, const std::string& word) const {
    const ProgramFacts facts = WalkDefinitions(app);
    const CommandFacts* const command = facts.Find(path);
    if (command == nullptr) return {};
    std::vector<std::string> known = command->subcommands;
    if (word.front() == '-') {
        known.clear();
        for (const OptionFacts& option : command->options) {
            for (const std::string& name : option.names) {
                if (name.size() > 2) known.push_back(name);
            }
        }
    }
    const std::string meant = Nearest(word, known);
    if (meant.empty()) return {};
    return Fill(_("did you mean `{1}`?"),
                {meant.front() == '-' ? meant
                                      : std::string(about.name) + " " + command->Child(meant)}) +
           " ";
}

// CLI11 misses a command before it looks at the words that are none.
Complaint Program::Parts::Misuse(const std::exception& error) const {
    const std::string path = PathOf(app);
    const auto words = app.remaining(true);
    const std::string word = words.empty() || words.front().empty() ? "" : words.front();
    const bool missing = dynamic_cast<const CLI::RequiredError*>(&error) != nullptr;
    Complaint complaint;
    complaint.status = about.usage;
    complaint.message = Recognised(error.what(), kParserSentences);
    if (missing && !word.empty() && word.front() != '-') {
        complaint.message = Fill(_("there is no command \"{1}\""), {word});
    }
    const std::string suggestion =
        word.empty() || (word.front() != '-' && !missing) ? "" : Suggestion(path, word);
    const std::string command = std::string(about.name) + (path.empty() ? "" : " ") + path;
    complaint.advice = suggestion + Fill(_("`{1} --help` shows what it takes"), {command});
    return complaint;
}

Complaint Program::Parts::Explain(const std::exception& error) const {
    Complaint complaint{about.failed, error.what(), "", "", {}};
    if (translator(error, complaint)) return complaint;
    // Whatever it was taken for then.
    if (MemoryRanOut() || dynamic_cast<const std::bad_alloc*>(&error) != nullptr) {
        complaint.message = _("out of memory");
        return complaint;
    }
    if (const auto* failed = dynamic_cast<const Failed*>(&error)) return failed->complaint;
    if (dynamic_cast<const UsageError*>(&error) != nullptr) complaint.status = about.usage;
    if (dynamic_cast<const Refused*>(&error) != nullptr) complaint.status = about.refused;
    if (dynamic_cast<const FileError*>(&error) != nullptr) complaint.status = about.file;
    return complaint;
}

int Program::Parts::Fail(const Complaint& complaint, bool json) const {
    const std::string codeText = complaint.code ? kesta::CodeText(*complaint.code) : "";
    if (json) {
        Json error = Json::object();
        for (const Status& status : about.statuses) {
            if (status.number == complaint.status) error["kind"] = status.name;
        }
        error["message"] = complaint.message;
        if (!complaint.operation.empty()) error["operation"] = complaint.operation;
        if (complaint.code) error["code"] = *complaint.code;
        if (complaint.code) error["codeText"] = codeText;
        if (!complaint.advice.empty()) error["advice"] = complaint.advice;
        const std::string text = Json{{"ok", false}, {"error", error}}.Text() + "\n";
        std::fwrite(text.data(), 1, text.size(), stdout);
        std::fflush(stdout);
        return complaint.status;
    }
    std::fflush(stdout);
    std::string text = Paint(STDERR_FILENO, Colour::kRed, std::string(about.name) + ":") + " ";
    if (!complaint.operation.empty()) text += complaint.operation + ": ";
    text += Printable(complaint.message);
    if (!complaint.operation.empty() && complaint.code) text += " (" + codeText + ")";
    text += '\n';
    if (!complaint.advice.empty()) text += "  " + Printable(complaint.advice) + "\n";
    SayAside(text);
    return complaint.status;
}

int Program::Parts::Act() const {
    try {
        const int status = action();
        FinishOutput();
        return status;
    } catch (const ReaderGone&) {
        return 0;  // whoever reads has enough, as `head` has
    } catch (const std::exception& error) {
        return Fail(Explain(error), console.json);
    }
}

int Program::Parts::Help(const std::vector<std::string>& words) {
    CLI::App* found = &app;
    std::string path;
    for (const std::string& word : words) {
        CLI::App* const child = Child(*found, word);
        if (child == nullptr) {
            throw Failed(
                {about.usage,
                 Fill(_("there is no command \"{1}\""), {word}),
                 Suggestion(path, word) + Fill(_("`{1} help` shows the commands"), {about.name}),
                 "",
                 {}});
        }
        found = child;
        path += (path.empty() ? "" : " ") + word;
    }
    const std::string name = std::string(about.name) + (path.empty() ? "" : " ") + path;
    Say(found->get_formatter()->make_help(found, name, CLI::AppFormatMode::Normal));
    return 0;
}

void Program::Parts::AddHelp(Program& program) {
    const Options help =
        program.Add("help", N_("Show the commands, or the options of one"), N_("Help"));
    auto words = std::make_shared<std::vector<std::string>>();
    help.Texts("COMMAND", *words, "COMMAND", N_("The command, as in `cert get`"));
    program.Does("help", [this, words] { return Help(*words); });
}

void Program::Parts::AddCompletion(Program& program, const char* shell, const char* examples,
                                   std::string (*maker)(const ProgramFacts&)) {
    const std::string path = std::string("completion ") + shell;
    const Options options = program.Add(path, N_("Print the script for this shell"), "");
    options.Examples(Fill(examples, {about.name}).c_str());
    program.Does(path, [this, maker] {
        Say(maker(WalkDefinitions(app)));
        return 0;
    });
}

void Program::Parts::AddOwnCommands(Program& program) {
    AddHelp(program);
    program.Add("completion", N_("Print a completion script for a shell"), N_("Help"));
    At("completion").require_subcommand(1);
    AddCompletion(program, "bash",
                  "  source <({1} completion bash)\n"
                  "  {1} completion bash > /etc/bash_completion.d/{1}",
                  BashCompletion);
    AddCompletion(program, "zsh", "  {1} completion zsh > ~/.zsh/completions/_{1}", ZshCompletion);
    AddCompletion(program, "fish", "  {1} completion fish > ~/.config/fish/completions/{1}.fish",
                  FishCompletion);
    program.Add("manual", N_("Print the manual page"), "");
    program.Does("manual", [this] {
        Put(ManualPage(about, WalkDefinitions(app)));  // UTF-8, as pages are
        return 0;
    });
}

Program::Program(const About& about, Console& console, Translator translator)
    : parts_(std::make_unique<Parts>(about, console, translator)) {
    programName = about.name;
    CLI::App& app = parts_->app;
    app.require_subcommand(1);
    app.set_help_flag("-h,--help", _("Print this help"));
    app.set_version_flag("--version", std::string(about.name) + " " + about.version,
                         _("Print the version"));
    app.formatter(std::make_shared<HelpFormatter>());
    Options(&app).AddJson(console);
}

Program::~Program() = default;

Options Program::Add(const std::string& path, const char* sentence, const char* group) {
    const std::size_t space = path.rfind(' ');
    CLI::App& parent = space == std::string::npos ? parts_->app : parts_->At(path.substr(0, space));
    CLI::App* const command = parent.add_subcommand(path.substr(space + 1), _(sentence));
    if (&parent != &parts_->app) parent.require_subcommand(1);
    command->group(&parent == &parts_->app ? _(group) : _("Subcommands"));
    return Options(command);
}

void Program::Does(const std::string& path, Action action) {
    parts_->At(path).callback([this, action] { parts_->action = action; });
}

int Program::Run(int count, char** arguments) {
    std::signal(SIGPIPE, SIG_IGN);  // a closed pipe is seen where it is written to
    parts_->AddOwnCommands(*this);
    parts_->app.footer(StatusText(parts_->about));  // last: subcommands would inherit it
    try {
        parts_->app.parse(count, arguments);
    } catch (const CLI::Success& help) {
        std::ostringstream text;
        static_cast<void>(parts_->app.exit(help, text, text));
        parts_->action = [said = text.str()] {
            Say(said);
            return 0;
        };
    } catch (const std::exception& error) {
        const Complaint complaint = MemoryRanOut() ? parts_->Explain(error) : parts_->Misuse(error);
        return parts_->Fail(complaint, WantsJson(count, arguments));
    }
    return parts_->Act();
}

int Guarded(const About& about, int (*body)(int count, char** arguments), int count,
            char** arguments) noexcept {
    WatchMemory(about.name, about.failed);
    try {
        return body(count, arguments);
    } catch (const std::bad_alloc&) {
        TellThatMemoryRanOut();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s: %s\n", about.name, error.what());
    }
    return about.failed;
}

}  // namespace kit

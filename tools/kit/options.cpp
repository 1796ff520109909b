#include "kit/options.h"

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstdlib>

#include "kit/definitions.h"

namespace kit {
namespace {

std::string Listed(const std::vector<std::string>& words) {
    std::string text;
    for (std::size_t i = 0; i < words.size(); ++i) {
        text += i == 0 ? "" : i + 1 == words.size() ? _(" or ") : ", ";
        text += words[i];
    }
    return text;
}

// Words alone must be one of them; where a number or a file may stand the reader decides.
CLI::Option* Shaped(CLI::Option* option, const std::string& names, const char* form) {
    option->type_name(form);
    OptionFacts facts;
    facts.value = form;
    const auto words = facts.Choices();
    // Beside a file there may be many words, which the command itself lists.
    if (!words.empty() && facts.TakesFile()) option->option_text(names + "|FILE");
    if (words.empty() || facts.TakesNumber() || facts.TakesFile()) return option;
    return option->check([words, names](const std::string& text) {
        for (const std::string& word : words) {
            if (word == text) return std::string();
        }
        return Fill(_("it takes {1}, not \"{2}\""), {Listed(words), text});
    });
}

}  // namespace

std::string LongName(const std::string& names) {
    return names.substr(names.rfind(',') + 1);
}

const Option& Option::Required() const {
    option_->required();
    return *this;
}

const Option& Option::Excludes(const Option& other) const {
    option_->excludes(other.option_);
    return *this;
}

const Option& Option::Needs(const Option& other) const {
    option_->needs(other.option_);
    return *this;
}

void Options::Examples(const char* lines) const {
    command_->footer(std::string(_(kExamplesHead)) + _(lines));
}

void Options::Remark(const char* text) const {
    const std::string before = command_->get_footer();
    command_->footer(before.empty() ? _(text) : before + "\n\n" + _(text));
}

Option Options::Flag(const char* names, bool& value, const char* sentence) const {
    return Option(command_->add_flag(names, value, _(sentence)));
}

Option Options::Text(const char* names, std::string& value, const char* form,
                     const char* sentence) const {
    return Option(Shaped(command_->add_option(names, value, _(sentence)), names, form));
}

Option Options::Texts(const char* names, std::vector<std::string>& values, const char* form,
                      const char* sentence) const {
    CLI::Option* const option = command_->add_option(names, values, _(sentence));
    if (!option->get_positional()) {
        option->expected(1)->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    }
    return Option(Shaped(option, names, form));
}

Option Options::Read(const char* names, Reader reader, const char* form,
                     const char* sentence) const {
    CLI::Option* const option = command_->add_option_function<std::string>(
        names, [reader](const std::string& text) { reader(text); }, _(sentence));
    return Option(Shaped(option, names, form));
}

void Options::AddJson(Console& console) const {
    Flag("--json", console.json, N_("Print one JSON object instead of text"));
}

void Options::AddOutput(Console& console, const char* names) const {
    Text(names, console.outputFile, "FILE",
         N_("Write the result to this file, readable by its owner alone"));
}

void Options::AddYes(Console& console) const {
    Flag("-y,--yes", console.yes, N_("Do it without asking"));
}

long long Options::WholeNumber(const std::string& names, const std::string& text, long long least,
                               long long most) {
    char* end = nullptr;
    errno = 0;
    const long long number = std::strtoll(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || errno != 0 || number < least || number > most) {
        throw UsageError(Fill(_("{1}: it takes a number from {2} to {3}"),
                              {LongName(names), std::to_string(least), std::to_string(most)}));
    }
    return number;
}

}  // namespace kit

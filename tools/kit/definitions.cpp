#include "kit/definitions.h"

#include <CLI/CLI.hpp>
#include <algorithm>

#include "kit/text.h"

namespace kit {
namespace {

OptionFacts FactsOf(const CLI::Option& option) {
    OptionFacts facts;
    for (const std::string& name : option.get_snames()) facts.names.push_back("-" + name);
    for (const std::string& name : option.get_lnames()) facts.names.push_back("--" + name);
    if (option.get_items_expected_max() > 0) {
        facts.value = option.get_type_name();
        facts.shown = ShownForm(option);
    }
    facts.description = option.get_description();
    facts.required = option.get_required();
    facts.repeated = option.get_items_expected_max() > 1 ||
                     option.get_multi_option_policy() == CLI::MultiOptionPolicy::TakeAll;
    return facts;
}

void Walk(const CLI::App& app, const std::string& path, std::vector<CommandFacts>& all) {
    CommandFacts facts;
    facts.path = path;
    facts.description = app.get_description();
    facts.group = app.get_group();
    facts.footer = app.get_footer();
    for (const CLI::Option* option : app.get_options()) facts.options.push_back(FactsOf(*option));
    std::vector<const CLI::App*> children;
    for (const CLI::App* child : app.get_subcommands([](const CLI::App*) { return true; })) {
        if (child->get_group().empty()) continue;  // hidden
        facts.subcommands.push_back(child->get_name());
        children.push_back(child);
    }
    all.push_back(facts);
    for (const CLI::App* child : children) Walk(*child, facts.Child(child->get_name()), all);
}

std::vector<std::string> Words(const std::string& form) {
    std::vector<std::string> words;
    std::size_t start = 0;
    while (form.find('|') != std::string::npos && start <= form.size()) {
        const std::size_t end = std::min(form.find('|', start), form.size());
        words.push_back(form.substr(start, end - start));
        start = end + 1;
    }
    return words;
}

}  // namespace

bool OptionFacts::TakesFile() const {
    const auto words = Words(value);
    return value == "FILE" || (!words.empty() && words.back() == "FILE");
}

bool OptionFacts::TakesNumber() const {
    const auto words = Words(value);
    return !words.empty() && words.back() == "N";
}

std::vector<std::string> OptionFacts::Choices() const {
    auto words = Words(value);
    if (TakesNumber() || TakesFile()) words.resize(words.empty() ? 0 : words.size() - 1);
    return words;
}

std::string ShownForm(const CLI::Option& option) {
    const std::string text = option.get_option_text();
    return text.empty() ? option.get_type_name() : text;
}

const CommandFacts* ProgramFacts::Find(const std::string& path) const {
    const auto found = std::find_if(commands.begin(), commands.end(),
                                    [&](const CommandFacts& one) { return one.path == path; });
    return found == commands.end() ? nullptr : &*found;
}

ProgramFacts WalkDefinitions(const CLI::App& app) {
    ProgramFacts program{app.get_name(), {}};
    Walk(app, "", program.commands);
    return program;
}

std::string Joined(const std::vector<std::string>& words, const std::string& between) {
    std::string text;
    for (const std::string& word : words) text += (text.empty() ? "" : between) + word;
    return text;
}

// By the number of letters to change, insert, leave out or swap: at most a third of the word.
std::string Nearest(const std::string& word, const std::vector<std::string>& words) {
    std::string nearest;
    std::size_t least = word.size() / 3 + 1;
    for (const std::string& known : words) {
        std::vector<std::vector<std::size_t>> cost(word.size() + 1,
                                                   std::vector<std::size_t>(known.size() + 1));
        for (std::size_t i = 0; i <= word.size(); ++i) {
            for (std::size_t j = 0; j <= known.size(); ++j) {
                if (i == 0 || j == 0) {
                    cost[i][j] = i + j;
                    continue;
                }
                const std::size_t differs = word[i - 1] == known[j - 1] ? 0 : 1;
                cost[i][j] = std::min(
                    {cost[i - 1][j] + 1, cost[i][j - 1] + 1, cost[i - 1][j - 1] + differs});
                const bool swapped =
                    i > 1 && j > 1 && word[i - 1] == known[j - 2] && word[i - 2] == known[j - 1];
                if (swapped) cost[i][j] = std::min(cost[i][j], cost[i - 2][j - 2] + 1);
            }
        }
        const std::size_t far = cost[word.size()][known.size()];
        if (far <= least && (nearest.empty() || far < least)) {
            nearest = known;
            least = far;
        }
    }
    return nearest;
}

}  // namespace kit

#include "definitions.h"

namespace ukey {
namespace {

OptionFacts FactsOf(const CLI::Option& option) {
    OptionFacts facts;
    for (const std::string& name : option.get_snames()) facts.names.push_back("-" + name);
    for (const std::string& name : option.get_lnames()) facts.names.push_back("--" + name);
    if (option.get_items_expected_max() > 0) facts.value = option.get_type_name();
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
    facts.footer = app.get_footer();
    for (const CLI::Option* option : app.get_options()) facts.options.push_back(FactsOf(*option));
    std::vector<const CLI::App*> children;
    for (const CLI::App* child : app.get_subcommands([](const CLI::App*) { return true; })) {
        if (child->get_group().empty()) continue;  // hidden
        facts.subcommands.push_back(child->get_name());
        children.push_back(child);
    }
    all.push_back(facts);
    for (const CLI::App* child : children) {
        Walk(*child, path.empty() ? child->get_name() : path + " " + child->get_name(), all);
    }
}

}  // namespace

std::vector<std::string> OptionFacts::Choices() const {
    std::vector<std::string> choices;
    std::size_t start = 0;
    if (value.find('|') == std::string::npos) return choices;
    while (start <= value.size()) {
        const std::size_t end = std::min(value.find('|', start), value.size());
        const std::string word = value.substr(start, end - start);
        if (word != "N") choices.push_back(word);
        start = end + 1;
    }
    return choices;
}

std::vector<CommandFacts> WalkDefinitions(const CLI::App& app) {
    std::vector<CommandFacts> all;
    Walk(app, "", all);
    return all;
}

}  // namespace ukey

// How --help is laid out.
#ifndef UKEY_HELP_H
#define UKEY_HELP_H

#include <CLI/CLI.hpp>
#include <string>

namespace ukey {

// As CLI11 does it, without the remarks about options that exclude each other.
class HelpFormatter : public CLI::Formatter {
public:
    HelpFormatter() { column_width(29); }

    std::string make_option_opts(const CLI::Option* option) const override {
        if (option->get_type_size() == 0) return {};
        return option->get_positional() ? "" : " " + option->get_type_name();
    }

    std::string make_option_name(const CLI::Option* option, bool positional) const override {
        if (!positional) return CLI::Formatter::make_option_name(option, positional);
        return option->get_type_name();
    }

    std::string make_option_usage(const CLI::Option* option) const override {
        std::string name = option->get_type_name();
        if (option->get_expected_max() > 1) name += "...";
        return option->get_required() ? name : "[" + name + "]";
    }

    // The text of a footer stands as it was written.
    std::string make_description(const CLI::App* app) const override {
        return app->get_description() + ".\n";
    }
};

}  // namespace ukey

#endif

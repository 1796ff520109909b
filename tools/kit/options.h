// What a subcommand takes, described without naming the parser, which only the kit sees.
#ifndef KIT_OPTIONS_H
#define KIT_OPTIONS_H

#include <functional>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

#include "kit/console.h"

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace kit {

class Option {
public:
    explicit Option(CLI::Option* option) : option_(option) {}
    const Option& Required() const;
    const Option& Excludes(const Option& other) const;
    const Option& Needs(const Option& other) const;

private:
    CLI::Option* option_;
};

// One subcommand. Names are "-o,--output", or "FILE" for a positional argument. A form says what
// stands behind the name and what completion offers: "FILE", "DIR", words "a|b|c" of which one must
// be given, or words and a number "a|b|N" or a file "a|b|FILE".
class Options {
public:
    using Reader = std::function<void(const std::string&)>;

    explicit Options(CLI::App* command) : command_(command) {}

    // Lines of commands, with what they do, at the end of the help.
    void Examples(const char* lines) const;
    // A remark behind them; lines of at most 100 columns.
    void Remark(const char* text) const;

    Option Flag(const char* names, bool& value, const char* sentence) const;
    Option Text(const char* names, std::string& value, const char* form,
                const char* sentence) const;
    // May be repeated; of a positional argument several may follow each other.
    Option Texts(const char* names, std::vector<std::string>& values, const char* form,
                 const char* sentence) const;
    // A whole number from least to most, into a number or an optional one.
    template <class T>
    Option Number(const char* names, T& value, long long least, long long most, const char* form,
                  const char* sentence) const {
        return Read(
            names,
            [&value, names, least, most](const std::string& text) {
                using Plain = std::decay_t<decltype(ValueOf(value))>;
                value = static_cast<Plain>(WholeNumber(names, text, least, most));
            },
            form, sentence);
    }
    // The reader throws UsageError for what it does not take.
    Option Read(const char* names, Reader reader, const char* form, const char* sentence) const;

    // Options that several subcommands of both programs have.
    void AddJson(Console& console) const;
    void AddOutput(Console& console, const char* names = "-o,--output") const;
    void AddYes(Console& console) const;

    static long long WholeNumber(const std::string& names, const std::string& text, long long least,
                                 long long most);

private:
    template <class T>
    static T ValueOf(const T&);
    template <class T>
    static T ValueOf(const std::optional<T>&);

    CLI::App* command_;
};

// The last of the names, by which messages call an option: "--output".
std::string LongName(const std::string& names);

}  // namespace kit

#endif

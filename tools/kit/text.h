// Texts on their way to a person.
#ifndef KIT_TEXT_H
#define KIT_TEXT_H

#include <initializer_list>
#include <string>
#include <string_view>

namespace kit {

// Every sentence that a person reads passes through one of these: N_ marks it where it stands in a
// table, _ gives it in the person's language. There is one language so far.
constexpr const char* N_(const char* sentence) {
    return sentence;
}
const char* _(const char* sentence);

// The sentence with {1}, {2} ... replaced by the parts. Whole sentences can be translated, pieces
// of them cannot.
std::string Fill(std::string_view sentence, std::initializer_list<std::string_view> parts);

// Replaces what could steer a terminal: control characters of both sets, marks that turn the
// direction of writing, and bytes that are not UTF-8. Of the kept ones "\n" and "\t" make sense.
std::string Printable(std::string_view text, std::string_view kept = {});

// How many columns a UTF-8 text takes in a terminal; East Asian wide characters take two.
std::size_t Columns(std::string_view text);

// Without the line breaks and blanks at its end.
std::string Trimmed(std::string text);

}  // namespace kit

#endif

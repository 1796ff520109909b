// Texts on their way to a person.
#ifndef KIT_TEXT_H
#define KIT_TEXT_H

#include <initializer_list>
#include <string>
#include <string_view>

namespace kit {

// Every sentence that a person reads passes through one of these: N_ marks it where it stands in a
// table, _ gives it in the person's language.
constexpr const char* N_(const char* sentence) {
    return sentence;
}
const char* _(const char* sentence);

// The sentence with {1}, {2} ... replaced by the parts. Whole sentences can be translated, pieces
// of them cannot. Parts may come from outside, in the person's charset.
std::string Fill(std::string_view sentence, std::initializer_list<std::string_view> parts);

// Replaces what could steer a terminal: control characters of both sets, marks that turn the
// direction of writing, and bytes that are neither UTF-8 nor of the person's charset. Of the kept
// ones "\n" and "\t" make sense.
std::string Printable(std::string_view text, std::string_view kept = {});

bool IsUtf8(std::string_view text);
// How many bytes the character takes that a text begins with; 1 where it begins with none of UTF-8.
std::size_t CharacterSize(std::string_view text);

// How many columns a UTF-8 text takes in the person's terminal; East Asian wide characters take
// two.
std::size_t Columns(std::string_view text);

// Without the line breaks and blanks at its end.
std::string Trimmed(std::string text);

}  // namespace kit

#endif

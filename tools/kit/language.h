// The person's language and charset. Inside the commands every text is UTF-8.
#ifndef KIT_LANGUAGE_H
#define KIT_LANGUAGE_H

#include <string>
#include <string_view>
#include <vector>

namespace kit {

// Language and charset are the environment's, as every program takes them: LC_ALL, LC_MESSAGES,
// LC_CTYPE, LANG, LANGUAGE. Numbers and order stay those of the C locale.
void UsePersonsLocale();

// The language of the sentences, as a token library calls it: "en_US" or "zh_CN".
std::string LanguageName();
bool SpeaksChinese();

// The charset of the person's terminal; UTF-8 where the locale names none.
const std::string& CharsetName();

// A text from outside: what is not UTF-8 is taken for the person's charset. A text that is neither
// stays as it is.
std::string ToUtf8(std::string_view text);
// For the person's terminal. A character that its charset lacks becomes a question mark.
std::string FromUtf8(std::string_view text);

// The translation of what code that knows no catalogue composed in English: it is recognised by its
// words among the sentences, and so is what stands in their holes. English where none fits.
std::string Recognised(const std::string& english, const std::vector<const char*>& sentences);

// The system's words for an errno, in the person's language.
std::string SystemText(int number);

}  // namespace kit

#endif

// The face's own sentences, in English or in Chinese (UTF-8). Texts of the token library are not
// among them; SetLanguage chooses theirs.
#ifndef KESTA_UKEY_SENTENCES_HPP
#define KESTA_UKEY_SENTENCES_HPP

#include <atomic>
#include <cstddef>
#include <initializer_list>
#include <string>

#include "kesta/ukey/tables.hpp"

namespace kesta {

enum class Language { kEnglish, kChinese };

enum class Sentence {
#define KESTA_UKEY_SENTENCE(name, english, chinese) name,
    KESTA_UKEY_SENTENCES(KESTA_UKEY_SENTENCE)
#undef KESTA_UKEY_SENTENCE
};

inline std::atomic<Language>& SentenceLanguage() {
    static std::atomic<Language> language{Language::kEnglish};
    return language;
}

// The language of the face's sentences from now on, in the whole program.
inline void Speak(Language language) {
    SentenceLanguage() = language;
}

inline const char* InLanguage(const char* english, const char* chinese) {
    return SentenceLanguage() == Language::kChinese ? chinese : english;
}

// The sentence with {0}, {1} … replaced by the words.
inline std::string Say(Sentence sentence, std::initializer_list<std::string> words = {}) {
    std::string text;
    switch (sentence) {
#define KESTA_UKEY_SENTENCE(name, english, chinese) \
    case Sentence::name:                            \
        text = InLanguage(english, chinese);        \
        break;
        KESTA_UKEY_SENTENCES(KESTA_UKEY_SENTENCE)
#undef KESTA_UKEY_SENTENCE
    }
    // From the last place on, so that a word which holds "{0}" itself is left alone.
    std::size_t at = text.size();
    while ((at = text.rfind('{', at)) != std::string::npos) {
        const auto index = static_cast<std::size_t>(text[at + 1] - '0');
        text.replace(at, 3, index < words.size() ? words.begin()[index] : "");
        if (at-- == 0) break;
    }
    return text;
}

}  // namespace kesta

#endif

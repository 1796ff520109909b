// The software key's own sentences for a person. Inside a client they are English; the command
// softkey, which knows its person, has them translated.
#ifndef SOFTKEY_SENTENCE_H
#define SOFTKEY_SENTENCE_H

#include <initializer_list>
#include <string>

namespace softkey {

inline const char* (*translate)(const char* sentence) = [](const char* sentence) {
    return sentence;
};

// Marks a sentence where it stands in a table.
constexpr const char* N_(const char* sentence) {
    return sentence;
}

// The sentence with {1}, {2} ... replaced by the parts.
inline std::string Sentence(const char* english, std::initializer_list<std::string> parts = {}) {
    const std::string sentence = translate(english);
    std::string text;
    for (std::size_t i = 0; i < sentence.size(); ++i) {
        // Behind the last character stands a NUL, which is no number.
        const std::size_t part =
            sentence[i] == '{' ? static_cast<std::size_t>(sentence[i + 1] - '1') : parts.size();
        if (part < parts.size() && sentence[i + 2] == '}') {
            text += parts.begin()[part];
            i += 2;
        } else {
            text += sentence[i];
        }
    }
    return text;
}

}  // namespace softkey

#endif

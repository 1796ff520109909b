// The texts that certificates and escrowed keys arrive in: pure rules, no state.
#ifndef KESTA_IMPORT_TEXT_H
#define KESTA_IMPORT_TEXT_H

#include <cstddef>
#include <set>
#include <string_view>

#include "lgn/lgn.h"

namespace kesta {

void RemoveCommas(LgnString& text);
void RemoveLineBreaks(LgnString& text);

// What of an escrowed key's text goes to the token library. Where the fixed 80-digit header occurs
// anywhere in the text, the text's first 80 characters are dropped, wherever the header stood.
std::string_view KeyBody(std::string_view keyText);

enum class BundleKind { kMalformed = 1, kSingleCertificate = 2, kSections = 3 };

// Looks at the section names of a cleaned text. Names count in any case here, while
// SectionScanner finds its own case alone.
BundleKind ClassifyBundle(std::string_view text);

// Walks the sections of one kind. The opener is the section's name with its parenthesis.
class SectionScanner {
public:
    SectionScanner(std::string_view text, std::string_view opener) : text_(text), opener_(opener) {}

    // The next section's content, empty for one without ")". False at the end.
    bool Next(std::string_view& content);

private:
    std::string_view text_;
    std::string_view opener_;
    std::size_t position_ = 0;
    // An opener without ")" sends the search back to position 1; what was handled ends it there.
    std::set<std::size_t> handled_;
};

}  // namespace kesta

#endif

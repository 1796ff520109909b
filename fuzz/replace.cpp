// Replace on a text with embedded NULs. The first two bytes give the lengths of pattern and
// replacement, which follow; the rest is the text.
#include <string>

#include "fuzz_target.h"
#include "lgn/lgn.h"
#include "oracles/replace_steps.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2 || size > 4096) return 0;
    const std::string bytes(reinterpret_cast<const char*>(data + 2), size - 2);
    const std::size_t patternSize = data[0] % 8, replacementSize = data[1] % 16;
    if (bytes.size() < patternSize + replacementSize) return 0;
    const std::string pattern = bytes.substr(0, patternSize);
    const std::string replacement = bytes.substr(patternSize, replacementSize);
    const std::string text = bytes.substr(patternSize + replacementSize);

    const ReplacedText expected = ReplaceBySteps(text, pattern.c_str(), replacement.c_str());
    LgnString string(text.data(), static_cast<int>(text.size()), _lgnBufferManager);
    const LgnString sharer(string);
    FUZZ_EXPECT(string.Replace(pattern.c_str(), replacement.c_str()) == expected.count);
    FUZZ_EXPECT(sharer.View() == text);
    FUZZ_EXPECT(string.View().size() == expected.text.size());
    for (std::size_t i = 0; i < expected.text.size(); ++i) {
        FUZZ_EXPECT(string.View()[i] == (expected.defined[i] ? expected.text[i] : '\0'));
    }
    return 0;
}

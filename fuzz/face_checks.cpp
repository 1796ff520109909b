// What the C++ face lets through is nothing that ends the process: no key of a bundle is longer
// than the library's buffer for it, as the library itself finds the keys.
#include <string>

#include "fuzz_target.h"
#include "import_text.h"
#include "kesta/places.h"
#include "kesta/ukey/checks.hpp"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text = std::string(reinterpret_cast<const char*>(data), size).c_str();
    kesta::checks::RequestInfo(text);
    const bool listed = !kesta::checks::ListItem(text);
    FUZZ_EXPECT(!listed || text.find("||") == std::string::npos);
    if (kesta::checks::Bundle(text)) return 0;
    LgnString clean(text.c_str());
    kesta::RemoveCommas(clean);
    kesta::RemoveLineBreaks(clean);
    if (kesta::ClassifyBundle(clean.View()) != kesta::BundleKind::kSections) return 0;
    kesta::SectionScanner scanner(clean.View(), "EncPriKey(");
    std::string_view content;
    while (scanner.Next(content)) {
        FUZZ_EXPECT(kesta::KeyBody(content).size() <= kesta::limits::kKeyBuffer);
    }
    return 0;
}

// The certificate bundle and the escrowed key's text.
#include <string>

#include "fuzz_target.h"
#include "import_text.h"
#include "oracles/bundle_steps.h"

namespace {

std::vector<std::string> Contents(const std::string& text, const char* opener) {
    std::vector<std::string> result;
    kesta::SectionScanner scanner(text, opener);
    std::string_view content;
    while (scanner.Next(content)) {
        result.emplace_back(content);
        FUZZ_EXPECT(result.size() <= text.size());
    }
    return result;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text = std::string(reinterpret_cast<const char*>(data), size).c_str();
    FUZZ_EXPECT(static_cast<int>(kesta::ClassifyBundle(text)) == steps::Classify(text));
    for (const char* opener : {"SignCert(", "EncPriKey(", "EncCert("}) {
        FUZZ_EXPECT(Contents(text, opener) == steps::Contents(text, opener));
    }
    FUZZ_EXPECT(kesta::KeyBody(text) == steps::KeyBody(text));
    return 0;
}

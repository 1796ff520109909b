// Lines to and from the PIN program: escaping and its undoing meet, and nothing grows.
#include "softkey/pin/assuan.h"

#include "softkey_fuzz.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text = TextOf(data, size);
    std::string escaped = softkey::AssuanEscape(text);
    FUZZ_EXPECT(escaped.find_first_of("\r\n") == std::string::npos);
    bool good = true;
    escaped.resize(softkey::AssuanUnescape(escaped.data(), escaped.size(), good));
    FUZZ_EXPECT(good && escaped == text);

    std::string received = text;
    const std::size_t length = softkey::AssuanUnescape(received.data(), received.size(), good);
    FUZZ_EXPECT(length <= text.size());
    return 0;
}

// Lines to the PIN program, and the one rule for those from it that libassuan leaves to us.
#include "softkey/pin/assuan.h"

#include "softkey_fuzz.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text = TextOf(data, size);
    const std::string escaped = softkey::AssuanEscape(text);
    FUZZ_EXPECT(escaped.find_first_of("\r\n") == std::string::npos);
    FUZZ_EXPECT(softkey::IsAssuanEscaped(escaped));
    FUZZ_EXPECT(!softkey::IsAssuanEscaped(escaped + "%"));
    FUZZ_EXPECT((escaped == text) || !softkey::IsAssuanEscaped(text + "%4"));
    return 0;
}

// Base64 and PEM armour: what was written is read again, and what is read stands in the text.
#include "softkey/crypto/base64.h"

#include "softkey_fuzz.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace softkey;
    const Bytes bytes(data, data + size);
    const std::string text = TextOf(data, size);
    FUZZ_EXPECT(FromBase64(ToBase64(bytes)) == bytes);
    if (const auto read = FromBase64(text)) FUZZ_EXPECT(FromBase64(ToBase64(*read)) == read);
    for (const std::string_view piece : WithoutArmour(text)) {
        FUZZ_EXPECT(piece.empty() || (piece.data() >= text.data() &&
                                      piece.data() + piece.size() <= text.data() + text.size()));
    }
    return 0;
}

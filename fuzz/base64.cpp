// Base64 and PEM: what was written is read again, and what is read is what would be written.
#include "softkey/crypto/base64.h"

#include "softkey_fuzz.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace softkey;
    const Bytes bytes(data, data + size);
    const std::string text = TextOf(data, size);
    FUZZ_EXPECT(FromBase64(ToBase64(bytes)) == bytes);
    if (const auto read = FromBase64(text)) FUZZ_EXPECT(FromBase64(ToBase64(*read)) == read);
    const std::string armoured = "-----BEGIN X-----" + ToBase64(bytes) + "-----END X-----" + text;
    if (const auto blocks = FromText(armoured)) FUZZ_EXPECT(blocks->front() == bytes);
    FromText(text);
    return 0;
}

// An SM2 cipher text with some bytes changed: it gives the text only where nothing was changed.
#include "softkey/crypto/decryption.h"
#include "softkey_fuzz.h"

namespace {

using namespace softkey;

constexpr char kText[] = "a letter to the key";

Bytes Sealed() {
    const PKeyCtxPtr ctx(EVP_PKEY_CTX_new_from_pkey(nullptr, OnePair(), nullptr));
    const auto* const plain = reinterpret_cast<const unsigned char*>(kText);
    Bytes cipher(256);
    std::size_t length = cipher.size();
    FUZZ_EXPECT(EVP_PKEY_encrypt_init(ctx.get()) == 1);
    FUZZ_EXPECT(EVP_PKEY_encrypt(ctx.get(), cipher.data(), &length, plain, sizeof kText) == 1);
    cipher.resize(length);
    return cipher;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const Bytes whole = Sealed();
    const Bytes changed = Changed(whole, data, size);
    const auto plain = Decrypt(OnePair(), changed);
    FUZZ_EXPECT(plain.has_value() == (changed == whole));
    FUZZ_EXPECT(!Decrypt(OnePair(), Bytes(data, data + size)));
    return 0;
}

#include "softkey/crypto/decryption.h"

#include "softkey/crypto/key_pair.h"
#include "softkey/crypto/openssl_errors.h"
#include "softkey/crypto/sm2_cipher.h"
#include "softkey/result.h"

namespace softkey {
namespace {

std::optional<SecretBytes> DecryptByOpenssl(EVP_PKEY* pair, const Bytes& cipher,
                                            std::size_t longest) {
    const PKeyCtxPtr ctx(EVP_PKEY_CTX_new_from_pkey(nullptr, pair, nullptr));
    Require(ctx && EVP_PKEY_decrypt_init(ctx.get()) == 1, "preparing a decryption");
    SecretBytes plain(longest);
    std::size_t length = plain.size();
    if (EVP_PKEY_decrypt(ctx.get(), plain.data(), &length, cipher.data(), cipher.size()) != 1) {
        ForgetErrors();
        return std::nullopt;
    }
    plain.Shrink(length);
    return plain;
}

std::optional<SecretBytes> DecryptSm2(EVP_PKEY* pair, const Bytes& bytes) {
    const std::optional<Sm2Cipher> cipher = ReadSm2Cipher(bytes);
    if (!cipher) return std::nullopt;
    if (cipher->text.empty()) {
        if (!IsCipherOfNothing(*cipher, Sm2NumberOf(pair))) return std::nullopt;
        return SecretBytes(0);
    }
    return DecryptByOpenssl(pair, cipher->der, cipher->der.size());
}

}  // namespace

std::optional<SecretBytes> Decrypt(EVP_PKEY* pair, const Bytes& cipher) {
    if (AlgorithmOf(pair) == Algorithm::kSm2) return DecryptSm2(pair, cipher);
    const auto modulus = static_cast<std::size_t>(EVP_PKEY_get_size(pair));
    // OpenSSL also takes a cipher text that lacks its leading zeros.
    if (cipher.size() != modulus) return std::nullopt;
    return DecryptByOpenssl(pair, cipher, modulus);
}

}  // namespace softkey

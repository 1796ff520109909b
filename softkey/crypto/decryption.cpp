#include "softkey/crypto/decryption.h"

#include <openssl/err.h>
#include <openssl/rsa.h>

#include <algorithm>

#include "softkey/crypto/der.h"
#include "softkey/crypto/key_pair.h"

namespace softkey {

std::optional<SecretBytes> Decrypt(EVP_PKEY* pair, const Bytes& cipher) {
    if (AlgorithmOf(pair) == Algorithm::kSm2 && !IsDer(cipher)) return std::nullopt;
    const PKeyCtxPtr ctx(EVP_PKEY_CTX_new_from_pkey(nullptr, pair, nullptr));
    if (!ctx || EVP_PKEY_decrypt_init(ctx.get()) != 1 ||
        (AlgorithmOf(pair) == Algorithm::kRsa &&
         EVP_PKEY_CTX_set_rsa_padding(ctx.get(), RSA_PKCS1_PADDING) != 1)) {
        throw Failure(kCryptoFailed, "preparing a decryption");
    }
    // The plain text is never longer than the cipher text, nor an RSA one than its modulus.
    const auto modulus = static_cast<std::size_t>(EVP_PKEY_get_size(pair));
    SecretBytes plain(std::max(cipher.size(), modulus));
    std::size_t length = plain.size();
    if (EVP_PKEY_decrypt(ctx.get(), plain.data(), &length, cipher.data(), cipher.size()) != 1) {
        ERR_clear_error();
        return std::nullopt;
    }
    plain.Shrink(length);
    return plain;
}

}  // namespace softkey

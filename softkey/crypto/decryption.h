// Decryption with a private key.
#ifndef SOFTKEY_CRYPTO_DECRYPTION_H
#define SOFTKEY_CRYPTO_DECRYPTION_H

#include <optional>

#include "softkey/crypto/openssl_types.h"
#include "softkey/crypto/vault.h"
#include "softkey/store/records.h"

namespace softkey {

// cipher is an SM2 cipher text, as DER or as its parts one behind the other (sm2_cipher.h), or
// PKCS#1 v1.5 for RSA, as long as the modulus.
// Nothing when it is not meant for this pair or not well formed.
std::optional<SecretBytes> Decrypt(EVP_PKEY* pair, const Bytes& cipher);

}  // namespace softkey

#endif

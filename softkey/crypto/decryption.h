// Decryption with a private key.
#ifndef SOFTKEY_CRYPTO_DECRYPTION_H
#define SOFTKEY_CRYPTO_DECRYPTION_H

#include <optional>

#include "softkey/crypto/openssl_types.h"
#include "softkey/crypto/vault.h"
#include "softkey/store/records.h"

namespace softkey {

// cipher is the DER of an SM2 cipher text, SEQUENCE { x, y, hash, text }, or PKCS#1 v1.5 for RSA.
// Nothing when it is not meant for this pair or not well formed.
std::optional<SecretBytes> Decrypt(EVP_PKEY* pair, const Bytes& cipher);

}  // namespace softkey

#endif

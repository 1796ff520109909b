// Decryption with a private key.
#ifndef SOFTKEY_DECRYPTION_H
#define SOFTKEY_DECRYPTION_H

#include <optional>

#include "softkey/openssl_types.h"
#include "softkey/records.h"
#include "softkey/vault.h"

namespace softkey {

// cipher is the DER of an SM2 cipher text, SEQUENCE { x, y, hash, text }, or PKCS#1 v1.5 for RSA.
// Nothing when it is not meant for this pair or not well formed.
std::optional<SecretBytes> Decrypt(EVP_PKEY* pair, const Bytes& cipher);

}  // namespace softkey

#endif

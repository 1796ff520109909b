// RSA pairs whose private numbers stay on the secure heap. OpenSSL's present interface copies them
// to the ordinary heap whenever a key goes in or out, and so does each signature with a key that
// came in by the older one, unless the key has a method of its own: this one has.
#ifndef SOFTKEY_CRYPTO_RSA_KEY_H
#define SOFTKEY_CRYPTO_RSA_KEY_H

#include "softkey/crypto/openssl_types.h"
#include "softkey/crypto/secret_bytes.h"

namespace softkey {

PKeyPtr GenerateRsaPair(int bits);

// RSAPrivateKey of PKCS#1, DER.
SecretBytes RsaNumbersOf(const EVP_PKEY* pair);

// Of that DER, or of PKCS#8, which earlier versions stored. Null when it is neither.
PKeyPtr ReadRsaPair(const SecretBytes& der);

}  // namespace softkey

#endif

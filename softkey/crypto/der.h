// The one way of writing ASN.1 that what crosses the key's interface must follow.
#ifndef SOFTKEY_CRYPTO_DER_H
#define SOFTKEY_CRYPTO_DER_H

#include "softkey/crypto/openssl_types.h"
#include "softkey/store/records.h"

namespace softkey {

// One element, nested no deeper than 64, and nothing behind it, each length definite and as short
// as it can be. OpenSSL's readers also take what BER allows beside that; two texts would then stand
// for one value.
bool IsDer(const Bytes& bytes);

// What an encoder of OpenSSL's writes, which is given a place for it and answers the length.
template <typename Encoder>
Bytes Encoded(Encoder encode, const char* what) {
    unsigned char* der = nullptr;
    const int size = encode(&der);
    const AllocatedPtr<unsigned char> owned(der);
    Require(size > 0, what);
    return {der, der + size};
}

}  // namespace softkey

#endif

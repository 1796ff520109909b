// Signatures.
#ifndef SOFTKEY_CRYPTO_SIGNATURE_H
#define SOFTKEY_CRYPTO_SIGNATURE_H

#include <mutex>
#include <string_view>

#include "softkey/crypto/openssl_types.h"
#include "softkey/store/records.h"

namespace softkey {

// How the text of a digest is written.
enum class DigestText : std::int32_t { kEither = 0, kHex = 1, kBase64 = 2 };

// The digest that a text stands for: 32 bytes for SM2 and SHA-256, 20 for SHA-1. Hexadecimal and
// Base64 of a digest differ in length, so that kEither is never in doubt. kBadArgument.
Bytes ParseDigest(std::string_view text, DigestText writing, Algorithm algorithm,
                  std::int64_t hash);

// What makes signatures with a pair, which must live as long. What every SM2 signature begins with
// is done once: finding the algorithm, and the digest of identity, curve and public point. Any
// number of threads may sign at once.
class Signer {
public:
    explicit Signer(EVP_PKEY* pair);
    Bytes OverText(std::int64_t hash, std::string_view text) const;
    Bytes OverDigest(std::int64_t hash, const Bytes& digest) const;

private:
    MdCtxPtr BegunText(std::int64_t hash) const;
    PKeyCtxPtr BegunDigest(std::int64_t hash) const;

    EVP_PKEY* pair_;
    Algorithm algorithm_;
    MdCtxPtr text_;      // for SM2
    PKeyCtxPtr digest_;  // for SM2; who comes while it is in use takes a copy
    mutable std::mutex digestInUse_;
};

// A signature over the text: DER for SM2, with SM3 and the identity hashed in front; PKCS#1 v1.5
// for RSA.
Bytes SignText(EVP_PKEY* pair, std::int64_t hash, std::string_view text);
// The same over a digest that was made elsewhere. For SM2 that is the value e as it stands.
Bytes SignDigest(EVP_PKEY* pair, std::int64_t hash, const Bytes& digest);

}  // namespace softkey

#endif

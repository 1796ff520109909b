// SM2 cipher texts as they come in, and the range of SM2's numbers. OpenSSL reads more than the
// standard allows: coordinates without a sign or above the prime, which it reduces.
#ifndef SOFTKEY_CRYPTO_SM2_CIPHER_H
#define SOFTKEY_CRYPTO_SM2_CIPHER_H

#include <openssl/ec.h>

#include <optional>

#include "softkey/crypto/openssl_types.h"
#include "softkey/crypto/secret_bytes.h"
#include "softkey/store/records.h"

namespace softkey {

constexpr std::size_t kSm2NumberSize = 32;
constexpr std::size_t kSm2PointSize = 1 + 2 * kSm2NumberSize;
constexpr std::uint8_t kUncompressed = 0x04;

using GroupPtr = std::unique_ptr<EC_GROUP, Releaser<EC_GROUP_free>>;
using PointPtr = std::unique_ptr<EC_POINT, Releaser<EC_POINT_free>>;

GroupPtr Sm2Group();

// A private number is at least 1 and at most the order less 2: a signature divides by it plus 1.
bool IsSm2PrivateNumber(const BIGNUM* number);

// The number that 32 bytes are, the most significant first.
BignumPtr ToSm2Number(const std::uint8_t* bytes);

struct Sm2Cipher {
    Bytes der;    // SEQUENCE { x, y, hash, text }
    Bytes point;  // uncompressed
    Bytes hash;
    Bytes text;
};

// Reads that DER, or its parts one behind the other: point, hash, text. Nothing when it is neither,
// when anything stands behind it, or when the point is none of the curve.
std::optional<Sm2Cipher> ReadSm2Cipher(const Bytes& bytes);

// Whether this is the cipher text of the empty text for the pair of this private number: then the
// hash is that of the common point's coordinates alone. OpenSSL decrypts no empty text.
bool IsCipherOfNothing(const Sm2Cipher& cipher, const SecretBytes& number);

}  // namespace softkey

#endif

// Making key pairs, and moving them between OpenSSL and the store.
#ifndef SOFTKEY_CRYPTO_KEY_PAIR_H
#define SOFTKEY_CRYPTO_KEY_PAIR_H

#include <string>
#include <string_view>

#include "softkey/crypto/openssl_types.h"
#include "softkey/crypto/vault.h"
#include "softkey/store/records.h"

namespace softkey {

// The identity that every SM2 signature is made with.
constexpr std::string_view kSm2Identity = "1234567812345678";

// SM2, or RSA of 2048 bits.
PKeyPtr GeneratePair(Algorithm algorithm);

// The private number of an SM2 pair. kBadArgument when it has none.
SecretBytes Sm2NumberOf(const EVP_PKEY* pair);
// Of a private number and its public point, uncompressed. kCryptoFailed for a number out of range.
PKeyPtr MakeSm2Pair(const BIGNUM* number, const Bytes& point);

// By the name that OpenSSL's providers know its kind by. EVP_PKEY_is_a needs memory, and where
// there is none no key is anything.
bool IsA(const EVP_PKEY* pair, std::string_view name);
Algorithm AlgorithmOf(const EVP_PKEY* pair);
Bytes PublicKeyOf(const EVP_PKEY* pair);         // SubjectPublicKeyInfo, DER
PKeyPtr ParsePublicKey(const Bytes& publicKey);  // null when it cannot be read

// A pair as the store takes it, its private half wrapped for this serial number and role.
PairRecord ToRecord(EVP_PKEY* pair, Role role, const std::string& serial, const MasterKey& master);
// The wrapped private half of a record, under another master key.
Bytes WrapAnew(const PairRecord& record, const Bytes& wrapped, const std::string& serial,
               const MasterKey& from, const MasterKey& to);
// kStateDamaged when the private half does not open or does not belong to the record.
PKeyPtr OpenPrivate(const PairRecord& record, const Bytes& wrapped, const std::string& serial,
                    const MasterKey& master);

}  // namespace softkey

#endif

// The digital envelope in which an escrowed SM2 key pair travels to a key.
//
//   SM2EnvelopedKey ::= SEQUENCE {
//       symAlgID             AlgorithmIdentifier,  -- SM4 in ECB mode
//       symEncryptedKey      SM2Cipher,            -- a fresh SM4 key, to the temporary pair; also
//                                                  -- taken: its raw parts in an OCTET STRING
//       sm2PublicKey         BIT STRING,           -- of the escrowed pair, uncompressed point
//       sm2EncryptedPrivateKey BIT STRING }        -- its private number, under the SM4 key
#ifndef SOFTKEY_CRYPTO_ENVELOPE_H
#define SOFTKEY_CRYPTO_ENVELOPE_H

#include <openssl/evp.h>

#include <string>
#include <string_view>

#include "softkey/crypto/openssl_types.h"
#include "softkey/result.h"
#include "softkey/store/records.h"

namespace softkey {

// Seals an SM2 key pair to an SM2 public key: the authority's side. Returns DER.
Bytes SealEnvelope(EVP_PKEY* recipient, EVP_PKEY* pair);

// Opens an envelope with the temporary pair. kEnvelopeMalformed when it cannot be read,
// kEnvelopeMismatch when it is sealed to another key or its two halves do not belong together.
PKeyPtr OpenEnvelope(const Bytes& envelope, EVP_PKEY* temporary);

// The same as SealEnvelope from texts: to is a certificate request (PEM, or the Base64 text that
// comes from the key; of a pair of requests joined by ";" the second, which is the one for
// encryption), or a public key in PEM; pair is the private key in PEM, unencrypted. Returns the
// Base64 text, one line, that ImportEncX509Cert takes. kBadArgument names what cannot be read.
std::string SealEnvelopeText(std::string_view to, std::string_view pair);

}  // namespace softkey

#endif

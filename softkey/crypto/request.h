// Certificate requests.
#ifndef SOFTKEY_CRYPTO_REQUEST_H
#define SOFTKEY_CRYPTO_REQUEST_H

#include <string>
#include <string_view>

#include "softkey/crypto/openssl_types.h"
#include "softkey/store/records.h"

namespace softkey {

// The numbers are those of HashType; 0 is the algorithm's own: SM3 for SM2, SHA-256 for RSA.
enum class Hash : std::int32_t { kOwn = 0, kSha1 = 1, kSha256 = 2, kSm3 = 3 };

// The name of the digest that a signature of this algorithm uses. SM2 always uses SM3. kBadArgument
// for a number that is no hash, kNotSupported for RSA with SM3.
const char* DigestName(Algorithm algorithm, std::int64_t hash);

// Adds CN=commonName, in UTF-8.
void SetCommonName(X509_NAME* name, std::string_view commonName);

// The Base64 text of a DER PKCS#10 request, one line, signed by the pair itself. Its subject is
// CN=commonName.
std::string MakeRequest(EVP_PKEY* pair, std::int64_t hash, std::string_view commonName);

}  // namespace softkey

#endif

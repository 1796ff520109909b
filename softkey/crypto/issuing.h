// Certificates for a key that is made with them, by an authority that nobody knows: what a test
// needs where only their dates matter.
#ifndef SOFTKEY_CRYPTO_ISSUING_H
#define SOFTKEY_CRYPTO_ISSUING_H

#include <ctime>
#include <string>
#include <vector>

#include "softkey/crypto/openssl_types.h"
#include "softkey/crypto/vault.h"
#include "softkey/store/records.h"

namespace softkey {

struct Validity {
    std::time_t notBefore;
    std::time_t notAfter;
};

// An SM2 pair for signing and one for encryption, with certificates of CN=serial. The authority's
// own pair is forgotten.
std::vector<PairRecord> CertifiedPairs(const std::string& serial, const MasterKey& master,
                                       const Validity& validity);

}  // namespace softkey

#endif

// Which of the key pairs on a key an operation means.
#ifndef SOFTKEY_TOKEN_PAIRS_H
#define SOFTKEY_TOKEN_PAIRS_H

#include <cstdint>

#include "softkey/token/device.h"

namespace softkey {

// Numbers of the interface: CertType 0 is either, 1 signing, 3 encryption; KeyType 0 is either,
// 1 RSA, 2 SM2. Anything else is kBadArgument.
struct Selection {
    Selection(std::int64_t wantedCertType, std::int64_t wantedKeyType);
    bool Takes(const PairRecord& pair) const;

    std::int64_t certType;
    std::int64_t keyType;
};

// The pair that a private-key operation uses: the one with a certificate, else the newest.
// kNoKeyPair.
PairRecord PairToUse(const std::vector<PairRecord>& pairs, const Selection& selection);

// The pair whose certificate is read; of both kinds the signing one. kNoCertificate.
PairRecord PairWithCertificate(const std::vector<PairRecord>& pairs, const Selection& selection);

// A pair that waits for its certificate is added; of each kind the newest eight may wait.
void AddWaitingPair(Store& store, const std::string& serial, const PairRecord& pair);

}  // namespace softkey

#endif

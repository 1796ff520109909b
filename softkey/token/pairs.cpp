#include "softkey/token/pairs.h"

#include "softkey/result.h"
#include "softkey/store/pairs.h"

namespace softkey {
namespace {

constexpr int kWaitingPairs = 8;

}  // namespace

Selection::Selection(std::int64_t wantedCertType, std::int64_t wantedKeyType)
    : certType(wantedCertType), keyType(wantedKeyType) {
    if (certType != 0 && certType != 1 && certType != 3) {
        throw Failure(kBadArgument);
    }
    if (keyType < 0 || keyType > 2) {
        throw Failure(kBadArgument);
    }
}

bool Selection::Takes(const PairRecord& pair) const {
    return (certType == 0 || certType == static_cast<std::int64_t>(pair.role)) &&
           (keyType == 0 || keyType == static_cast<std::int64_t>(pair.algorithm));
}

PairRecord PairToUse(const std::vector<PairRecord>& pairs, const Selection& selection) {
    const PairRecord* waiting = nullptr;
    for (const PairRecord& pair : pairs) {
        if (!selection.Takes(pair)) continue;
        if (!pair.certificate.empty()) return pair;
        if (waiting == nullptr) waiting = &pair;
    }
    if (waiting == nullptr) throw Failure(kNoKeyPair);
    return *waiting;
}

PairRecord PairWithCertificate(const std::vector<PairRecord>& pairs, const Selection& selection) {
    const PairRecord* found = nullptr;
    for (const PairRecord& pair : pairs) {
        if (!selection.Takes(pair) || pair.certificate.empty()) continue;
        if (pair.role == Role::kSigning) return pair;
        if (found == nullptr) found = &pair;
    }
    if (found == nullptr) throw Failure(kNoCertificate);
    return *found;
}

void AddWaitingPair(Store& store, const std::string& serial, const PairRecord& pair) {
    int waiting = 1;
    for (const PairRecord& other : PairTable(store).Of(serial)) {
        if (other.role != pair.role || !other.certificate.empty()) continue;
        if (++waiting > kWaitingPairs) PairTable(store).Delete(other.id);
    }
    PairTable(store).Add(serial, pair);
}

}  // namespace softkey

// The key pairs on the keys, with their certificates.
#ifndef SOFTKEY_STORE_PAIRS_H
#define SOFTKEY_STORE_PAIRS_H

#include <string>
#include <vector>

#include "softkey/store/records.h"
#include "softkey/store/store.h"

namespace softkey {

class PairTable : private Table {
public:
    using Table::Table;

    // Newest first, without their wrapped private halves.
    std::vector<PairRecord> Of(const std::string& serial);
    Bytes WrappedPrivate(std::int64_t pairId);
    void SetWrappedPrivate(std::int64_t pairId, const Bytes& wrapped);
    std::int64_t Add(const std::string& serial, const PairRecord& pair);
    void Delete(std::int64_t pairId);
    void SetCertificate(std::int64_t pairId, const Bytes& certificate);

private:
    void Update(const char* sql, std::int64_t pairId, const Bytes& bytes);
};

}  // namespace softkey

#endif

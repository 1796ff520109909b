#include "softkey/store/pairs.h"

#include "softkey/result.h"
#include "softkey/store/database.h"

namespace softkey {

std::vector<PairRecord> PairTable::Of(const std::string& serial) {
    std::vector<PairRecord> pairs;
    Statement query = db().Prepare(
        "SELECT id, role, algorithm, public_key, certificate FROM pairs WHERE serial = ?"
        " ORDER BY id DESC");
    query.Bind(serial);
    while (query.Step()) {
        PairRecord pair;
        pair.id = query.Int(0);
        pair.role = static_cast<Role>(query.Int(1));
        pair.algorithm = static_cast<Algorithm>(query.Int(2));
        pair.publicKey = query.Blob(3);
        pair.certificate = query.Blob(4);
        pairs.push_back(std::move(pair));
    }
    return pairs;
}

Bytes PairTable::WrappedPrivate(std::int64_t pairId) {
    Statement query = db().Prepare("SELECT wrapped FROM pairs WHERE id = ?");
    if (!query.Bind(pairId).Step()) throw Failure(kNoKeyPair, std::to_string(pairId));
    return query.Blob(0);
}

std::int64_t PairTable::Add(const std::string& serial, const PairRecord& pair) {
    Transaction transaction(store_);
    db().Prepare(
            "INSERT INTO pairs(serial, role, algorithm, public_key, wrapped, certificate)"
            " VALUES(?, ?, ?, ?, ?, ?)")
        .Bind(serial)
        .Bind(static_cast<std::int64_t>(pair.role))
        .Bind(static_cast<std::int64_t>(pair.algorithm))
        .Bind(pair.publicKey)
        .Bind(pair.wrappedPrivate)
        .Bind(pair.certificate)
        .Run();
    const std::int64_t id = db().LastId();
    transaction.Commit();
    return id;
}

void PairTable::Delete(std::int64_t pairId) {
    Transaction transaction(store_);
    db().Prepare("DELETE FROM pairs WHERE id = ?").Bind(pairId).Run();
    transaction.Commit();
}

void PairTable::Update(const char* sql, std::int64_t pairId, const Bytes& bytes) {
    Transaction transaction(store_);
    db().Prepare(sql).Bind(bytes).Bind(pairId).Run();
    if (db().Changes() == 0) throw Failure(kNoKeyPair, std::to_string(pairId));
    transaction.Commit();
}

void PairTable::SetCertificate(std::int64_t pairId, const Bytes& certificate) {
    Update("UPDATE pairs SET certificate = ? WHERE id = ?", pairId, certificate);
}

void PairTable::SetWrappedPrivate(std::int64_t pairId, const Bytes& wrapped) {
    Update("UPDATE pairs SET wrapped = ? WHERE id = ?", pairId, wrapped);
}

}  // namespace softkey

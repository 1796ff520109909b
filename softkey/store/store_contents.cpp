// The store's members for what is on a key: PIN seal, key pairs, certificates, data objects.
#include "softkey/store/database.h"
#include "softkey/store/store.h"

namespace softkey {

PinSeal Store::Seal(const std::string& serial) {
    Statement query = db_->Prepare("SELECT salt, iterations, sealed FROM keys WHERE serial = ?");
    if (!query.Bind(serial).Step()) throw Failure(kKeyAbsent, serial);
    PinSeal seal;
    seal.salt = query.Blob(0);
    seal.iterations = static_cast<int>(query.Int(1));
    seal.sealed = query.Blob(2);
    return seal;
}

void Store::SetSeal(const std::string& serial, const PinSeal& seal) {
    Transaction transaction(*this);
    db_->Prepare(
           "UPDATE keys SET salt = ?, iterations = ?, sealed = ?, tries_left = max_tries,"
           " pin_version = pin_version + 1 WHERE serial = ?")
        .Bind(seal.salt)
        .Bind(static_cast<std::int64_t>(seal.iterations))
        .Bind(seal.sealed)
        .Bind(serial)
        .Run();
    RequireChange(serial);
    transaction.Commit();
}

int Store::TakeTry(const std::string& serial) {
    Transaction transaction(*this);
    const std::optional<KeyRecord> key = FindKey(serial);
    if (!key) throw Failure(kKeyAbsent, serial);
    if (key->triesLeft == 0) throw Failure(kPinLocked, serial);
    db_->Prepare("UPDATE keys SET tries_left = tries_left - 1 WHERE serial = ?").Bind(serial).Run();
    transaction.Commit();
    return key->triesLeft - 1;
}

void Store::ResetTries(const std::string& serial) {
    Transaction transaction(*this);
    db_->Prepare("UPDATE keys SET tries_left = max_tries WHERE serial = ?").Bind(serial).Run();
    RequireChange(serial);
    transaction.Commit();
}

std::vector<PairRecord> Store::Pairs(const std::string& serial) {
    std::vector<PairRecord> pairs;
    Statement query = db_->Prepare(
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

Bytes Store::WrappedPrivate(std::int64_t pairId) {
    Statement query = db_->Prepare("SELECT wrapped FROM pairs WHERE id = ?");
    if (!query.Bind(pairId).Step()) throw Failure(kNoKeyPair, std::to_string(pairId));
    return query.Blob(0);
}

std::int64_t Store::AddPair(const std::string& serial, const PairRecord& pair) {
    Transaction transaction(*this);
    db_->Prepare(
           "INSERT INTO pairs(serial, role, algorithm, public_key, wrapped, certificate)"
           " VALUES(?, ?, ?, ?, ?, ?)")
        .Bind(serial)
        .Bind(static_cast<std::int64_t>(pair.role))
        .Bind(static_cast<std::int64_t>(pair.algorithm))
        .Bind(pair.publicKey)
        .Bind(pair.wrappedPrivate)
        .Bind(pair.certificate)
        .Run();
    const std::int64_t id = db_->LastId();
    transaction.Commit();
    return id;
}

void Store::DeletePair(std::int64_t pairId) {
    Transaction transaction(*this);
    db_->Prepare("DELETE FROM pairs WHERE id = ?").Bind(pairId).Run();
    transaction.Commit();
}

void Store::SetCertificate(std::int64_t pairId, const Bytes& certificate) {
    Transaction transaction(*this);
    db_->Prepare("UPDATE pairs SET certificate = ? WHERE id = ?")
        .Bind(certificate)
        .Bind(pairId)
        .Run();
    if (db_->Changes() == 0) throw Failure(kNoKeyPair, std::to_string(pairId));
    transaction.Commit();
}

void Store::EraseContents(const std::string& serial) {
    Transaction transaction(*this);
    if (!FindKey(serial)) throw Failure(kKeyAbsent, serial);
    db_->Prepare("DELETE FROM pairs WHERE serial = ?").Bind(serial).Run();
    db_->Prepare("DELETE FROM data WHERE serial = ?").Bind(serial).Run();
    transaction.Commit();
}

void Store::SetData(const std::string& serial, const DataObject& object) {
    if (object.value.size() > kMaxDataLength) {
        throw Failure(kTooLong, "value of " + object.name + ": at most 259 bytes");
    }
    Transaction transaction(*this);
    if (!FindKey(serial)) throw Failure(kKeyAbsent, serial);
    db_->Prepare("INSERT OR REPLACE INTO data(serial, name, number, value) VALUES(?, ?, ?, ?)")
        .Bind(serial)
        .Bind(object.name)
        .Bind(static_cast<std::int64_t>(object.number))
        .Bind(object.value)
        .Run();
    transaction.Commit();
}

std::optional<std::string> Store::GetData(const std::string& serial, const std::string& name,
                                          std::uint32_t number) {
    Statement query =
        db_->Prepare("SELECT value FROM data WHERE serial = ? AND name = ? AND number = ?");
    if (!query.Bind(serial).Bind(name).Bind(static_cast<std::int64_t>(number)).Step()) {
        return std::nullopt;
    }
    return query.Text(0);
}

std::vector<DataObject> Store::DataObjects(const std::string& serial) {
    std::vector<DataObject> objects;
    Statement query =
        db_->Prepare("SELECT name, number, value FROM data WHERE serial = ? ORDER BY name, number");
    query.Bind(serial);
    while (query.Step()) {
        objects.push_back({query.Text(0), static_cast<std::uint32_t>(query.Int(1)), query.Text(2)});
    }
    return objects;
}

}  // namespace softkey

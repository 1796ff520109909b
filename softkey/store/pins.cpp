#include "softkey/store/pins.h"

#include "softkey/result.h"
#include "softkey/store/database.h"
#include "softkey/store/keys.h"

namespace softkey {

PinSeal PinTable::Seal(const std::string& serial) {
    Statement query =
        db().Prepare("SELECT salt, kdf, cost, block, parallel, sealed FROM keys WHERE serial = ?");
    if (!query.Bind(serial).Step()) throw Failure(kKeyAbsent, serial);
    PinSeal seal;
    seal.salt = query.Blob(0);
    seal.kdf = static_cast<Kdf>(query.Int(1));
    seal.cost = query.Int(2);
    seal.block = query.Int(3);
    seal.parallel = query.Int(4);
    seal.sealed = query.Blob(5);
    return seal;
}

Statement& BindSeal(Statement& statement, const PinSeal& seal) {
    return statement.Bind(seal.salt)
        .Bind(static_cast<std::int64_t>(seal.kdf))
        .Bind(seal.cost)
        .Bind(seal.block)
        .Bind(seal.parallel)
        .Bind(seal.sealed);
}

void PinTable::SetSeal(const std::string& serial, const PinSeal& seal) {
    Transaction transaction(store_);
    Statement update = db().Prepare(
        "UPDATE keys SET salt = ?, kdf = ?, cost = ?, block = ?, parallel = ?, sealed = ?,"
        " tries_left = max_tries WHERE serial = ?");
    BindSeal(update, seal).Bind(serial).Run();
    if (db().Changes() == 0) throw Failure(kKeyAbsent, serial);
    transaction.Commit();
}

void PinTable::EndVerifications(const std::string& serial) {
    Transaction transaction(store_);
    db().Prepare("UPDATE keys SET pin_version = pin_version + 1 WHERE serial = ?")
        .Bind(serial)
        .Run();
    transaction.Commit();
}

int PinTable::TakeTry(const std::string& serial) {
    Transaction transaction(store_);
    const std::optional<KeyRecord> key = KeyTable(store_).Find(serial);
    if (!key) throw Failure(kKeyAbsent, serial);
    if (key->triesLeft == 0) throw Failure(kPinLocked, serial);
    db().Prepare("UPDATE keys SET tries_left = tries_left - 1 WHERE serial = ?").Bind(serial).Run();
    transaction.Commit();
    return key->triesLeft - 1;
}

void PinTable::SetTries(const std::string& serial, int left) {
    Transaction transaction(store_);
    db().Prepare("UPDATE keys SET tries_left = ? WHERE serial = ?")
        .Bind(static_cast<std::int64_t>(left))
        .Bind(serial)
        .Run();
    transaction.Commit();
}

void PinTable::ResetTries(const std::string& serial) {
    Transaction transaction(store_);
    db().Prepare("UPDATE keys SET tries_left = max_tries WHERE serial = ?").Bind(serial).Run();
    if (db().Changes() == 0) throw Failure(kKeyAbsent, serial);
    transaction.Commit();
}

}  // namespace softkey

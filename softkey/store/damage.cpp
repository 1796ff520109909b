#include "softkey/store/damage.h"

#include <fcntl.h>

#include "softkey/crypto/certificate.h"
#include "softkey/crypto/key_pair.h"
#include "softkey/crypto/openssl_context.h"
#include "softkey/store/database.h"
#include "softkey/store/file.h"
#include "softkey/store/places.h"
#include "softkey/store/store.h"

namespace softkey {
namespace {

using Lines = std::vector<std::string>;

void CheckCertificate(const std::string& name, const Bytes& der, const Bytes& publicKey,
                      Lines& damage) {
    try {
        const X509Ptr certificate = StoredCertificate(der);
        if (!BelongsTogether(certificate.get(), publicKey)) {
            damage.push_back(Sentence("{1}: the certificate belongs to another key", {name}));
        }
    } catch (const Failure& failure) {
        if (failure.code() != kStateDamaged) throw;
        damage.push_back(Sentence("{1}: the certificate cannot be read", {name}));
    }
}

void CheckPairs(Database& db, Lines& damage) {
    Statement row = db.Prepare(
        "SELECT serial, id, algorithm, public_key, certificate, wrapped FROM pairs ORDER BY id");
    while (row.Step()) {
        const std::string name =
            Sentence("key {1}, key pair {2}", {row.Text(0), std::to_string(row.Int(1))});
        const Bytes publicKey = row.Blob(3);
        const PKeyPtr key = ParsePublicKey(publicKey);
        const bool rsa = row.Int(2) == static_cast<std::int64_t>(Algorithm::kRsa);
        if (!key || !IsA(key.get(), rsa ? "RSA" : "SM2")) {
            damage.push_back(Sentence("{1}: the public key cannot be read", {name}));
        }
        if (!IsWrapped(row.Blob(5))) {
            damage.push_back(Sentence("{1}: the wrapped private key is cut short", {name}));
        }
        const Bytes certificate = row.Blob(4);
        if (!certificate.empty()) CheckCertificate(name, certificate, publicKey, damage);
    }
}

void CheckSeals(Database& db, Lines& damage) {
    Statement row = db.Prepare("SELECT serial, salt, kdf, cost, block, parallel, sealed FROM keys");
    while (row.Step()) {
        const PinSeal seal{row.Blob(1), static_cast<Kdf>(row.Int(2)),
                           row.Int(3),  row.Int(4),
                           row.Int(5),  row.Blob(6)};
        if (!IsSound(seal)) {
            damage.push_back(Sentence("key {1}: the PIN seal is malformed", {row.Text(0)}));
        }
    }
}

// What SQLite itself finds; one line says "ok" when all is well.
void CheckStructure(Database& db, Lines& damage) {
    Statement structure = db.Prepare("PRAGMA integrity_check");
    while (structure.Step()) {
        if (structure.Text(0) != "ok")
            damage.push_back(Sentence("database: {1}", {structure.Text(0)}));
    }
    Statement references = db.Prepare("PRAGMA foreign_key_check");
    while (references.Step()) {
        damage.push_back(
            Sentence("database: a row of table {1} belongs to no key", {references.Text(0)}));
    }
}

// Runs a search that damage may end early.
template <typename Search>
void Note(Lines& damage, Search search) {
    try {
        search();
    } catch (const Failure& failure) {
        if (failure.code() != kStateDamaged) throw;
        damage.push_back(failure.detail());
    }
}

void CheckRows(Database& db, Lines& damage) {
    Note(damage, [&] { CheckStructure(db, damage); });
    Note(damage, [&] { CheckSeals(db, damage); });
    Note(damage, [&] { CheckPairs(db, damage); });
}

}  // namespace

std::vector<std::string> FindDamage(const std::string& home) {
    Lines damage;
    Note(damage, [&] {
        if (const auto store = Store::OpenExisting(home)) CheckRows(store->database(), damage);
    });
    if (damage.empty()) return damage;
    // Without a method that OpenSSL lost for want of memory nothing can be read, damaged or not.
    if (SuspectOpenssl(kStateDamaged) != kStateDamaged) throw Failure(kNoMemory);
    // The whole file is known to be wrong; what is wrong within helps whoever must save the rest.
    Note(damage, [&] {
        const File file(DatabasePath(home), O_RDONLY);
        const Bytes image = file.IsOpen() ? file.ReadAll() : Bytes();
        if (image.empty()) return;
        Database db(image);
        CheckRows(db, damage);
    });
    return damage;
}

}  // namespace softkey

#include "softkey/store/damage.h"

#include "softkey/crypto/certificate.h"
#include "softkey/crypto/key_pair.h"
#include "softkey/store/database.h"
#include "softkey/store/events.h"
#include "softkey/store/keys.h"
#include "softkey/store/objects.h"
#include "softkey/store/pairs.h"
#include "softkey/store/pins.h"
#include "softkey/store/questions.h"

namespace softkey {
namespace {

// The sizes of what the vault makes: nonce and tag around the secret, and a salt.
constexpr std::size_t kWrapping = 12 + 16;
constexpr std::size_t kSaltSize = 16;

std::string PairName(const std::string& serial, const PairRecord& pair) {
    return "key " + serial + ", key pair " + std::to_string(pair.id);
}

void CheckPair(const std::string& serial, const PairRecord& pair, const Bytes& wrapped,
               std::vector<std::string>& damage) {
    const std::string name = PairName(serial, pair);
    const PKeyPtr key = ParsePublicKey(pair.publicKey);
    const char* const type = pair.algorithm == Algorithm::kRsa ? "RSA" : "SM2";
    if (!key || EVP_PKEY_is_a(key.get(), type) != 1) {
        damage.push_back(name + ": the public key cannot be read");
    }
    if (wrapped.size() <= kWrapping) {
        damage.push_back(name + ": the wrapped private key is cut short");
    }
    if (pair.certificate.empty()) return;
    try {
        const X509Ptr certificate = StoredCertificate(pair.certificate);
        if (!BelongsTogether(certificate.get(), pair.publicKey)) {
            damage.push_back(name + ": the certificate belongs to another key");
        }
    } catch (const Failure&) {
        damage.push_back(name + ": the certificate cannot be read");
    }
}

void CheckSeal(const std::string& serial, const PinSeal& seal, std::vector<std::string>& damage) {
    if (seal.salt.size() != kSaltSize || seal.sealed.size() != kWrapping + MasterKey::kSize ||
        seal.iterations < 1) {
        damage.push_back("key " + serial + ": the PIN seal is malformed");
    }
}

// What SQLite itself finds; one line says "ok" when all is well.
void CheckDatabase(Database& db, std::vector<std::string>& damage) {
    Statement structure = db.Prepare("PRAGMA integrity_check");
    while (structure.Step()) {
        if (structure.Text(0) != "ok") damage.push_back("database: " + structure.Text(0));
    }
    Statement references = db.Prepare("PRAGMA foreign_key_check");
    while (references.Step()) {
        damage.push_back("database: a row of table " + references.Text(0) + " belongs to no key");
    }
}

}  // namespace

std::vector<std::string> FindDamage(Store& store) {
    std::vector<std::string> damage;
    try {
        CheckDatabase(store.database(), damage);
        EventLog(store).After(0);
        for (const KeyRecord& key : KeyTable(store).All()) {
            CheckSeal(key.serial, PinTable(store).Seal(key.serial), damage);
            ObjectTable(store).Of(key.serial);
            QuestionTable(store).Waiting(key.serial);
            for (const PairRecord& pair : PairTable(store).Of(key.serial)) {
                CheckPair(key.serial, pair, PairTable(store).WrappedPrivate(pair.id), damage);
            }
        }
    } catch (const Failure& failure) {
        if (failure.code() != kStateDamaged) throw;
        damage.push_back(failure.detail());
    }
    return damage;
}

}  // namespace softkey

// Entry points that take certificates and escrowed keys in, and tell and delete what is there.
#include <algorithm>
#include <optional>

#include "softkey/crypto/base64.h"
#include "softkey/crypto/certificate.h"
#include "softkey/crypto/envelope.h"
#include "softkey/crypto/key_pair.h"
#include "softkey/result.h"
#include "softkey/store/pairs.h"
#include "softkey/token/call.h"
#include "softkey/token/entry_points.h"
#include "softkey/token/pairs.h"
#include "softkey/token/pin.h"

namespace softkey {
namespace {

using kesta::limits::kKeyBuffer;
using kesta::limits::kNameBuffer;

// The new certificate takes the place of the one of the same kind, whose pair goes with it. An
// encryption certificate ends the enrolment that the temporary pairs were made for.
void Install(Store& store, const std::string& serial, const PairRecord& pair, const Bytes& der) {
    for (const PairRecord& other : PairTable(store).Of(serial)) {
        const bool replaced = other.id != pair.id && other.role == pair.role &&
                              other.algorithm == pair.algorithm && !other.certificate.empty();
        const bool spent = pair.role == Role::kEncryption && other.role == Role::kTemporary;
        if (replaced || spent) PairTable(store).Delete(other.id);
    }
    PairTable(store).SetCertificate(pair.id, der);
}

// Installs those certificates of a chain that belong to a pair on the key.
void InstallMatching(Store& store, const KeyRecord& key, const std::vector<X509Ptr>& chain) {
    bool matched = false;
    for (const X509Ptr& certificate : chain) {
        for (const PairRecord& pair : PairTable(store).Of(key.serial)) {
            if (pair.role == Role::kTemporary ||
                !BelongsTogether(certificate.get(), pair.publicKey)) {
                continue;
            }
            const Bytes der = CertificateDer(certificate.get());
            if (der.size() > kMaxCertificateSize) throw Failure(kTooLong);
            Install(store, key.serial, pair, der);
            matched = true;
            break;
        }
    }
    if (!matched) throw Failure(kCertificateMismatch);
}

std::vector<std::pair<PairRecord, SharedPair>> TemporaryPairs(const KeyRecord& key,
                                                              Unlocked& unlocked) {
    std::vector<std::pair<PairRecord, SharedPair>> pairs;
    LockedDevice device;
    for (const PairRecord& pair : device.Pairs(key)) {
        if (pair.role != Role::kTemporary) continue;
        pairs.emplace_back(pair, device.OpenPair(key, pair, unlocked));
    }
    if (pairs.empty()) throw Failure(kNoKeyPair);
    return pairs;
}

// Tries the temporary pairs, the newest first: a request may have been made more than once.
PKeyPtr OpenWithAny(const Bytes& envelope, const KeyRecord& key, Unlocked& unlocked) {
    for (const auto& [record, opened] : TemporaryPairs(key, unlocked)) {
        try {
            return OpenEnvelope(envelope, opened->pair.get());
        } catch (const Failure& failure) {
            if (failure.code() != kEnvelopeMismatch) throw;
        }
    }
    throw Failure(kEnvelopeMismatch);
}

// The new pair takes the place of the old one, whose certificate goes with it.
void InstallEncryptionPair(Store& store, const std::string& serial, const PairRecord& pair) {
    for (const PairRecord& other : PairTable(store).Of(serial)) {
        if (other.role == Role::kEncryption) PairTable(store).Delete(other.id);
    }
    PairTable(store).Add(serial, pair);
}

PairRecord Certified(Call& call, const char* serial, std::uint32_t certType,
                     std::uint32_t keyType) {
    const Selection selection(certType, keyType);
    const KeyRecord key = call.LookAt(serial);
    return PairWithCertificate(LockedDevice().Pairs(key), selection);
}

// Certificates with their pairs, and pairs that wait for one. False when there were none.
bool DeletePairs(Store& store, const std::string& serial, const Selection& selection) {
    bool any = false;
    for (PairRecord pair : PairTable(store).Of(serial)) {
        const std::int64_t id = pair.id;
        if (pair.role == Role::kTemporary) pair.role = Role::kEncryption;
        if (!selection.Takes(pair)) continue;
        PairTable(store).Delete(id);
        any = true;
    }
    return any;
}

}  // namespace
}  // namespace softkey

using namespace softkey;

// The output string is left as it is.
int GMWritePKCS7(const char* serial, const char* certificate, KestaStringObject&) {
    return Enter({"GMWritePKCS7", serial}, [=](Call& call) {
        if (certificate == nullptr) throw Failure(kBadArgument);
        const std::vector<X509Ptr> chain = ParseCertificates(certificate);
        const KeyRecord key = KeyOf(serial);
        call.Midway(key);
        Change change(key, call.plan().limits);
        InstallMatching(change.store(), key, chain);
        change.Commit();
    });
}

int GMImportPriKey(const char* serial, char* key, std::uint32_t) {
    return Enter({"GMImportPriKey", serial}, [=](Call& call) {
        if (key == nullptr) throw Failure(kBadArgument);
        const Bytes envelope = FromBase64({key, strnlen(key, kKeyBuffer)}).value_or(Bytes());
        if (envelope.empty()) throw Failure(kEnvelopeMalformed);
        const KeyRecord record = KeyOf(serial);
        const std::shared_ptr<Unlocked> unlocked = RequirePin(record);
        const PKeyPtr pair = OpenWithAny(envelope, record, *unlocked);
        const PairRecord wrapped =
            ToRecord(pair.get(), Role::kEncryption, record.serial, unlocked->master);
        call.Midway(record);
        Change change(record, call.plan().limits);
        change.device().RequireUnlocked(record, *unlocked);
        InstallEncryptionPair(change.store(), record.serial, wrapped);
        change.Commit();
    });
}

// argument2: CertType; argument3: KeyType; 0 is either.
int GetCertInfo(const char* serial, std::uint32_t argument2, std::uint32_t argument3,
                char* certificate, std::uint32_t* length) {
    return Enter({"GetCertInfo", serial, length}, [=](Call& call) {
        const PairRecord pair = Certified(call, serial, argument2, argument3);
        call.WriteText(ToBase64(pair.certificate), certificate, length);
    });
}

int GM_GetCertDN(const char* serial, std::uint32_t argument2, std::uint32_t argument3, char* name) {
    return Enter({"GM_GetCertDN", serial}, [=](Call& call) {
        const PairRecord pair = Certified(call, serial, argument2, argument3);
        const std::string text = SubjectText(StoredCertificate(pair.certificate).get());
        if (text.size() >= kNameBuffer) throw Failure(kTooLong);
        call.Copy(text, name, kNameBuffer);
    });
}

// argument2: CertType; 0 is either.
int GetCertInfo_UOS(const char* serial, std::uint32_t argument2, void* information,
                    std::uint32_t* length) {
    return Enter({"GetCertInfo_UOS", serial, length}, [=](Call& call) {
        const PairRecord pair = Certified(call, serial, argument2, 0);
        const X509Ptr certificate = StoredCertificate(pair.certificate);
        call.WriteText(InformationBlock(certificate.get(), pair.role, pair.algorithm),
                       static_cast<char*>(information), length);
    });
}

// argument2: CertType; argument3: KeyType; 0 is either.
int DelCertAndTempKey(const char* serial, std::uint32_t argument2, std::uint32_t argument3) {
    return Enter({"DelCertAndTempKey", serial}, [=](Call& call) {
        const Selection selection(argument2, argument3);
        const KeyRecord key = KeyOf(serial);
        RequirePin(key);
        call.Midway(key);
        Change change(key);
        if (!DeletePairs(change.store(), key.serial, selection)) throw Failure(kNoCertificate);
        change.Commit();
    });
}

// Entry points that make key pairs and their certificate requests.
#include <memory>

#include "softkey/crypto/key_pair.h"
#include "softkey/crypto/request.h"
#include "softkey/result.h"
#include "softkey/token/call.h"
#include "softkey/token/entry_points.h"
#include "softkey/token/pairs.h"
#include "softkey/token/pin.h"

namespace softkey {
namespace {

struct Wanted {
    std::int64_t certType;
    std::int64_t keyType;
    std::int64_t hashType;
    bool paired;
};

void Check(const Wanted& wanted) {
    if (wanted.certType == 0 || wanted.keyType == 0) throw Failure(kBadArgument);
    const Selection ranges(wanted.certType, wanted.keyType);
    DigestName(static_cast<Algorithm>(wanted.keyType), wanted.hashType);
    const bool rsa = wanted.keyType == static_cast<std::int64_t>(Algorithm::kRsa);
    if (rsa && (wanted.certType == 3 || wanted.paired)) {
        throw Failure(kNotSupported);
    }
}

std::vector<Role> RolesOf(const Wanted& wanted) {
    // A companion is always the other kind, so that a record for encryption makes both as well.
    if (wanted.paired) return {Role::kSigning, Role::kTemporary};
    return {wanted.certType == 1 ? Role::kSigning : Role::kTemporary};
}

std::string MakeRequests(Call& call, const char* serial, const Wanted& wanted) {
    Check(wanted);
    const KeyRecord key = KeyOf(serial);
    const std::shared_ptr<Unlocked> unlocked = RequirePin(key);
    std::string text;
    std::vector<PairRecord> records;
    for (const Role role : RolesOf(wanted)) {
        const PKeyPtr pair = GeneratePair(static_cast<Algorithm>(wanted.keyType));
        if (!text.empty()) text += ';';
        text += MakeRequest(pair.get(), wanted.hashType, key.serial);
        records.push_back(ToRecord(pair.get(), role, key.serial, unlocked->master));
    }
    call.Midway(key);
    Change change(key, call.plan().limits);
    change.device().RequireUnlocked(key, *unlocked);
    for (const PairRecord& record : records) AddWaitingPair(change.store(), key.serial, record);
    change.Commit();
    return text;
}

}  // namespace
}  // namespace softkey

using namespace softkey;

// The last two arguments have no meaning here.
int GMCreatePKCS10(char* serial, std::uint32_t certType, std::uint32_t keyType,
                   std::uint32_t hashType, char** request, void*, std::uint32_t) {
    return Enter({"GMCreatePKCS10", serial}, [=](Call& call) {
        if (request == nullptr) throw Failure(kBadArgument);
        call.HandOut(MakeRequests(call, serial, {certType, keyType, hashType, false}), request);
    });
}

// A paired record answers two requests, for signing and for encryption, joined by ";".
int GMCreatePKCS10Ex(char* serial, KestaRequestRecord* record, char** request,
                     std::uint32_t argument4, void*, std::uint32_t) {
    return Enter({"GMCreatePKCS10Ex", serial}, [=](Call& call) {
        if (request == nullptr || record == nullptr || argument4 != 1) {
            throw Failure(kBadArgument);
        }
        if (record->paired > 1) throw Failure(kBadArgument);
        const Wanted wanted{record->certType, record->keyType, record->hashType,
                            record->paired == 1};
        call.HandOut(MakeRequests(call, serial, wanted), request);
    });
}

// Entry points that use private keys: signatures and decryption.
#include <cstring>
#include <optional>

#include "softkey/crypto/base64.h"
#include "softkey/crypto/decryption.h"
#include "softkey/crypto/request.h"
#include "softkey/crypto/signature.h"
#include "softkey/result.h"
#include "softkey/token/button.h"
#include "softkey/token/call.h"
#include "softkey/token/entry_points.h"
#include "softkey/token/pairs.h"
#include "softkey/token/pin.h"

namespace softkey {
namespace {

constexpr std::string_view kSeparator = "||";

// A private key that is ready for use.
struct Ready {
    KeyRecord key;
    PairRecord record;
    SharedPair opened;
};

// Finds the pair before it asks for the PIN: nobody should enter one for nothing.
Ready Prepare(const char* serial, const Selection& selection) {
    Ready ready;
    std::shared_ptr<Unlocked> unlocked;
    {
        LockedDevice device;
        ready.key = device.Resolve(serial);
        ready.record = PairToUse(device.Pairs(ready.key), selection);
        unlocked = device.UnlockedOf(ready.key);
        if (unlocked) {
            ready.opened = device.OpenPair(ready.key, ready.record, *unlocked);
            return ready;
        }
    }
    unlocked = AskAndVerifyPin(ready.key);
    LockedDevice device;
    ready.opened = device.OpenPair(device.RequireStillThere(ready.key), ready.record, *unlocked);
    return ready;
}

// The work counts only if the key is still there.
void Finish(Call& call, const Ready& ready) {
    call.Midway(ready.key);
    LockedDevice device;
    device.Refresh();
    device.RequireStillThere(ready.key);
}

// The Base64 of the longest signature of the pair, so that a size that was told once is enough
// for every signature: those of SM2 differ by a few bytes.
std::size_t TextSize(const Ready& ready) {
    const auto size = static_cast<std::size_t>(EVP_PKEY_get_size(ready.opened->pair.get()));
    return (size + 2) / 3 * 4;
}

// The empty list has one item, the empty text, where the caller says that it has one.
std::vector<std::string_view> Split(const char* list, std::int32_t count) {
    std::vector<std::string_view> items;
    if (list == nullptr || (*list == '\0' && count != 1)) return items;
    std::string_view rest = list;
    for (std::size_t at = rest.find(kSeparator); at != std::string_view::npos;
         at = rest.find(kSeparator)) {
        items.push_back(rest.substr(0, at));
        rest.remove_prefix(at + kSeparator.size());
    }
    items.push_back(rest);
    return items;
}

// The arguments of Batch_Sign by their meaning.
struct Batch {
    bool critical;
    const char* serial;
    std::int32_t keyType;
    std::int32_t hashType;
    const char* data;
    const char* warning;
    const char* list;
    std::int32_t count;

    std::vector<std::string_view> Texts() const {
        std::vector<std::string_view> texts = Split(list, count);
        if (count != 0 && texts.size() != static_cast<std::size_t>(count)) {
            throw Failure(kBadArgument);
        }
        if (data != nullptr) texts.insert(texts.begin(), data);
        if (texts.empty()) throw Failure(kBadArgument);
        return texts;
    }
};

void SignBatch(Call& call, const Batch& batch, char* signatures, std::uint32_t* length) {
    if (batch.critical && (batch.data == nullptr || batch.warning == nullptr)) {
        throw Failure(kBadArgument);
    }
    const std::vector<std::string_view> texts = batch.Texts();
    const Ready ready = Prepare(batch.serial, Selection(1, batch.keyType));
    DigestName(ready.record.algorithm, batch.hashType);
    const std::size_t needed =
        texts.size() * TextSize(ready) + (texts.size() - 1) * kSeparator.size() + 1;
    if (IsProbe(needed, signatures, length)) return;
    if (batch.critical) ConfirmAtButton(ready.key, batch.warning);
    std::string joined;
    for (const std::string_view text : texts) {
        if (!joined.empty()) joined += kSeparator;
        joined += ToBase64(ready.opened->signer.OverText(batch.hashType, text));
    }
    Finish(call, ready);
    call.WriteText(joined, signatures, length);
}

Selection DecryptionSelection(std::int32_t certType, std::uint32_t keyType) {
    const Selection selection(certType == 0 ? 3 : certType, keyType);
    if (selection.certType == 1 && selection.keyType != 1) {
        throw Failure(kNotSupported);
    }
    return selection;
}

}  // namespace
}  // namespace softkey

using namespace softkey;

int SetWarningMsg(const char* serial, const char* warning) {
    return Enter({"SetWarningMsg", serial}, [=](Call& call) {
        if (warning == nullptr) throw Failure(kBadArgument);
        SetWarning(call.LookAt(serial), warning);
    });
}

// option1: KeyType, 0 is either; option2: HashType.
int GMUsbKeyCriticalSign(const char* serial, std::int64_t option1, std::int64_t option2,
                         const char* data, char* signature, std::uint32_t* length) {
    return Enter({"GMUsbKeyCriticalSign", serial, length, true}, [=](Call& call) {
        if (data == nullptr) throw Failure(kBadArgument);
        const Ready ready = Prepare(serial, Selection(1, option1));
        DigestName(ready.record.algorithm, option2);
        if (IsProbe(TextSize(ready) + 1, signature, length)) return;
        ConfirmWarningAtButton(ready.key);
        const Bytes made = ready.opened->signer.OverText(option2, data);
        Finish(call, ready);
        call.WriteText(ToBase64(made), signature, length);
    });
}

// option1: KeyType, 0 is either; option2: HashType; option3: how the hash is written, 0 is either.
int GMUsbKeyCommonSign(char* serial, std::int32_t option1, std::int32_t option2, char* hash,
                       std::int32_t option3, char* signature, std::uint32_t* length) {
    return Enter({"GMUsbKeyCommonSign", serial, length}, [=](Call& call) {
        if (hash == nullptr) throw Failure(kBadArgument);
        if (option3 < 0 || option3 > 2) throw Failure(kBadArgument);
        const Ready ready = Prepare(serial, Selection(1, option1));
        const Bytes digest =
            ParseDigest(hash, static_cast<DigestText>(option3), ready.record.algorithm, option2);
        if (IsProbe(TextSize(ready) + 1, signature, length)) return;
        const Bytes made = ready.opened->signer.OverDigest(option2, digest);
        Finish(call, ready);
        call.WriteText(ToBase64(made), signature, length);
    });
}

// option1: CertType of the pair, 0 is the encryption pair; option2: KeyType, 0 is either.
int GMUSBKeyAsymDec2(char* serial, std::int32_t option1, std::uint32_t option2, char* cipher,
                     char* plain, std::uint32_t* length) {
    return Enter({"GMUSBKeyAsymDec2", serial, length}, [=](Call& call) {
        if (cipher == nullptr) throw Failure(kBadArgument);
        const Selection selection = DecryptionSelection(option1, option2);
        const Bytes bytes = FromBase64(cipher).value_or(Bytes());
        if (bytes.empty()) throw Failure(kCipherMalformed);
        const Ready ready = Prepare(serial, selection);
        const std::optional<SecretBytes> text = Decrypt(ready.opened->pair.get(), bytes);
        if (!text) throw Failure(kCipherMalformed);
        Finish(call, ready);
        call.WriteText({reinterpret_cast<const char*>(text->data()), text->size()}, plain, length);
    });
}

// flags: bit 0 asks for one confirmation at the key. argument2: serial number. argument3: KeyType,
// 0 is either. argument4: HashType. data: signed first. argument6: the warning shown. argument7, 8
// and 9 have no meaning here. dataList: texts joined by "||", signed in order. argument11: how many
// texts the list has, 0 does not say. signatures: joined by "||".
int Batch_Sign(std::uint32_t flags, void* argument2, std::int32_t argument3, std::int32_t argument4,
               const char* data, void* argument6, void*, std::int32_t, std::int32_t,
               const char* dataList, std::int32_t argument11, char* signatures,
               std::uint32_t* length) {
    const char* const serial = static_cast<const char*>(argument2);
    const Batch batch{(flags & 1U) != 0, serial,    argument3,
                      argument4,         data,      static_cast<const char*>(argument6),
                      dataList,          argument11};
    return Enter({"Batch_Sign", serial, length},
                 [&](Call& call) { SignBatch(call, batch, signatures, length); });
}

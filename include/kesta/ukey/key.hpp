// One key, bound to its serial number: what takes a serial number elsewhere is a member here, with
// enumerations in place of numbers, and lists in place of joined texts.
#ifndef KESTA_UKEY_KEY_HPP
#define KESTA_UKEY_KEY_HPP

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "kesta/ukey/operations.hpp"
#include "kesta/ukey/texts.hpp"

namespace kesta {

// Texts that are signed in one call. With a warning the key shows it once, and one press of its
// button stands for all texts; without one the key does not ask.
struct BatchSignature {
    std::vector<std::string> texts{};
    std::string warning{};
    KeyType keyType = KeyType::kSm2;
    HashType hashType = HashType::kUsual;
    unsigned moreFlags = 0;  // a maker's own, beside the bit for the warning
};

// How often a wrong PIN may still be entered.
struct Tries {
    unsigned left = 0;
    unsigned most = 0;
    bool locked = false;
};

// The numbers of a PIN record; nothing where its layout is not known, or where what stands there
// are no such numbers.
inline std::optional<Tries> TriesOf(const Bytes& record, const std::optional<PinRecord>& layout) {
    if (!layout || record.size() != layout->length) return std::nullopt;
    for (const std::size_t at : {layout->triesLeft, layout->triesMost, layout->locked}) {
        if (at >= record.size()) return std::nullopt;
    }
    const Tries tries{record[layout->triesLeft], record[layout->triesMost],
                      record[layout->locked] == 1};
    const bool likely = record[layout->locked] <= 1 && tries.most > 0 && tries.left <= tries.most &&
                        tries.locked == (tries.left == 0);
    if (!likely) return std::nullopt;
    return tries;
}

template <class Form>
class KeyOperations {
public:
    template <class T>
    using Answer = typename Form::template Answer<T>;
    using Text = std::string;
    using Texts = std::vector<std::string>;

    KeyOperations(const Functions& functions, Text serial, const Patience& patience = {})
        : library_(functions, patience), quiet_(functions, patience), serial_(std::move(serial)) {}

    const Text& serial() const { return serial_; }

    // ---- PIN and initialisation

    Answer<void> ChangePin() const { return library_.ChangePin(serial_); }
    Answer<void> InitUKey() const { return library_.InitUKey(serial_); }
    Answer<void> TestInitUKey(void* parameter = nullptr) const {
        return library_.TestInitUKey(serial_, parameter);
    }
    Answer<void> VerifyPIN() const { return library_.VerifyPIN(serial_); }
    Answer<void> TestVerifyAndCachePin(void* parameter = nullptr) const {
        return library_.TestVerifyAndCachePin(serial_, parameter);
    }
    Answer<Bytes> GetPinInfo() const { return library_.GetPinInfo(serial_); }
    // Nothing where the record of this maker is not known: CodeTable::pinRecord.
    Answer<std::optional<Tries>> PinTries() const {
        const Result<Bytes> record = quiet_.GetPinInfo(serial_);
        if (!record.ok()) return Form::template Fail<std::optional<Tries>>(record.failure());
        return Form::Give(
            Result<std::optional<Tries>>(TriesOf(record.value(), CodeTable::InUse()->pinRecord)));
    }
    Answer<void> SetCachePinFlag(bool caching) const {
        return library_.SetCachePinFlag(serial_, caching ? 1 : 0);
    }

    // ---- Certificates

    Answer<Text> GetCert(CertType type, KeyType key = KeyType::kSm2) const {
        return library_.GetCert(serial_, Unsigned(type), Unsigned(key));
    }
    Answer<Text> GetCertDN(CertType type, KeyType key = KeyType::kSm2) const {
        return library_.GetCertDN(serial_, Unsigned(type), Unsigned(key));
    }
    Answer<Bytes> GetCertInfo(CertType type) const {
        return library_.GetCertInfo(serial_, Unsigned(type));
    }
    Answer<void> DelCertAndTempKey(CertType type, KeyType key = KeyType::kSm2) const {
        return library_.DelCertAndTempKey(serial_, Unsigned(type), Unsigned(key));
    }

    // ---- Signing and decryption

    Answer<Text> Sign(KeyType key, HashType hash, const Text& data, const Text& warning) const {
        return library_.Sign(serial_, NumberOf(key), NumberOf(hash), data, warning);
    }
    Answer<Text> SignHash(KeyType key, HashType hash, const Text& digest,
                          HashForm form = HashForm::kAny) const {
        return library_.SignHash(serial_, NumberOf(key), NumberOf(hash), digest, NumberOf(form));
    }
    Answer<Texts> Batch_Sign(const BatchSignature& batch) const {
        if (batch.texts.empty()) {
            return Form::template Fail<Texts>(
                Caller::Refusal("Batch_Sign", Say(Sentence::kEmptyBatch)));
        }
        // The call wants the first text beside the list.
        std::string serial = serial_;
        std::string warning = batch.warning;
        BatchArguments arguments;
        arguments.flags = batch.moreFlags | (warning.empty() ? 0U : 1U);
        arguments.parameter2 = serial.data();
        arguments.parameter3 = NumberOf(batch.keyType);
        arguments.parameter4 = NumberOf(batch.hashType);
        arguments.data = batch.texts.front();
        arguments.parameter6 = warning.data();
        arguments.list.assign(batch.texts.begin() + 1, batch.texts.end());
        arguments.parameter11 = static_cast<int>(arguments.list.size());
        return library_.Batch_Sign(arguments);
    }
    Answer<Text> AsymDec(const Text& cipher, CertType type = CertType::kEncryption,
                         KeyType key = KeyType::kSm2) const {
        return library_.AsymDec(serial_, NumberOf(type), Unsigned(key), cipher);
    }

    // ---- Label and locale

    Answer<Text> GetLabel() const { return library_.GetLabel(serial_); }
    Answer<void> SetLabel(const Text& label) const { return library_.SetLabel(serial_, label); }
    Answer<void> SetCharset(const Text& name) const { return library_.SetCharset(name, serial_); }
    Answer<void> SetLanguage(const Text& name) const { return library_.SetLanguage(name, serial_); }

    // ---- Enrolment and installation

    Answer<Texts> GenerateCertRequest(const std::vector<RequestGroup>& groups) const {
        return Described("GenerateCertRequest", groups, [this](const Text& information) {
            return library_.GenerateCertRequest(serial_, information);
        });
    }
    Answer<Texts> Batch_InitAndGenerateCertRequest(bool initialise,
                                                   const std::vector<RequestGroup>& groups) const {
        return Described("Batch_InitAndGenerateCertRequest", groups, [&](const Text& information) {
            return library_.Batch_InitAndGenerateCertRequest(serial_, initialise, information);
        });
    }
    Answer<void> ImportX509Cert(const Text& certificate) const {
        return library_.ImportX509Cert(serial_, certificate);
    }
    Answer<void> ImportEncX509Cert(const Text& certificate, const Text& keyText) const {
        return library_.ImportEncX509Cert(serial_, certificate, keyText);
    }
    Answer<void> Batch_ImportX509Cert(const Text& bundle) const {
        return library_.Batch_ImportX509Cert(serial_, bundle);
    }

private:
    template <class Selector>
    static unsigned Unsigned(Selector selector) {
        return static_cast<unsigned>(NumberOf(selector));
    }

    // A group that cannot be written is this operation's failure, in either form.
    template <class Make>
    Answer<Texts> Described(const char* operation, const std::vector<RequestGroup>& groups,
                            const Make& make) const {
        Text information;
        try {
            information = RequestInfo(groups);
        } catch (const Error& error) {
            return Form::template Fail<Texts>(Caller::Refusal(operation, error.message()));
        }
        return make(information);
    }

    Operations<Form> library_;
    Operations<Returning> quiet_;
    Text serial_;
};

class Key : public KeyOperations<Throwing> {
public:
    using Quiet = KeyOperations<Returning>;

    Key(const Functions& functions, const std::string& serial, const Patience& patience = {})
        : KeyOperations<Throwing>(functions, serial, patience),
          quiet_(functions, serial, patience) {}

    const Quiet& Try() const { return quiet_; }

private:
    Quiet quiet_;
};

}  // namespace kesta

#endif

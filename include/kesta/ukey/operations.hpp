// Every function of the library as a C++ operation, under its own name. The same definitions serve
// two forms: Throwing answers the value and throws Error, Returning answers a Result.
#ifndef KESTA_UKEY_OPERATIONS_HPP
#define KESTA_UKEY_OPERATIONS_HPP

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "kesta/places.h"
#include "kesta/ukey/caller.hpp"
#include "kesta/ukey/texts.hpp"

namespace kesta {

struct Throwing {
    template <class T>
    using Answer = T;
    template <class T>
    static T Give(Result<T> result) {
        return std::move(result).value();
    }
    static void Give(Result<void> result) { static_cast<void>(std::move(result).value()); }
    template <class T>
    [[noreturn]] static T Fail(Failure failure) {
        throw Error(std::move(failure));
    }
};

struct Returning {
    template <class T>
    using Answer = Result<T>;
    template <class T>
    static Result<T> Give(Result<T> result) {
        return result;
    }
    template <class T>
    static Result<T> Fail(Failure failure) {
        return failure;
    }
};

// The thirteen arguments of Batch_Sign without its output. The untyped ones are handed on as they
// are; their meaning is the token library's. BatchSignature in key.hpp is easier to use.
struct BatchArguments {
    unsigned flags = 0;
    void* parameter2 = nullptr;
    int parameter3 = 0;
    int parameter4 = 0;
    std::optional<std::string> data;
    void* parameter6 = nullptr;
    void* parameter7 = nullptr;
    int parameter8 = 0;
    int parameter9 = 0;
    std::vector<std::string> list;  // empty: no list is handed on
    int parameter11 = 0;
};

template <class Form>
class Operations {
public:
    template <class T>
    using Answer = typename Form::template Answer<T>;
    using Text = std::string;

    explicit Operations(const Functions& functions, const Patience& patience = {})
        : caller_(functions, patience) {}

    // ---- Frame and errors

    Answer<void> Initialize() const { return Run("Initialize", F().Initialize); }
    void Finalize() const { F().Finalize(); }
    // The code of the latest operation of the whole process.
    int GetLastErrCode() const {
        unsigned code = 0;
        F().GetLastErrCode(&code);
        return static_cast<int>(code);
    }
    // The token library's text for a code; Message falls back on a text of the face's own.
    Answer<Text> GetErrorMsg(int code) const {
        return Form::Give(caller_.BoundedText<int>("GetErrorMsg", F().GetErrorMsg, 4096, code));
    }
    Text Message(int code) const { return caller_.Message(code); }
    const Patience& patience() const { return caller_.patience(); }

    // ---- Identity

    Answer<Text> GetDriverVersion() const {
        return Beside<unsigned>("GetDriverVersion", F().GetDriverVersion, 64);
    }
    Answer<Text> GetDllVersion() const {
        return Beside<unsigned>("GetDllVersion", F().GetDllVersion, 64);
    }
    Answer<Text> GetVidAndPid() const {
        return Beside<unsigned>("GetVidAndPid", F().GetVidAndPid, 64);
    }
    Answer<Text> GetPrintNumber() const {
        return Bounded<unsigned>("GetPrintNumber", F().GetPrintNumber, limits::kSerialBuffer);
    }
    // language: 0 or 1 Chinese, 2 English.
    Answer<Text> GetVendorInfo(int language) const {
        return Beside<unsigned>("GetVendorInfo", F().GetVendorInfo, 256, language);
    }

    // ---- PIN and initialisation

    Answer<void> ChangePin(const Text& serial) const {
        return Run("ChangePin", F().ChangePin, serial);
    }
    // Initialises the library first where the bare function would refuse. The key loses what it
    // holds.
    Answer<void> InitUKey(const Text& serial) const {
        return RunInitialised("InitUKey", F().InitUKey, serial);
    }
    Answer<void> TestInitUKey(const Text& serial, void* parameter = nullptr) const {
        return Run("TestInitUKey", F().TestInitUKey, serial, parameter);
    }
    Answer<void> VerifyPIN(const Text& serial) const {
        return Run("VerifyPIN", F().VerifyPIN, serial);
    }
    Answer<void> TestVerifyAndCachePin(const Text& serial, void* parameter = nullptr) const {
        return Run("TestVerifyAndCachePin", F().TestVerifyAndCachePin, serial, parameter);
    }
    Answer<Bytes> GetPinInfo(const Text& serial) const {
        return Form::Give(caller_.Record("GetPinInfo", F().GetPinInfo, 8, serial));
    }
    // Initialises the library first, as InitUKey does.
    Answer<void> SetCachePinFlag(const Text& serial, int flag) const {
        return RunInitialised("SetCachePinFlag", F().SetCachePinFlag, serial, flag);
    }
    Answer<void> RemovePinCache() const { return Run("RemovePinCache", F().RemovePinCache); }

    // ---- Certificates. The numbers that select one are the token library's.

    Answer<Text> GetCert(const Text& serial, unsigned first, unsigned second) const {
        return Bounded<unsigned>("GetCert", F().GetCert, limits::kCertificateBuffer, serial, first,
                                 second);
    }
    Answer<Text> GetCertDN(const Text& serial, unsigned first, unsigned second) const {
        return Bounded<int>("GetCertDN", F().GetCertDN, limits::kNameBuffer, serial, first, second);
    }
    Answer<Bytes> GetCertInfo(const Text& serial, unsigned selector) const {
        return Form::Give(caller_.Record("GetCertInfo", F().GetCertInfo,
                                         limits::kCertificateInformation, serial, selector));
    }
    Answer<void> DelCertAndTempKey(const Text& serial, unsigned first, unsigned second) const {
        return Run("DelCertAndTempKey", F().DelCertAndTempKey, serial, first, second);
    }
    // Obsolete: the three always fail with KESTA_UNSUPPORTED.
    Answer<void> RegisterCert() const {
        return Form::Give(caller_.RunBeside("RegisterCert", F().RegisterCert));
    }
    Answer<void> UnregisterCert() const {
        return Form::Give(caller_.RunBeside("UnregisterCert", F().UnregisterCert));
    }
    Answer<void> RepairDriver() const {
        return Form::Give(caller_.RunBeside("RepairDriver", F().RepairDriver));
    }

    // ---- Signing and decryption. The options are the token library's.

    Answer<Text> Sign(const Text& serial, int option1, int option2, const Text& data,
                      const Text& warning) const {
        return Probed("Sign", F().Sign, Room(data), serial, option1, option2, data, warning);
    }
    Answer<Text> SignHash(const Text& serial, int option1, int option2, const Text& hash,
                          int option3) const {
        return Probed("SignHash", F().SignHash, Room(hash), serial, option1, option2, hash,
                      option3);
    }
    Answer<std::vector<Text>> Batch_Sign(const BatchArguments& batch) const {
        return Form::Give(BatchSign(batch));
    }
    // A plain text that holds a NUL byte cannot pass through the library whole: a Failure.
    Answer<Text> AsymDec(const Text& serial, int option1, unsigned option2,
                         const Text& cipher) const {
        unsigned reported = 0;
        auto plain = caller_.ProbedText("AsymDec", F().AsymDec, {Room(cipher), &reported}, serial,
                                        option1, option2, cipher);
        // A token library may or may not count the NUL.
        if (plain.ok() && reported > plain.value().size() + 1) {
            plain = Caller::WrongAnswer(
                "AsymDec", KESTA_UNSUPPORTED,
                Say(Sentence::kPlainCut,
                    {std::to_string(reported), std::to_string(plain.value().size())}));
        }
        return Form::Give(std::move(plain));
    }

    // ---- Labels, data objects, locale

    Answer<Text> GetLabel(const Text& serial) const {
        return Bounded<int>("GetLabel", F().GetLabel, limits::kLabelBuffer, serial);
    }
    Answer<void> SetLabel(const Text& serial, const Text& label) const {
        return Run("SetLabel", F().SetLabel, serial, label);
    }
    // name: 10 to 16 characters; value: at most 300.
    Answer<void> SetData(const Text& name, unsigned parameter, const Text& value) const {
        return Run("SetData", F().SetData, name, parameter, value);
    }
    Answer<Text> GetData(const Text& name, unsigned parameter) const {
        return Bounded<int>("GetData", F().GetData, limits::kDataBuffer, name, parameter);
    }
    // The token library receives the two in reverse order.
    Answer<void> SetCharset(const Text& argument1, const Text& argument2) const {
        return Run("SetCharset", F().SetCharset, argument1, argument2);
    }
    Answer<void> SetLanguage(const Text& argument1, const Text& argument2) const {
        return Run("SetLanguage", F().SetLanguage, argument1, argument2);
    }

    // ---- Enrolment. requestInfo: see RequestInfo in texts.hpp.

    Answer<std::vector<Text>> GenerateCertRequest(const Text& serial,
                                                  const Text& requestInfo) const {
        return Requests("GenerateCertRequest", F().GenerateCertRequest, requestInfo, serial,
                        requestInfo);
    }
    Answer<std::vector<Text>> Batch_InitAndGenerateCertRequest(const Text& serial,
                                                               bool initialiseKey,
                                                               const Text& requestInfo) const {
        return Requests("Batch_InitAndGenerateCertRequest", F().Batch_InitAndGenerateCertRequest,
                        requestInfo, serial, initialiseKey ? 1 : 0, requestInfo);
    }

    // ---- Installation of certificates

    Answer<void> ImportX509Cert(const Text& serial, const Text& certificate) const {
        return Run("ImportX509Cert", F().ImportX509Cert, serial, certificate);
    }
    Answer<void> ImportEncX509Cert(const Text& serial, const Text& certificate,
                                   const Text& keyText) const {
        constexpr auto kName = "ImportEncX509Cert";
        if (auto reason = checks::KeyText(keyText)) return Refuse<void>(kName, *reason);
        return Run(kName, F().ImportEncX509Cert, serial, certificate, keyText);
    }
    // bundle: see Bundle in texts.hpp.
    Answer<void> Batch_ImportX509Cert(const Text& serial, const Text& bundle) const {
        constexpr auto kName = "Batch_ImportX509Cert";
        if (auto reason = checks::Bundle(bundle)) return Refuse<void>(kName, *reason);
        return Run(kName, F().Batch_ImportX509Cert, serial, bundle);
    }

    // ---- Installation check

    Answer<void> CheckDriverIntegrity(int mode = 1) const {
        return Form::Give(
            caller_.RunBeside("CheckDriverIntegrity", F().CheckDriverIntegrity, mode));
    }

protected:
    const Caller& caller() const { return caller_; }
    const Functions& F() const { return caller_.functions(); }

private:
    // What a probe answers for this input.
    static std::size_t Room(const Text& input) { return 2 * (input.size() + 4096); }

    template <class Function, class... Arguments>
    Answer<void> Run(const char* operation, Function* function,
                     const Arguments&... arguments) const {
        return Form::Give(caller_.Run(operation, function, arguments...));
    }

    template <class Function, class... Arguments>
    Answer<void> RunInitialised(const char* operation, Function* function,
                                const Arguments&... arguments) const {
        auto bound = caller_.EnsureInitialised();
        if (!bound.ok()) return Form::Give(std::move(bound));
        return Run(operation, function, arguments...);
    }

    template <class Length, class Function, class... Arguments>
    Answer<Text> Bounded(const char* operation, Function* function, std::size_t bound,
                         const Arguments&... arguments) const {
        return Form::Give(caller_.BoundedText<Length>(operation, function, bound, arguments...));
    }

    template <class Length, class Function, class... Arguments>
    Answer<Text> Beside(const char* operation, Function* function, std::size_t bound,
                        const Arguments&... arguments) const {
        return Form::Give(caller_.TextBeside<Length>(operation, function, bound, arguments...));
    }

    template <class Function, class... Arguments>
    Answer<Text> Probed(const char* operation, Function* function, std::size_t most,
                        const Arguments&... arguments) const {
        return Form::Give(caller_.ProbedText(operation, function, {most}, arguments...));
    }

    template <class Function, class... Arguments>
    Answer<std::vector<Text>> Requests(const char* operation, Function* function,
                                       const Text& requestInfo,
                                       const Arguments&... arguments) const {
        if (auto reason = checks::RequestInfo(requestInfo)) {
            return Refuse<std::vector<Text>>(operation, *reason);
        }
        auto joined = caller_.RequestText(operation, function, arguments...);
        if (!joined.ok()) return Form::template Fail<std::vector<Text>>(joined.failure());
        return Form::Give(Result<std::vector<Text>>(SplitList(joined.value())));
    }

    Result<std::vector<Text>> BatchSign(const BatchArguments& batch) const {
        constexpr auto kName = "Batch_Sign";
        for (const Text& item : batch.list) {
            if (auto reason = checks::ListItem(item)) return Caller::Refusal(kName, *reason);
        }
        const Text list = JoinList(batch.list);
        for (const Text& text : {list, batch.data.value_or(Text())}) {
            if (auto reason = checks::Text(text)) return Caller::Refusal(kName, *reason);
        }
        // The library's own answer leaves a list of one text out.
        const std::uint64_t data = batch.data ? batch.data->size() + 2048 : 0;
        const std::uint64_t room = 2 * (data + batch.list.size() * (list.size() + 2048));
        if (room > 0x7fffffff) return Caller::Refusal(kName, Say(Sentence::kListTooLong));
        auto joined = caller_.ProbedText(
            kName, F().Batch_Sign, {room, nullptr, room}, batch.flags, batch.parameter2,
            batch.parameter3, batch.parameter4, batch.data ? batch.data->c_str() : nullptr,
            batch.parameter6, batch.parameter7, batch.parameter8, batch.parameter9,
            batch.list.empty() ? nullptr : list.c_str(), batch.parameter11);
        if (!joined.ok()) return joined.failure();
        return SplitList(joined.value());
    }

    template <class T>
    Answer<T> Refuse(const char* operation, const std::string& reason) const {
        return Form::template Fail<T>(Caller::Refusal(operation, reason));
    }

    Caller caller_;
};

}  // namespace kesta

#endif

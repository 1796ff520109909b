#include "key_scenarios.h"

#include <dlfcn.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <sstream>

#include "softkey/crypto/openssl_context.h"
#include "softkey/misbehaviour/misbehaviour.h"
#include "softkey/store/damage.h"
#include "softkey/store/keys.h"
#include "softkey/store/objects.h"
#include "softkey/store/pairs.h"
#include "softkey/store/questions.h"

using namespace softkey;
namespace fs = std::filesystem;

namespace {

constexpr const char* kObject = "0123456789";
const std::string kHash(64, 'a');

EventLibrary LoadEvents() {
    void* const handle = dlopen(EVENT_LIBRARY, RTLD_NOW);
    if (handle == nullptr) std::abort();
    EventLibrary library;
#define FAULTS_BIND_EVENT(result, name, arguments) \
    library.name = reinterpret_cast<kesta::event::name*>(dlsym(handle, #name));
    KESTA_EVENT_ENTRY_POINTS(FAULTS_BIND_EVENT)
#undef FAULTS_BIND_EVENT
    return library;
}

void CopyFolder(const std::string& from, const std::string& to) {
    fs::remove_all(to);
    fs::create_directory(to);
    fs::permissions(to, fs::perms::owner_all);
    fs::copy(from, to, fs::copy_options::recursive);
}

}  // namespace

KeyBench::KeyBench() : events_(LoadEvents()) {}

void KeyBench::MakeTemplate() {
    CreateKey();
    Enrol(1, 2, 3);
    const std::string request = Request(3, 2, 3).text;
    ImportKey(Escrow(request));
    Succeed(
        "openssl req -new -key enc.key -subj /CN=enc -sm3 -sigopt distid:1234567812345678 -out"
        " enc.csr && openssl pkey -in enc.key -pubout -out enc.pub && printf secret >text &&"
        " openssl pkeyutl -encrypt -pubin -inkey enc.pub -in text | openssl base64 -A >cipher");
    WriteCertificate(Succeed(
        "openssl x509 -req -in enc.csr -CA ca.pem -CAkey ca.key -CAcreateserial -sm3 -sigopt"
        " distid:1234567812345678 -vfyopt distid:1234567812345678 -days 9 -outform DER"
        " 2>enc.log | openssl base64 -A"));
    Request(1, 1, 2);  // an RSA pair
    const std::string pair = PairedRequest().text;
    Write("certificate", Issue(pair.substr(0, pair.find(';'))));
    Succeed(
        "openssl crl2pkcs7 -nocrl -certfile issue.pem -certfile ca.pem -outform DER | openssl "
        "base64"
        " -A >chain");
    Write("envelope", Escrow(pair.substr(pair.find(';') + 1)));
    token.SetData(kObject, 0, "value");
    SetPin("000000");
    token.VerifyPIN(kSerial);
    token.VerifyPIN(kSerial);
    CopyFolder(Home(), Path("template"));
    fs::create_directory(Path("old"));
    for (const char* const name : {"softkey.db", "softkey.db-wal"}) {
        fs::copy(std::string(FIRST_RELEASE_STATE) + "/" + name, Path("old"));
    }
}

void KeyBench::ReadTexts() {
    for (const char* const name : {"certificate", "chain", "envelope", "cipher"}) {
        texts_[name] = Read(name);
    }
}

void KeyBench::PutTemplateInPlace() const {
    CopyFolder(Path("template"), Home());
}

std::string KeyBench::State() const {
    std::ostringstream text;
    const auto store = OpenStore();
    for (const KeyRecord& key : KeyTable(*store).All()) {
        text << key.serial << ' ' << key.label << ' ' << key.slot << ' ' << key.inserted << ' '
             << key.insertions << ' ' << key.pinVersion << '\n';
        for (const PairRecord& pair : PairTable(*store).Of(key.serial)) {
            text << pair.id << ' ' << static_cast<int>(pair.role) << ' '
                 << static_cast<int>(pair.algorithm) << ' ' << pair.certificate.size() << '\n';
        }
        for (const DataObject& object : ObjectTable(*store).Of(key.serial)) {
            text << object.name << ' ' << object.number << ' ' << object.value << '\n';
        }
    }
    return text.str();
}

std::string KeyBench::Damage() const {
    // The call may have cost OpenSSL's own context a method; who looks for damage needs them all.
    SuspectOpenssl(kNoMemory);
    const WholeOpenssl openssl;
    std::string found;
    for (const std::string& line : FindDamage(Home())) found += " " + line;
    for (const auto& file : fs::directory_iterator(Home())) {
        const std::string name = file.path().filename();
        if (name != "softkey.db" && name != "softkey.guard" &&
            name.rfind("misbehaviour.", 0) != 0 && name.rfind("screen-", 0) != 0) {
            found += " the file " + name + " is left";
        }
    }
    return found;
}

bool KeyBench::Works() const {
    std::string serial = kSerial;
    std::array<char, 512> label{};
    return token.GetLabel(serial.data(), label.data()) == kOk && token.VerifyPIN(kSerial) == kOk;
}

void KeyBench::AddTokenScenarios(std::vector<Scenario>& all) {
    const auto add = [&all](const char* name, std::function<int()> run) {
        all.push_back({name, run, Scenario::kVerified});
        all.push_back({std::string(name) + ", first", run, Scenario::kNothing});
    };
    add("CheckDeviceEx", [this] {
        std::uint32_t state = 0;
        _S_DEV_CONFIG record{};
        std::array<char, 1024> serial{};
        const int code = token.CheckDeviceEx(&state, &record, 1, serial.data());
        return code == kOk && std::string(serial.data()) != kSerial ? -1 : code;
    });
    add("GetLabel", [this] {
        std::string serial = kSerial;
        std::array<char, 512> label{};
        const int code = token.GetLabel(serial.data(), label.data());
        return code == kOk && std::string(label.data()) != kSerial ? -1 : code;
    });
    add("SetLabel",
        [this] { return token.SetLabel(kSerial, "another label that is long enough"); });
    add("GMCreatePKCS10", [this] { return Request(1, 2, 3).code; });
    add("GMCreatePKCS10Ex", [this] { return PairedRequest().code; });
    add("GMWritePKCS7", [this] { return WriteCertificate(texts_.at("certificate")); });
    add("GMWritePKCS7, a chain", [this] { return WriteCertificate(texts_.at("chain")); });
    add("GMImportPriKey", [this] { return ImportKey(texts_.at("envelope")); });
    add("GetCertInfo", [this] { return Certificate(1, 2).code; });
    add("GM_GetCertDN", [this] {
        std::array<char, 1024> name{};
        return token.GM_GetCertDN(kSerial, 1, 2, name.data());
    });
    add("GetCertInfo_UOS", [this] {
        std::array<char, 4096> text{};
        auto length = static_cast<std::uint32_t>(text.size());
        return token.GetCertInfo_UOS(kSerial, 1, text.data(), &length);
    });
    add("DelCertAndTempKey", [this] { return token.DelCertAndTempKey(kSerial, 1, 2); });
    add("UOS_SetCharset", [this] { return token.UOS_SetCharset("", "GB18030"); });
    add("UOS_SetLanguage", [this] { return token.UOS_SetLanguage("", "en_US"); });
    add("X_ErrorConvert_UOS", [this] { return token.X_ErrorConvert_UOS(0) != nullptr ? 0 : 1; });
    add("SetWarningMsg", [this] { return token.SetWarningMsg(kSerial, "sign?"); });
    add("GetMediaID", [this] {
        std::array<char, 17> id{};
        return token.GetMediaID(kSerial, id.data());
    });
    add("GMUsbKeyCriticalSign", [this] { return CriticalSign("text").code; });
    add("GMUsbKeyCommonSign", [this] { return SignHash(kHash, 2).code; });
    add("GMUsbKeyCommonSign, RSA", [this] { return SignHash(kHash, 1, 2).code; });
    add("GMUSBKeyAsymDec2", [this] { return DecryptText(texts_.at("cipher")).code; });
    add("Batch_Sign", [this] {
        std::string serial = kSerial, warning = "sign?";
        std::array<char, 1024> text{};
        auto length = static_cast<std::uint32_t>(text.size());
        return token.Batch_Sign(1, serial.data(), 2, 0, "one", warning.data(), nullptr, 0, 0,
                                "two||three", 2, text.data(), &length);
    });
    add("SetData", [this] { return token.SetData(kObject, 0, "another"); });
    add("GetData", [this] {
        std::array<char, 260> value{};
        const int code = token.GetData(kObject, 0, value.data());
        return code == kOk && std::string(value.data()) != "value" ? -1 : code;
    });
}

void KeyBench::AddPinScenarios(std::vector<Scenario>& all) {
    const auto add = [&all](const char* name, std::function<int()> run) {
        all.push_back({name, run, Scenario::kNothing});
        return &all.back();
    };
    add("VerifyPIN", [this] { return token.VerifyPIN(kSerial); });
    Scenario* const wrong = add("VerifyPIN, wrong", [this] {
        SetPin("999999");
        const int code = token.VerifyPIN(kSerial);
        SetPin(kPin);
        return code;
    });
    wrong->wrongPin = true;
    add("VerifyAndCachePin", [this] { return token.VerifyAndCachePin(kSerial, nullptr); });
    add("ChangePin", [this] {
        SetNewPin("abcdef");
        const int code = token.ChangePin(kSerial);
        SetPin(code == kOk ? "abcdef" : kPin);
        return code;
    });
    add("CustInitCard", [this] { return token.CustInitCard(kSerial, 1, nullptr, 0); });
    add("CustInitCard, a new PIN", [this] {
        std::string pin = kPin;
        return token.CustInitCard(kSerial, 0, pin.data(), 0);
    });
    add("SetCachePinFlag", [this] { return token.SetCachePinFlag(kSerial, 1); });
    add("GetPinInfo", [this] {
        std::array<std::uint8_t, 8> info{};
        std::uint32_t length = 8;
        return token.GetPinInfo(kSerial, info.data(), &length);
    });
    add("GM_RemoveUserPin", [this] { return token.GM_RemoveUserPin(); });
}

void KeyBench::AddSpecialScenarios(std::vector<Scenario>& all) {
    all.push_back({"GMCreatePKCS10, RSA", [this] { return Request(1, 1, 2).code; }});
    all.back().slow = true;
    all.push_back({"a rule of a plan", [this] { return SignHash(kHash, 2).code; }});
    all.back().prepare = [this] {
        SetMisbehaviour(Home(), R"({"rules": [{"entry": "*", "delay_ms": 1}]})");
    };
    all.push_back({"a state of the first release",
                   [this] {
                       std::array<char, 260> value{};
                       return token.GetData("first-release", 7, value.data());
                   },
                   Scenario::kNothing});
    all.back().prepare = [this] { CopyFolder(Path("old"), Home()); };
    all.push_back({"the button is not pressed", [this] { return CriticalSign("text").code; }});
    all.back().prepare = [this] {
        setenv("KESTA_SOFTKEY_BUTTON_MS", "30", 1);
        QuestionTable(*OpenStore()).Decide(kSerial, Button::kAsk);
    };
    all.push_back({"VerifyPIN by pinentry",
                   [this] {
                       SetPin(nullptr);
                       const int code = token.VerifyPIN(kSerial);
                       SetPin(kPin);
                       return code;
                   },
                   Scenario::kNothing});
    all.back().prepare = [this] {
        Write("pinentry",
              "#!/bin/bash\necho OK\nwhile read -r line; do [[ $line == GETPIN ]] && echo D 123456;"
              " echo OK; done\n");
        chmod(Path("pinentry").c_str(), 0700);
        setenv("PATH", (Path("") + ":/usr/bin:/bin").c_str(), 1);
    };
}

void KeyBench::AddEventScenarios(std::vector<Scenario>& all) {
    const auto add = [&all](const char* name, std::function<int()> run) {
        all.push_back({name, run, Scenario::kNothing});
        return &all.back();
    };
    add("ValtoT_GetSlotList", [this] {
        std::array<std::uint32_t, 8> ids{};
        std::uint32_t count = 8;
        const int code = events_.ValtoT_GetSlotList(1, ids.data(), &count);
        return code == kOk && count != 1 ? -1 : code;
    });
    add("ValtoT_GetDeviceInfo", [this] {
        _S_DEV_CONFIG record{};
        return events_.ValtoT_GetDeviceInfo(1, 0, &record);
    });
    add("ValtoT_ContextInit", [this] {
        std::uint32_t context = 0;
        return events_.ValtoT_ContextInit(&context);
    });
    Scenario* const wait = add("ValtoT_WaitForEvent", [this] {
        std::uint32_t context = 0;
        VALTO_EVENT_INFO event{};
        return events_.ValtoT_WaitForEvent(1, 0, &event, &context);
    });
    wait->prepare = [this] {
        std::uint32_t context = 0;
        events_.ValtoT_ContextInit(&context);
        const auto store = OpenStore();
        Transaction moved(*store);
        KeyTable(*store).SetInserted(kSerial, false);
        KeyTable(*store).SetInserted(kSerial, true);
        moved.Commit();
    };
    add("ValtoT_ContextFinal", [this] {
        std::uint32_t context = 0;
        const int code = events_.ValtoT_ContextInit(&context);
        return code == kOk ? events_.ValtoT_ContextFinal() : code;
    });
}

std::vector<Scenario> KeyBench::Scenarios() {
    std::vector<Scenario> all;
    AddTokenScenarios(all);
    AddPinScenarios(all);
    AddSpecialScenarios(all);
    AddEventScenarios(all);
    return all;
}

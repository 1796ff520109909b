#include "every_export.h"

#include <algorithm>
#include <iterator>

#include "event_test.h"

namespace {

const char sn[] = "A1";
const char name[] = "name567890";
const char group[] = "CertType(1)";
const char pair[] = "CertType(1)KeyType(2)";

// What a token library does to answer.
using Answer = std::function<void(const std::string& result)>;

Answer Message() {
    return
        [](const std::string& result) { TheRecorder().On("X_ErrorConvert_UOS").Message(result); };
}
Answer Text(const char* entry, std::size_t argument) {
    return [=](const std::string& result) { TheRecorder().On(entry).Writes(argument, result); };
}
Answer TextAndLength(const char* entry, std::size_t argument) {
    return [=](const std::string& result) {
        const auto size = static_cast<unsigned>(result.size());
        TheRecorder().On(entry).Writes(argument, result).WritesNumber(argument + 1, size);
    };
}
Answer Request(const char* entry) {
    return [=](const std::string& result) { TheRecorder().On(entry).Request(result); };
}
Answer Arrival() {
    return [](const std::string& result) {
        OfferSlots({});
        Deliver(1, 5);
        TheRecorder().On("ValtoT_GetDeviceInfo").Writes(2, DeviceRecord(result));
    };
}

int LastErrCode() {
    unsigned code = 0;
    GetLastErrCode(&code);
    return 0;
}
int FinalizeAndSucceed() {
    Finalize();
    return 0;
}
int BatchSign(const char* data, const char* list, char* buffer, unsigned* length) {
    return Batch_Sign(0, nullptr, 3, 4, data, nullptr, nullptr, 8, 9, list, 11, buffer, length);
}
int Wait(const Call& c) {
    unsigned kind = 0;
    return WaitForKeyEvent(&kind, c.buffer, c.length);
}

std::vector<Export> Table() {
    // clang-format off
    return {
    Export("Initialize", [](const Call&) { return Initialize(); }).UnboundAnswers(-101),
    Export("Finalize", [](const Call&) { return FinalizeAndSucceed(); }).NeverInitialises(),
    Export("GetLastErrCode", [](const Call&) { return LastErrCode(); }).NeverInitialises(),
    Export("GetErrorMsg", [](const Call& c) { return GetErrorMsg(1, c.buffer, c.SignedLength()); })
        .Asks("X_ErrorConvert_UOS").Answered(Message())
        .Refuses([] { return GetErrorMsg(1, nullptr, nullptr); }),

    Export("GetDriverVersion", [](const Call& c) { return GetDriverVersion(c.buffer, c.length); })
        .GivesCharacters(13),
    Export("GetDllVersion", [](const Call& c) { return GetDllVersion(c.buffer, c.length); })
        .GivesCharacters(13),
    Export("GetVidAndPid", [](const Call& c) { return GetVidAndPid(c.buffer, c.length); })
        .GivesCharacters(9),
    Export("GetPrintNumber", [](const Call& c) { return GetPrintNumber(c.buffer, c.length); })
        .Asks("CheckDeviceEx").Answered(Text("CheckDeviceEx", 3)),
    Export("GetVendorInfo", [](const Call& c) { return GetVendorInfo(2, c.buffer, c.length); })
        .GivesCharacters(20).DoesNotSupport([] { return GetVendorInfo(3, nullptr, nullptr); }),

    Export("ChangePin", [](const Call&) { return ChangePin(sn); }).Asks("ChangePin"),
    Export("InitUKey", [](const Call&) { return InitUKey(sn); })
        .Asks("CustInitCard").NeverInitialises().UnboundAnswers(-109),
    Export("TestInitUKey", [](const Call&) { return TestInitUKey(sn, nullptr); }).Asks("CustInitCard"),
    Export("VerifyPIN", [](const Call&) { return VerifyPIN(sn); }).Asks("VerifyPIN"),
    Export("TestVerifyAndCachePin", [](const Call&) { return TestVerifyAndCachePin(sn, nullptr); })
        .Asks("VerifyAndCachePin"),
    Export("GetPinInfo", [](const Call& c) { return GetPinInfo(sn, c.buffer, c.length); })
        .Asks("GetPinInfo").HandsLengthOn(2)
        .Refuses([] { return GetPinInfo(sn, nullptr, nullptr); }),
    Export("SetCachePinFlag", [](const Call&) { return SetCachePinFlag(sn, 1); })
        .Asks("SetCachePinFlag").NeverInitialises(),
    Export("RemovePinCache", [](const Call&) { return RemovePinCache(); }).Asks("GM_RemoveUserPin"),

    Export("GetCert", [](const Call& c) { return GetCert(sn, 1, 2, c.buffer, c.length); })
        .Asks("GetCertInfo").Answered(TextAndLength("GetCertInfo", 3))
        .Refuses([] { return GetCert(sn, 1, 2, nullptr, nullptr); }),
    Export("GetCertDN",
        [](const Call& c) { return GetCertDN(sn, 1, 2, c.buffer, c.SignedLength()); })
        .Asks("GM_GetCertDN").Answered(Text("GM_GetCertDN", 3))
        .Refuses([] { return GetCertDN(sn, 1, 2, nullptr, nullptr); }),
    Export("GetCertInfo", [](const Call& c) { return GetCertInfo(sn, 1, c.buffer, c.length); })
        .Asks("GetCertInfo_UOS").HandsLengthOn(3)
        .Refuses([] { return GetCertInfo(sn, 1, nullptr, nullptr); }),
    Export("DelCertAndTempKey", [](const Call&) { return DelCertAndTempKey(sn, 1, 2); })
        .Asks("DelCertAndTempKey"),
    Export("RegisterCert", [](const Call&) { return RegisterCert(); })
        .NeverInitialises().UnboundAnswers(-300),
    Export("UnregisterCert", [](const Call&) { return UnregisterCert(); })
        .NeverInitialises().UnboundAnswers(-300),
    Export("RepairDriver", [](const Call&) { return RepairDriver(); })
        .NeverInitialises().UnboundAnswers(-300),

    Export("Sign",
        [](const Call& c) { return Sign(sn, 1, 2, c.in.data.c_str(), "w", c.buffer, c.length); })
        .Asks("SetWarningMsg").HandsLengthOn(5, "GMUsbKeyCriticalSign")
        .Refuses([] { return Sign(sn, 1, 2, nullptr, "w", nullptr, nullptr); }),
    Export("SignHash",
        [](const Call& c) { return SignHash(sn, 1, 2, c.in.data.c_str(), 3, c.buffer, c.length); })
        .Asks("GMUsbKeyCommonSign").HandsLengthOn(6)
        .Refuses([] { return SignHash(sn, 1, 2, nullptr, 3, nullptr, nullptr); }),
    Export("Batch_Sign",
        [](const Call& c) { return BatchSign(c.in.data.c_str(), c.in.list.c_str(), c.buffer, c.length); })
        .Asks("Batch_Sign").HandsLengthOn(12)
        .Refuses([] { return BatchSign("", "", nullptr, nullptr); }),
    Export("AsymDec",
        [](const Call& c) { return AsymDec(sn, 1, 2, c.in.data.c_str(), c.buffer, c.length); })
        .Asks("GMUSBKeyAsymDec2").Answered(TextAndLength("GMUSBKeyAsymDec2", 4))
        .Refuses([] { return AsymDec(sn, 1, 2, nullptr, nullptr, nullptr); }),

    Export("GetLabel", [](const Call& c) { return GetLabel(sn, c.buffer, c.SignedLength()); })
        .Asks("GetLabel").Answered(Text("GetLabel", 1))
        .Refuses([] { return GetLabel("", nullptr, nullptr); }),
    Export("SetLabel", [](const Call&) { return SetLabel(sn, "l"); })
        .Asks("SetLabel").Refuses([] { return SetLabel(nullptr, "l"); }),
    Export("SetData", [](const Call&) { return SetData(name, 1, "v"); })
        .Asks("SetData").Refuses([] { return SetData("short", 1, "v"); }),
    Export("GetData", [](const Call& c) { return GetData(name, 1, c.buffer, c.SignedLength()); })
        .Asks("GetData").Answered(Text("GetData", 2))
        .Refuses([] { return GetData(name, 1, nullptr, nullptr); }),
    Export("SetCharset", [](const Call&) { return SetCharset("a", "b"); })
        .Asks("UOS_SetCharset").Refuses([] { return SetCharset(nullptr, "b"); }),
    Export("SetLanguage", [](const Call&) { return SetLanguage("a", "b"); })
        .Asks("UOS_SetLanguage").Refuses([] { return SetLanguage("a", nullptr); }),

    Export("WaitForKeyEvent", Wait).Asks("ValtoT_ContextInit").Answered(Arrival()),
    Export("StopDetectUKey", [](const Call&) { return StopDetectUKey(); }),

    Export("GenerateCertRequest",
        [](const Call& c) { return GenerateCertRequest(sn, group, c.buffer, c.SignedLength()); })
        .Asks("VerifyPIN").Answered(Request("GMCreatePKCS10"))
        .Refuses([] { return GenerateCertRequest(sn, "Colour(1)", nullptr, nullptr); }),
    Export("Batch_InitAndGenerateCertRequest",
        [](const Call& c) { return Batch_InitAndGenerateCertRequest(sn, 0, pair, c.buffer, c.SignedLength()); })
        .Asks("VerifyPIN").Answered(Request("GMCreatePKCS10Ex"))
        .Refuses([] { return Batch_InitAndGenerateCertRequest(sn, 0, nullptr, nullptr, nullptr); }),
    Export("ImportX509Cert", [](const Call&) { return ImportX509Cert(sn, "c"); })
        .Asks("GMWritePKCS7").Refuses([] { return ImportX509Cert(sn, nullptr); }),
    Export("ImportEncX509Cert", [](const Call&) { return ImportEncX509Cert(sn, "c", "k"); })
        .Asks("GMImportPriKey").Refuses([] { return ImportEncX509Cert(sn, "c", nullptr); }),
    Export("Batch_ImportX509Cert",
        [](const Call&) { return Batch_ImportX509Cert(sn, "EncPriKey(K)"); })
        .Asks("GMImportPriKey").Refuses([] { return Batch_ImportX509Cert(sn, nullptr); }),
    Export("CheckDriverIntegrity", [](const Call&) { return CheckDriverIntegrity(1); })
        .DoesNotSupport([] { return CheckDriverIntegrity(2); }),
    };
    // clang-format on
}

}  // namespace

Export& Export::Asks(const char* firstEntry) {
    entry = lengthEntry = firstEntry;
    return AsksToken() ? UnboundAnswers(-101) : *this;
}
Export& Export::Answered(std::function<void(const std::string&)> how) {
    hasBuffer = true;
    answer = std::move(how);
    return *this;
}
Export& Export::HandsLengthOn(int argument, const char* ofEntry) {
    hasBuffer = true;
    lengthArgument = argument;
    if (*ofEntry != '\0') lengthEntry = ofEntry;
    return *this;
}
Export& Export::Refuses(std::function<int()> badCall) {
    refused = std::move(badCall);
    return *this;
}
Export& Export::DoesNotSupport(std::function<int()> badCall) {
    unsupported = std::move(badCall);
    return *this;
}
Export& Export::GivesCharacters(std::size_t count) {
    hasBuffer = true;
    fixedLength = count;
    return *this;
}
Export& Export::NeverInitialises() {
    initialises = false;
    return *this;
}
Export& Export::UnboundAnswers(int code) {
    withoutToken = code;
    return *this;
}

int Export::Make(const Inputs& in, char* into, unsigned* length) const {
    return made({in, into, length});
}

int Export::Make() const {
    static char room[9000];
    static const Inputs plain{"data", "a||b", ""};
    unsigned length = sizeof room;
    // A wait with a buffer is one that waits.
    return Make(plain, entry == "ValtoT_ContextInit" ? nullptr : room, &length);
}

bool Export::AsksToken() const {
    return !entry.empty() && entry.rfind("ValtoT_", 0) != 0;
}

const std::vector<Export>& EveryExport() {
    static const std::vector<Export> all = Table();
    return all;
}

std::vector<Export> ExportsWhere(const std::function<bool(const Export&)>& wanted) {
    std::vector<Export> found;
    std::copy_if(EveryExport().begin(), EveryExport().end(), std::back_inserter(found), wanted);
    return found;
}

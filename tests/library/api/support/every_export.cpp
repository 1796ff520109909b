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

Answer message() {
    return [](const std::string& result) { recorder().on("X_ErrorConvert_UOS").message(result); };
}
Answer text(const char* entry, std::size_t argument) {
    return [=](const std::string& result) { recorder().on(entry).writes(argument, result); };
}
Answer text_and_length(const char* entry, std::size_t argument) {
    return [=](const std::string& result) {
        const auto size = static_cast<unsigned>(result.size());
        recorder().on(entry).writes(argument, result).writes_number(argument + 1, size);
    };
}
Answer request(const char* entry) {
    return [=](const std::string& result) { recorder().on(entry).request(result); };
}
Answer arrival() {
    return [](const std::string& result) {
        offer_slots({});
        deliver(1, 5);
        recorder().on("ValtoT_GetDeviceInfo").writes(2, device_record(result));
    };
}

int last_err_code() {
    unsigned code = 0;
    GetLastErrCode(&code);
    return 0;
}
int finalize() {
    Finalize();
    return 0;
}
int batch_sign(const char* data, const char* list, char* buffer, unsigned* length) {
    return Batch_Sign(0, nullptr, 3, 4, data, nullptr, nullptr, 8, 9, list, 11, buffer, length);
}
int wait(const Call& c) {
    unsigned kind = 0;
    return WaitForKeyEvent(&kind, c.buffer, c.length);
}

std::vector<Export> table() {
    // clang-format off
    return {
    Export("Initialize", [](const Call&) { return Initialize(); }).unbound_answers(-101),
    Export("Finalize", [](const Call&) { return finalize(); }).never_initialises(),
    Export("GetLastErrCode", [](const Call&) { return last_err_code(); }).never_initialises(),
    Export("GetErrorMsg", [](const Call& c) { return GetErrorMsg(1, c.buffer, c.signed_length()); })
        .asks("X_ErrorConvert_UOS").answered(message())
        .refuses([] { return GetErrorMsg(1, nullptr, nullptr); }),

    Export("GetDriverVersion", [](const Call& c) { return GetDriverVersion(c.buffer, c.length); })
        .gives_characters(13),
    Export("GetDllVersion", [](const Call& c) { return GetDllVersion(c.buffer, c.length); })
        .gives_characters(13),
    Export("GetVidAndPid", [](const Call& c) { return GetVidAndPid(c.buffer, c.length); })
        .gives_characters(9),
    Export("GetPrintNumber", [](const Call& c) { return GetPrintNumber(c.buffer, c.length); })
        .asks("CheckDeviceEx").answered(text("CheckDeviceEx", 3)),
    Export("GetVendorInfo", [](const Call& c) { return GetVendorInfo(2, c.buffer, c.length); })
        .gives_characters(20).does_not_support([] { return GetVendorInfo(3, nullptr, nullptr); }),

    Export("ChangePin", [](const Call&) { return ChangePin(sn); }).asks("ChangePin"),
    Export("InitUKey", [](const Call&) { return InitUKey(sn); })
        .asks("CustInitCard").never_initialises().unbound_answers(-109),
    Export("TestInitUKey", [](const Call&) { return TestInitUKey(sn, nullptr); }).asks("CustInitCard"),
    Export("VerifyPIN", [](const Call&) { return VerifyPIN(sn); }).asks("VerifyPIN"),
    Export("TestVerifyAndCachePin", [](const Call&) { return TestVerifyAndCachePin(sn, nullptr); })
        .asks("VerifyAndCachePin"),
    Export("GetPinInfo", [](const Call& c) { return GetPinInfo(sn, c.buffer, c.length); })
        .asks("GetPinInfo").hands_length_on(2)
        .refuses([] { return GetPinInfo(sn, nullptr, nullptr); }),
    Export("SetCachePinFlag", [](const Call&) { return SetCachePinFlag(sn, 1); })
        .asks("SetCachePinFlag").never_initialises(),
    Export("RemovePinCache", [](const Call&) { return RemovePinCache(); }).asks("GM_RemoveUserPin"),

    Export("GetCert", [](const Call& c) { return GetCert(sn, 1, 2, c.buffer, c.length); })
        .asks("GetCertInfo").answered(text_and_length("GetCertInfo", 3))
        .refuses([] { return GetCert(sn, 1, 2, nullptr, nullptr); }),
    Export("GetCertDN",
        [](const Call& c) { return GetCertDN(sn, 1, 2, c.buffer, c.signed_length()); })
        .asks("GM_GetCertDN").answered(text("GM_GetCertDN", 3))
        .refuses([] { return GetCertDN(sn, 1, 2, nullptr, nullptr); }),
    Export("GetCertInfo", [](const Call& c) { return GetCertInfo(sn, 1, c.buffer, c.length); })
        .asks("GetCertInfo_UOS").hands_length_on(3)
        .refuses([] { return GetCertInfo(sn, 1, nullptr, nullptr); }),
    Export("DelCertAndTempKey", [](const Call&) { return DelCertAndTempKey(sn, 1, 2); })
        .asks("DelCertAndTempKey"),
    Export("RegisterCert", [](const Call&) { return RegisterCert(); })
        .never_initialises().unbound_answers(-300),
    Export("UnregisterCert", [](const Call&) { return UnregisterCert(); })
        .never_initialises().unbound_answers(-300),
    Export("RepairDriver", [](const Call&) { return RepairDriver(); })
        .never_initialises().unbound_answers(-300),

    Export("Sign",
        [](const Call& c) { return Sign(sn, 1, 2, c.in.data.c_str(), "w", c.buffer, c.length); })
        .asks("SetWarningMsg").hands_length_on(5, "GMUsbKeyCriticalSign")
        .refuses([] { return Sign(sn, 1, 2, nullptr, "w", nullptr, nullptr); }),
    Export("SignHash",
        [](const Call& c) { return SignHash(sn, 1, 2, c.in.data.c_str(), 3, c.buffer, c.length); })
        .asks("GMUsbKeyCommonSign").hands_length_on(6)
        .refuses([] { return SignHash(sn, 1, 2, nullptr, 3, nullptr, nullptr); }),
    Export("Batch_Sign",
        [](const Call& c) { return batch_sign(c.in.data.c_str(), c.in.list.c_str(), c.buffer, c.length); })
        .asks("Batch_Sign").hands_length_on(12)
        .refuses([] { return batch_sign("", "", nullptr, nullptr); }),
    Export("AsymDec",
        [](const Call& c) { return AsymDec(sn, 1, 2, c.in.data.c_str(), c.buffer, c.length); })
        .asks("GMUSBKeyAsymDec2").answered(text_and_length("GMUSBKeyAsymDec2", 4))
        .refuses([] { return AsymDec(sn, 1, 2, nullptr, nullptr, nullptr); }),

    Export("GetLabel", [](const Call& c) { return GetLabel(sn, c.buffer, c.signed_length()); })
        .asks("GetLabel").answered(text("GetLabel", 1))
        .refuses([] { return GetLabel("", nullptr, nullptr); }),
    Export("SetLabel", [](const Call&) { return SetLabel(sn, "l"); })
        .asks("SetLabel").refuses([] { return SetLabel(nullptr, "l"); }),
    Export("SetData", [](const Call&) { return SetData(name, 1, "v"); })
        .asks("SetData").refuses([] { return SetData("short", 1, "v"); }),
    Export("GetData", [](const Call& c) { return GetData(name, 1, c.buffer, c.signed_length()); })
        .asks("GetData").answered(text("GetData", 2))
        .refuses([] { return GetData(name, 1, nullptr, nullptr); }),
    Export("SetCharset", [](const Call&) { return SetCharset("a", "b"); })
        .asks("UOS_SetCharset").refuses([] { return SetCharset(nullptr, "b"); }),
    Export("SetLanguage", [](const Call&) { return SetLanguage("a", "b"); })
        .asks("UOS_SetLanguage").refuses([] { return SetLanguage("a", nullptr); }),

    Export("WaitForKeyEvent", wait).asks("ValtoT_ContextInit").answered(arrival()),
    Export("StopDetectUKey", [](const Call&) { return StopDetectUKey(); }),

    Export("GenerateCertRequest",
        [](const Call& c) { return GenerateCertRequest(sn, group, c.buffer, c.signed_length()); })
        .asks("VerifyPIN").answered(request("GMCreatePKCS10"))
        .refuses([] { return GenerateCertRequest(sn, "Colour(1)", nullptr, nullptr); }),
    Export("Batch_InitAndGenerateCertRequest",
        [](const Call& c) { return Batch_InitAndGenerateCertRequest(sn, 0, pair, c.buffer, c.signed_length()); })
        .asks("VerifyPIN").answered(request("GMCreatePKCS10Ex"))
        .refuses([] { return Batch_InitAndGenerateCertRequest(sn, 0, nullptr, nullptr, nullptr); }),
    Export("ImportX509Cert", [](const Call&) { return ImportX509Cert(sn, "c"); })
        .asks("GMWritePKCS7").refuses([] { return ImportX509Cert(sn, nullptr); }),
    Export("ImportEncX509Cert", [](const Call&) { return ImportEncX509Cert(sn, "c", "k"); })
        .asks("GMImportPriKey").refuses([] { return ImportEncX509Cert(sn, "c", nullptr); }),
    Export("Batch_ImportX509Cert",
        [](const Call&) { return Batch_ImportX509Cert(sn, "EncPriKey(K)"); })
        .asks("GMImportPriKey").refuses([] { return Batch_ImportX509Cert(sn, nullptr); }),
    Export("CheckDriverIntegrity", [](const Call&) { return CheckDriverIntegrity(1); })
        .does_not_support([] { return CheckDriverIntegrity(2); }),
    };
    // clang-format on
}

}  // namespace

Export& Export::asks(const char* first_entry) {
    entry = length_entry = first_entry;
    return asks_token() ? unbound_answers(-101) : *this;
}
Export& Export::answered(std::function<void(const std::string&)> how) {
    has_buffer = true;
    answer = std::move(how);
    return *this;
}
Export& Export::hands_length_on(int argument, const char* of_entry) {
    has_buffer = true;
    length_argument = argument;
    if (*of_entry != '\0') length_entry = of_entry;
    return *this;
}
Export& Export::refuses(std::function<int()> bad_call) {
    refused = std::move(bad_call);
    return *this;
}
Export& Export::does_not_support(std::function<int()> bad_call) {
    unsupported = std::move(bad_call);
    return *this;
}
Export& Export::gives_characters(std::size_t count) {
    has_buffer = true;
    fixed_length = count;
    return *this;
}
Export& Export::never_initialises() {
    initialises = false;
    return *this;
}
Export& Export::unbound_answers(int code) {
    without_token = code;
    return *this;
}

int Export::call(const Inputs& in, char* into, unsigned* length) const {
    return made({in, into, length});
}

int Export::call() const {
    static char room[9000];
    static const Inputs plain{"data", "a||b", ""};
    unsigned length = sizeof room;
    // A wait with a buffer is one that waits.
    return call(plain, entry == "ValtoT_ContextInit" ? nullptr : room, &length);
}

bool Export::asks_token() const {
    return !entry.empty() && entry.rfind("ValtoT_", 0) != 0;
}

const std::vector<Export>& every_export() {
    static const std::vector<Export> all = table();
    return all;
}

std::vector<Export> exports_where(const std::function<bool(const Export&)>& wanted) {
    std::vector<Export> found;
    std::copy_if(every_export().begin(), every_export().end(), std::back_inserter(found), wanted);
    return found;
}

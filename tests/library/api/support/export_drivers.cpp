#include "export_drivers.h"

#include <stdexcept>

#include "event_test.h"

namespace {

const char sn[] = "A1";
const char name[] = "name567890";

int* as_int(unsigned* length) {
    return reinterpret_cast<int*>(length);
}

auto no_answer = [](const Inputs&) {};

auto writes(const std::string& entry, std::size_t argument) {
    return [=](const Inputs& inputs) { recorder().on(entry).writes(argument, inputs.result); };
}

auto writes_text_and_length(const std::string& entry, std::size_t argument, std::size_t length) {
    return [=](const Inputs& inputs) {
        const auto size = static_cast<unsigned>(inputs.result.size());
        recorder().on(entry).writes(argument, inputs.result).writes_number(length, size);
    };
}

auto requests(const std::string& entry) {
    return [=](const Inputs& inputs) { recorder().on(entry).request(inputs.result); };
}

void arrives(const Inputs& inputs) {
    offer_slots({});
    deliver(1, 5);
    recorder().on("ValtoT_GetDeviceInfo").writes(2, device_record(inputs.result));
}

#define CALL [](const Inputs& in, char* buffer, unsigned* length) -> int
#define USED (void)in, (void)buffer, (void)length

std::vector<Driver> frame_and_identity() {
    return {{"Initialize", "", CALL{return USED, Initialize();
}
, no_answer, false
}  // namespace
, {"Finalize", "", CALL{return USED, Finalize(), 0;
}
, no_answer, false
}
, {"GetLastErrCode", "", CALL{USED;
unsigned code = 0;
return GetLastErrCode(&code), 0;
}
, no_answer, false
}
, {"GetErrorMsg", "X_ErrorConvert_UOS", CALL{return USED, GetErrorMsg(1, buffer, as_int(length));
}
, [](const Inputs& in) { recorder().on("X_ErrorConvert_UOS").message(in.result); }, true, -1, "",
    [] { return GetErrorMsg(1, nullptr, nullptr); }
}
, {"GetDriverVersion", "", CALL{return USED, GetDriverVersion(buffer, length);
}
, no_answer, true, -1, "", {}, {}, 13
}
, {"GetDllVersion", "", CALL{return USED, GetDllVersion(buffer, length);
}
, no_answer, true, -1, "", {}, {}, 13
}
, {"GetVidAndPid", "", CALL{return USED, GetVidAndPid(buffer, length);
}
, no_answer, true, -1, "", {}, {}, 9
}
, {"GetPrintNumber", "CheckDeviceEx", CALL{return USED, GetPrintNumber(buffer, length);
}
, writes("CheckDeviceEx", 3), true
}
, {
    "GetVendorInfo", "", CALL {
        return USED, GetVendorInfo(2, buffer, length);
    }
    , no_answer, true, -1, "", {}, [] { return GetVendorInfo(3, nullptr, nullptr); }, 20
}
}
;
}

std::vector<Driver> pin() {
    return {{"ChangePin", "ChangePin", CALL{return USED, ChangePin(sn);
}
, no_answer, false
}
, {"InitUKey", "CustInitCard", CALL{return USED, InitUKey(sn);
}
, no_answer, false
}
, {"TestInitUKey", "CustInitCard", CALL{return USED, TestInitUKey(sn, nullptr);
}
, no_answer, false
}
, {"VerifyPIN", "VerifyPIN", CALL{return USED, VerifyPIN(sn);
}
, no_answer, false
}
, {"TestVerifyAndCachePin", "VerifyAndCachePin",
   CALL{return USED, TestVerifyAndCachePin(sn, nullptr);
}
, no_answer, false
}
, {"GetPinInfo", "GetPinInfo", CALL{return USED, GetPinInfo(sn, buffer, length);
}
, no_answer, true, 2, "", [] { return GetPinInfo(sn, nullptr, nullptr); }
}
, {"SetCachePinFlag", "SetCachePinFlag", CALL{return USED, SetCachePinFlag(sn, 1);
}
, no_answer, false
}
, {
    "RemovePinCache", "GM_RemoveUserPin", CALL {
        return USED, RemovePinCache();
    }
    , no_answer, false
}
}
;
}

std::vector<Driver> certificates() {
    return {{"GetCert", "GetCertInfo", CALL{return USED, GetCert(sn, 1, 2, buffer, length);
}
, writes_text_and_length("GetCertInfo", 3, 4), true, -1, "",
    [] { return GetCert(sn, 1, 2, nullptr, nullptr); }
}
, {"GetCertDN", "GM_GetCertDN", CALL{return USED, GetCertDN(sn, 1, 2, buffer, as_int(length));
}
, writes("GM_GetCertDN", 3), true, -1, "", [] { return GetCertDN(sn, 1, 2, nullptr, nullptr); }
}
, {"GetCertInfo", "GetCertInfo_UOS", CALL{return USED, GetCertInfo(sn, 1, buffer, length);
}
, no_answer, true, 3, "", [] { return GetCertInfo(sn, 1, nullptr, nullptr); }
}
, {"DelCertAndTempKey", "DelCertAndTempKey", CALL{return USED, DelCertAndTempKey(sn, 1, 2);
}
, no_answer, false
}
, {"RegisterCert", "", CALL{return USED, RegisterCert();
}
, no_answer, false
}
, {"UnregisterCert", "", CALL{return USED, UnregisterCert();
}
, no_answer, false
}
, {
    "RepairDriver", "", CALL {
        return USED, RepairDriver();
    }
    , no_answer, false
}
}
;
}

std::vector<Driver> signing() {
    return {{"Sign", "SetWarningMsg",
             CALL{return USED, Sign(sn, 1, 2, in.data.c_str(), "w", buffer, length);
}
, no_answer, true, 5, "GMUsbKeyCriticalSign",
    [] { return Sign(sn, 1, 2, nullptr, "w", nullptr, nullptr); }
}
, {"SignHash", "GMUsbKeyCommonSign",
   CALL{return USED, SignHash(sn, 1, 2, in.data.c_str(), 3, buffer, length);
}
, no_answer, true, 6, "", [] { return SignHash(sn, 1, 2, nullptr, 3, nullptr, nullptr); }
}
, {"Batch_Sign", "Batch_Sign",
   CALL{return USED, Batch_Sign(0, nullptr, 3, 4, in.data.c_str(), nullptr, nullptr, 8, 9,
                                in.list.c_str(), 11, buffer, length);
}
, no_answer, true, 12, "", [] {
    return Batch_Sign(0, nullptr, 3, 4, "", nullptr, nullptr, 8, 9, "", 11, nullptr, nullptr);
}
}
, {
    "AsymDec", "GMUSBKeyAsymDec2", CALL {
        return USED, AsymDec(sn, 1, 2, in.data.c_str(), buffer, length);
    }
    , writes_text_and_length("GMUSBKeyAsymDec2", 4, 5), true, -1, "",
        [] { return AsymDec(sn, 1, 2, nullptr, nullptr, nullptr); }
}
}
;
}

std::vector<Driver> labels_and_data() {
    return {{"GetLabel", "GetLabel", CALL{return USED, GetLabel(sn, buffer, as_int(length));
}
, writes("GetLabel", 1), true, -1, "", [] { return GetLabel("", nullptr, nullptr); }
}
, {"SetLabel", "SetLabel", CALL{return USED, SetLabel(sn, "l");
}
, no_answer, false, -1, "", [] { return SetLabel(nullptr, "l"); }
}
, {"SetData", "SetData", CALL{return USED, SetData(name, 1, "v");
}
, no_answer, false, -1, "", [] { return SetData("short", 1, "v"); }
}
, {"GetData", "GetData", CALL{return USED, GetData(name, 1, buffer, as_int(length));
}
, writes("GetData", 2), true, -1, "", [] { return GetData(name, 1, nullptr, nullptr); }
}
, {"SetCharset", "UOS_SetCharset", CALL{return USED, SetCharset("a", "b");
}
, no_answer, false, -1, "", [] { return SetCharset(nullptr, "b"); }
}
, {
    "SetLanguage", "UOS_SetLanguage", CALL {
        return USED, SetLanguage("a", "b");
    }
    , no_answer, false, -1, "", [] { return SetLanguage("a", nullptr); }
}
}
;
}

std::vector<Driver> the_rest() {
    return {{"WaitForKeyEvent", "ValtoT_ContextInit", CALL{USED;
    unsigned kind = 0;
    return WaitForKeyEvent(&kind, buffer, length);
}
, arrives, true
}
, {"StopDetectUKey", "", CALL{return USED, StopDetectUKey();
}
, no_answer, false
}
, {"GenerateCertRequest", "VerifyPIN",
   CALL{return USED, GenerateCertRequest(sn, "CertType(1)", buffer, as_int(length));
}
, requests("GMCreatePKCS10"), true, -1, "",
    [] { return GenerateCertRequest(sn, "Colour(1)", nullptr, nullptr); }
}
, {"Batch_InitAndGenerateCertRequest", "VerifyPIN",
   CALL{return USED, Batch_InitAndGenerateCertRequest(sn, 0, "CertType(1)KeyType(2)", buffer,
                                                      as_int(length));
}
, requests("GMCreatePKCS10Ex"), true, -1, "",
    [] { return Batch_InitAndGenerateCertRequest(sn, 0, nullptr, nullptr, nullptr); }
}
, {"ImportX509Cert", "GMWritePKCS7", CALL{return USED, ImportX509Cert(sn, "c");
}
, no_answer, false, -1, "", [] { return ImportX509Cert(sn, nullptr); }
}
, {"ImportEncX509Cert", "GMImportPriKey", CALL{return USED, ImportEncX509Cert(sn, "c", "k");
}
, no_answer, false, -1, "", [] { return ImportEncX509Cert(sn, "c", nullptr); }
}
, {"Batch_ImportX509Cert", "GMImportPriKey",
   CALL{return USED, Batch_ImportX509Cert(sn, "EncPriKey(K)");
}
, no_answer, false, -1, "", [] { return Batch_ImportX509Cert(sn, nullptr); }
}
, {
    "CheckDriverIntegrity", "", CALL {
        return USED, CheckDriverIntegrity(1);
    }
    , no_answer, false, -1, "", {}, [] { return CheckDriverIntegrity(2); }
}
}
;
}

}  // namespace

const Driver& driver_of(const std::string& export_name) {
    static const std::vector<Driver> all = [] {
        std::vector<Driver> joined;
        for (const auto& family : {frame_and_identity(), pin(), certificates(), signing(),
                                   labels_and_data(), the_rest()}) {
            joined.insert(joined.end(), family.begin(), family.end());
        }
        return joined;
    }();
    for (const Driver& driver : all) {
        if (driver.name == export_name) return driver;
    }
    throw std::runtime_error("no driver calls " + export_name);
}

#include "every_export.h"

#include <algorithm>
#include <iterator>

#include "kesta_unified_zrkukey.h"

namespace {

char sn[] = "A1";
char text[9000];
unsigned length = sizeof text;
int room = sizeof text;
unsigned event = 0;

int get_last_err_code() {
    unsigned code = 0;
    GetLastErrCode(&code);
    return 0;
}

int finalize() {
    Finalize();
    return 0;
}

std::vector<Export> frame() {
    return {{"Initialize", Initialize, true, false, -101},
            {"Finalize", finalize, false, false},
            {"GetLastErrCode", get_last_err_code, false, false},
            {"GetErrorMsg", [] { return GetErrorMsg(1, text, &room); }, true, true, -101}};
}

std::vector<Export> identity() {
    return {{"GetDriverVersion", [] { return GetDriverVersion(text, &length); }, true, false},
            {"GetDllVersion", [] { return GetDllVersion(text, &length); }, true, false},
            {"GetVidAndPid", [] { return GetVidAndPid(text, &length); }, true, false},
            {"GetPrintNumber", [] { return GetPrintNumber(text, &length); }, true, true, -101},
            {"GetVendorInfo", [] { return GetVendorInfo(1, text, &length); }, true, false}};
}

std::vector<Export> pin() {
    return {
        {"ChangePin", [] { return ChangePin(sn); }, true, true, -101},
        {"InitUKey", [] { return InitUKey(sn); }, false, true, -109},
        {"TestInitUKey", [] { return TestInitUKey(sn, text); }, true, true, -101},
        {"VerifyPIN", [] { return VerifyPIN(sn); }, true, true, -101},
        {"TestVerifyAndCachePin", [] { return TestVerifyAndCachePin(sn, text); }, true, true, -101},
        {"GetPinInfo", [] { return GetPinInfo(sn, text, &length); }, true, true, -101},
        {"SetCachePinFlag", [] { return SetCachePinFlag(sn, 1); }, false, true, -101},
        {"RemovePinCache", RemovePinCache, true, true, -101}};
}

std::vector<Export> certificates() {
    return {{"GetCert", [] { return GetCert(sn, 1, 2, text, &length); }, true, true, -101},
            {"GetCertDN", [] { return GetCertDN(sn, 1, 2, text, &room); }, true, true, -101},
            {"GetCertInfo", [] { return GetCertInfo(sn, 1, text, &length); }, true, true, -101},
            {"DelCertAndTempKey", [] { return DelCertAndTempKey(sn, 1, 2); }, true, true, -101},
            {"RegisterCert", RegisterCert, false, false, -300},
            {"UnregisterCert", UnregisterCert, false, false, -300},
            {"RepairDriver", RepairDriver, false, false, -300}};
}

std::vector<Export> signing() {
    return {
        {"Sign", [] { return Sign(sn, 1, 2, "data", "warning", text, &length); }, true, true, -101},
        {"SignHash", [] { return SignHash(sn, 1, 2, "hash", 3, text, &length); }, true, true, -101},
        {"Batch_Sign",
         [] {
             return Batch_Sign(0, nullptr, 3, 4, "data", nullptr, nullptr, 8, 9, "a||b", 11, text,
                               &length);
         },
         true, true, -101},
        {"AsymDec", [] { return AsymDec(sn, 1, 2, "cipher", text, &length); }, true, true, -101}};
}

std::vector<Export> labels() {
    return {{"GetLabel", [] { return GetLabel(sn, text, &room); }, true, true, -101},
            {"SetLabel", [] { return SetLabel(sn, "label"); }, true, true, -101},
            {"SetData", [] { return SetData("name567890", 1, "value"); }, true, true, -101},
            {"GetData", [] { return GetData("name567890", 1, text, &room); }, true, true, -101},
            {"SetCharset", [] { return SetCharset(sn, "UTF-8"); }, true, true, -101},
            {"SetLanguage", [] { return SetLanguage(sn, "en"); }, true, true, -101}};
}

std::vector<Export> the_rest() {
    return {
        {"WaitForKeyEvent", [] { return WaitForKeyEvent(&event, nullptr, &length); }, true, false},
        {"StopDetectUKey", StopDetectUKey, true, false},
        {"GenerateCertRequest", [] { return GenerateCertRequest(sn, "CertType(1)", text, &room); },
         true, true, -101},
        {"Batch_InitAndGenerateCertRequest",
         [] {
             return Batch_InitAndGenerateCertRequest(sn, 0, "CertType(1)KeyType(2)", text, &room);
         },
         true, true, -101},
        {"ImportX509Cert", [] { return ImportX509Cert(sn, "cert"); }, true, true, -101},
        {"ImportEncX509Cert", [] { return ImportEncX509Cert(sn, "cert", "key"); }, true, true,
         -101},
        {"Batch_ImportX509Cert", [] { return Batch_ImportX509Cert(sn, "cert"); }, true, true, -101},
        {"CheckDriverIntegrity", [] { return CheckDriverIntegrity(1); }, true, false}};
}

}  // namespace

const std::vector<Export>& every_export() {
    static const std::vector<Export> all = [] {
        std::vector<Export> joined;
        for (const auto& family :
             {frame(), identity(), pin(), certificates(), signing(), labels(), the_rest()}) {
            joined.insert(joined.end(), family.begin(), family.end());
        }
        return joined;
    }();
    return all;
}

std::vector<Export> exports_where(const std::function<bool(const Export&)>& wanted) {
    std::vector<Export> found;
    std::copy_if(every_export().begin(), every_export().end(), std::back_inserter(found), wanted);
    return found;
}

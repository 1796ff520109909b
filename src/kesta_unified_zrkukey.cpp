// The exports and the process-wide state, which nobody else includes.
//
// An export initialises the library if need be, checks its arguments in a fixed order, forwards to
// one entry point of the token library or to a module, and hands the result out. Which of them log,
// initialise, clear G_LastError first or count a NUL differs on purpose; the public header says
// each.
#include "kesta_unified_zrkukey.h"

#include <algorithm>
#include <memory>
#include <new>

#include "arguments.h"
#include "certificate_import.h"
#include "enrolment.h"
#include "event_wait.h"
#include "frame.h"
#include "hand_out.h"
#include "import_text.h"
#include "probe_cache.h"
#include "token_call.h"

using namespace kesta;

// With C++ linkage, exported for the maker's own tools.
KESTA_API void X_getCurrentSlots();
KESTA_API void X_getMediaId(std::string& text, _S_DEV_CONFIG* record);

int G_LastError = 0;
bool g_initFlag = false;

extern "C" {
// Room for the slot map without its destructor: a thread may still wait for events when the process
// ends. The exported name is an alias of it.
alignas(SlotMap) unsigned char undestroyedSlotMap[sizeof(SlotMap)];
extern SlotMap g_WaitEventSlotMap __attribute__((alias("undestroyedSlotMap")));
}

// Built under the exported name: where a client's program holds a copy of the variable, that name
// leads to the copy, which is then the one in use.
[[maybe_unused]] static const SlotMap* const builtSlotMap = new (&g_WaitEventSlotMap) SlotMap;

static CommonFunction KESTA_ComFunc;

// Set while a wait runs; cleared by a stop.
static std::atomic<bool> isRun{false};

// The request that the latest probe made, and what it was made for. All three or none.
static char* g_szLastP10 = nullptr;
static char* g_szLastReq = nullptr;
static char* g_szLastSN = nullptr;
static ProbeCache probeCache(g_szLastP10, g_szLastReq, g_szLastSN);

namespace {

bool isInitialised() {
    return __atomic_load_n(&g_initFlag, __ATOMIC_ACQUIRE);
}

void initialiseOnFirstUse() {
    // The result is not looked at: an export that asks the token answers for a failed binding.
    if (!isInitialised()) Initialize();
}

void begin() {
    initialiseOnFirstUse();
    setLastError(KESTA_OK);
}

template <typename... Parameters, typename... Arguments>
int forward(int (*const& slot)(Parameters...), Arguments... arguments) {
    return kesta::forward(KESTA_ComFunc, slot, arguments...);
}

// Reads a text, the entry point's last argument, and hands it out.
template <std::size_t kSize, typename... Parameters, typename... Arguments>
int readAndHandOut(int (*const& slot)(Parameters...), char* buffer, int* length,
                   Arguments... arguments) {
    char text[kSize] = {};
    const int result = forward(slot, arguments..., &text[0]);
    return result != KESTA_OK ? result : handOut(readText(text), buffer, length);
}

}  // namespace

// ---- Frame and errors ---------------------------------------------------------------------------

int Initialize() {
    setLastError(KESTA_OK);
    const int result = setLastError(KESTA_ComFunc.init());
    if (result == KESTA_OK) __atomic_store_n(&g_initFlag, true, __ATOMIC_SEQ_CST);
    return result;
}

void Finalize() {
    __atomic_store_n(&g_initFlag, false, __ATOMIC_SEQ_CST);
    setLastError(KESTA_OK);
}

void GetLastErrCode(unsigned int* pErrCode) {
    if (pErrCode == nullptr) {
        refuse();
        return;
    }
    *pErrCode = static_cast<unsigned int>(lastError());
}

int GetErrorMsg(int errCode, char* pszErrMsg, int* pnErrMsgLen) {
    initialiseOnFirstUse();
    if (pnErrMsgLen == nullptr) return refuse();
    if (pszErrMsg == nullptr) {
        *pnErrMsgLen = limits::kMessage;
        return KESTA_OK;
    }
    if (!KESTA_ComFunc.IsBound()) return setLastError(KESTA_NOT_BOUND);
    const LgnString text =
        copyOf(__atomic_load_n(&KESTA_ComFunc.m_pX_ErrorConvert_UOS, __ATOMIC_RELAXED)(errCode));
    const bool fits = text.GetLength() < *pnErrMsgLen;
    *pnErrMsgLen = text.GetLength() + 1;
    if (!fits) return setLastError(KESTA_BUFFER_TOO_SMALL);
    text.View().copy(pszErrMsg, std::string_view::npos);
    pszErrMsg[text.GetLength()] = '\0';
    return KESTA_OK;
}

// ---- Identity -----------------------------------------------------------------------------------

int GetDriverVersion(char* pszVersion, unsigned int* pnVersionLen) {
    begin();
    return answerConstant("GetDriverVersion", "pszVersion: %s", KESTA_VERSION, pszVersion,
                          pnVersionLen);
}

int GetDllVersion(char* pszVersion, unsigned int* pnVersionLen) {
    constexpr const char* kTag = "GetDllVersion";
    LogEntry(kTag, "Begin pnVersionLen = %08x", *pnVersionLen);
    begin();
    return answerConstant(kTag, "pszVersion: %s", KESTA_VERSION, pszVersion, pnVersionLen);
}

int GetVidAndPid(char* pszVidPid, unsigned int* pnVidPidLen) {
    constexpr const char* kTag = "GetVidAndPid";
    LogEntry(kTag, "Begin pnVidPidLen = %08x", *pnVidPidLen);
    begin();
    return answerConstant(kTag, "pszVidPid: %s", places::kUsbIds, pszVidPid, pnVidPidLen);
}

int GetPrintNumber(char* pszSN, unsigned int* pnSNLen) {
    constexpr const char* kTag = "GetPrintNumber";
    LogEntry(kTag, "Begin pnSNLen = %08x", *pnSNLen);
    begin();
    std::uint32_t state = 0;
    _S_DEV_CONFIG record = {};
    char serial[limits::kSerialBuffer] = {};
    const int result = forward(KESTA_ComFunc.m_pCheckDeviceEx, &state, &record, 1, &serial[0]);
    if (result == KESTA_OK) {
        *pnSNLen = readText(serial).length;
        if (pszSN != nullptr) copyText(pszSN, serial, sizeof serial, *pnSNLen);
    }
    if (pszSN != nullptr) LogEntry(kTag, "m_SN: %s", pszSN);
    return logEnd(kTag, result);
}

int GetVendorInfo(int nLanguage, char* pszVendor, unsigned int* pnVendorLen) {
    begin();
    if (nLanguage < 0 || nLanguage > 2) return setLastError(KESTA_UNSUPPORTED);
    const std::string_view name =
        nLanguage == 2 ? "Quillorn Corporation" : "岚岫诚科技股份有限公司";
    if (pszVendor == nullptr) {
        *pnVendorLen = static_cast<unsigned int>(name.size());
    } else {
        pszVendor[name.copy(pszVendor, name.size())] = '\0';
    }
    return KESTA_OK;
}

// ---- PIN and initialisation ---------------------------------------------------------------------

int ChangePin(const char* szSN) {
    logBegin("ChangePin");
    logSerial(szSN);
    begin();
    return logEnd("ChangePin", forward(KESTA_ComFunc.m_pChangePin, szSN));
}

int InitUKey(const char* szSN) {
    logBegin("InitUKey");
    logSerial(szSN);
    if (!isInitialised()) return KESTA_NOT_INITIALISED;
    setLastError(KESTA_OK);
    return logEnd("InitUKey", forward(KESTA_ComFunc.m_pCustInitCard, szSN, 0, nullptr, 0));
}

int TestInitUKey(const char* szSN, void* pParam) {
    logBegin("TestInitUKey");
    begin();
    return logEnd("TestInitUKey", forward(KESTA_ComFunc.m_pCustInitCard, szSN, 0, pParam, 0));
}

int VerifyPIN(const char* szSN) {
    initialiseOnFirstUse();
    return forward(KESTA_ComFunc.m_pVerifyPIN, szSN);
}

int TestVerifyAndCachePin(const char* szSN, void* pParam) {
    initialiseOnFirstUse();
    return forward(KESTA_ComFunc.m_pVerifyAndCachePin, szSN, pParam);
}

int GetPinInfo(const char* szSN, void* pPinInfo, unsigned int* pnPinInfoLen) {
    initialiseOnFirstUse();
    if (pnPinInfoLen == nullptr) return refuse();
    if (pPinInfo == nullptr) return answerSize(pnPinInfoLen, limits::kPinInformation);
    return forward(KESTA_ComFunc.m_pGetPinInfo, szSN, pPinInfo, pnPinInfoLen);
}

int SetCachePinFlag(const char* szSN, int nFlag) {
    setLastError(KESTA_OK);
    return forward(KESTA_ComFunc.m_pSetCachePinFlag, szSN, nFlag);
}

int RemovePinCache() {
    begin();
    return forward(KESTA_ComFunc.m_pGM_RemoveUserPin);
}

// ---- Certificates -------------------------------------------------------------------------------

int GetCert(const char* szSN, unsigned int nParam1, unsigned int nParam2, char* pszCert,
            unsigned int* pnCertLen) {
    initialiseOnFirstUse();
    if (anyNull(pnCertLen, szSN)) return refuse();
    char certificate[limits::kCertificateBuffer] = {};
    std::uint32_t length = sizeof certificate;
    const int result =
        forward(KESTA_ComFunc.m_pGetCertInfo, szSN, nParam1, nParam2, &certificate[0], &length);
    if (result != KESTA_OK) return result;
    return handOut({certificate, sizeof certificate, length, length}, pszCert, pnCertLen);
}

int GetCertDN(const char* szSN, unsigned int nParam1, unsigned int nParam2, char* pszDN,
              int* pnDNLen) {
    initialiseOnFirstUse();
    if (anyNull(pnDNLen, szSN)) return refuse();
    setLastError(KESTA_OK);
    return readAndHandOut<limits::kNameBuffer>(KESTA_ComFunc.m_pGM_GetCertDN, pszDN, pnDNLen, szSN,
                                               nParam1, nParam2);
}

int GetCertInfo(const char* szSN, unsigned int nParam, void* pInfo, unsigned int* pnInfoLen) {
    initialiseOnFirstUse();
    if (pnInfoLen == nullptr) return refuse();
    if (pInfo == nullptr) return answerSize(pnInfoLen, limits::kCertificateInformation);
    return forward(KESTA_ComFunc.m_pGetCertInfo_UOS, szSN, nParam, pInfo, pnInfoLen);
}

int DelCertAndTempKey(const char* szSN, unsigned int nParam1, unsigned int nParam2) {
    initialiseOnFirstUse();
    return forward(KESTA_ComFunc.m_pDelCertAndTempKey, szSN, nParam1, nParam2);
}

int RegisterCert() {
    return KESTA_UNSUPPORTED;
}
int UnregisterCert() {
    return KESTA_UNSUPPORTED;
}
int RepairDriver() {
    return KESTA_UNSUPPORTED;
}

// ---- Signing and decryption ---------------------------------------------------------------------

int Sign(const char* szSN, int nOption1, int nOption2, const char* pszData,
         const char* pszWarningMsg, char* pszSignature, unsigned int* pnSignatureLen) {
    initialiseOnFirstUse();
    if (anyNull(pszData, pnSignatureLen, pszWarningMsg)) return refuse();
    if (pszSignature == nullptr) return answerSize(pnSignatureLen, workSize(pszData));
    const int result = forward(KESTA_ComFunc.m_pSetWarningMsg, szSN, pszWarningMsg);
    if (result != KESTA_OK) return result;
    return forward(KESTA_ComFunc.m_pGMUsbKeyCriticalSign, szSN, nOption1, nOption2, pszData,
                   pszSignature, pnSignatureLen);
}

int SignHash(const char* szSN, int nOption1, int nOption2, const char* pszHash, int nOption3,
             char* pszSignature, unsigned int* pnSignatureLen) {
    initialiseOnFirstUse();
    if (anyNull(pnSignatureLen, pszHash)) return refuse();
    const std::uint32_t size = workSize(pszHash);
    if (pszSignature == nullptr) return answerSize(pnSignatureLen, size);
    setLastError(KESTA_OK);
    const auto work = std::make_unique<char[]>(size);
    const WritableCopy serial(szSN), hash(pszHash);
    const int result = forward(KESTA_ComFunc.m_pGMUsbKeyCommonSign, serial.get(), nOption1,
                               nOption2, hash.get(), nOption3, work.get(), pnSignatureLen);
    if (result == KESTA_OK) copyText(pszSignature, work.get(), size, size);
    return result;
}

int Batch_Sign(unsigned int nFlags, void* pParam2, int nParam3, int nParam4, const char* pszData,
               void* pParam6, void* pParam7, int nParam8, int nParam9, const char* pszDataList,
               int nParam11, char* pszSignatures, unsigned int* pnSignaturesLen) {
    initialiseOnFirstUse();
    if (pnSignaturesLen == nullptr) return refuse();
    if (pszSignatures == nullptr) {
        const char* list = pszDataList == nullptr ? "" : pszDataList;
        return answerSize(pnSignaturesLen, batchSize(pszData, pszDataList,
                                                     KESTA_ComFunc.GetSubStringCount(list, "||")));
    }
    if ((nFlags & 1) != 0 && anyNull(pParam2, pParam6, pszData)) return refuse();
    return forward(KESTA_ComFunc.m_pBatch_Sign, nFlags, pParam2, nParam3, nParam4, pszData, pParam6,
                   pParam7, nParam8, nParam9, pszDataList, nParam11, pszSignatures,
                   pnSignaturesLen);
}

int AsymDec(const char* szSN, int nOption1, unsigned int nOption2, const char* pszCipher,
            char* pszPlain, unsigned int* pnPlainLen) {
    initialiseOnFirstUse();
    if (anyNull(pnPlainLen, pszCipher)) return refuse();
    const std::uint32_t size = workSize(pszCipher);
    if (pszPlain == nullptr) return answerSize(pnPlainLen, size);
    setLastError(KESTA_OK);
    const auto work = std::make_unique<char[]>(size);
    const WritableCopy serial(szSN), cipher(pszCipher, removeLineBreaks);
    std::uint32_t length = size;
    const int result = forward(KESTA_ComFunc.m_pGMUSBKeyAsymDec2, serial.get(), nOption1, nOption2,
                               cipher.get(), work.get(), &length);
    if (result != KESTA_OK) return result;
    return handOut({work.get(), size, length, length}, pszPlain, pnPlainLen);
}

// ---- Labels, data objects, locale ---------------------------------------------------------------

int GetLabel(const char* szSN, char* pszLabel, int* pnLabelLen) {
    initialiseOnFirstUse();
    if (anyNull(pnLabelLen, szSN)) return refuse();
    setLastError(KESTA_OK);
    if (*szSN == '\0') return refuse();
    const WritableCopy serial(szSN);
    return readAndHandOut<limits::kLabelBuffer>(KESTA_ComFunc.m_pGetLabel, pszLabel, pnLabelLen,
                                                serial.get());
}

int SetLabel(const char* szSN, const char* szLabel) {
    initialiseOnFirstUse();
    if (anyNull(szSN, szLabel)) return refuse();
    return forward(KESTA_ComFunc.m_pSetLabel, szSN, szLabel);
}

int SetData(const char* szName, unsigned int nParam, const char* szValue) {
    initialiseOnFirstUse();
    if (anyNull(szName, szValue) || !isDataName(szName) || !isDataValue(szValue)) return refuse();
    return forward(KESTA_ComFunc.m_pSetData, szName, nParam, szValue);
}

int GetData(const char* szName, unsigned int nParam, char* pszValue, int* pnValueLen) {
    initialiseOnFirstUse();
    if (anyNull(szName, pnValueLen) || !isDataName(szName)) return refuse();
    setLastError(KESTA_OK);
    char value[limits::kDataBuffer] = {};
    const int result = forward(KESTA_ComFunc.m_pGetData, szName, nParam, &value[0]);
    if (result != KESTA_OK) return result;
    ReadText text = readText(value);
    text.neededLength = text.length + 1;
    return handOut(text, pszValue, pnValueLen);
}

int SetCharset(const char* pszArg1, const char* pszArg2) {
    initialiseOnFirstUse();
    if (anyNull(pszArg1, pszArg2)) return refuse();
    return forward(KESTA_ComFunc.m_pUOS_SetCharset, pszArg2, pszArg1);
}

int SetLanguage(const char* pszArg1, const char* pszArg2) {
    initialiseOnFirstUse();
    if (anyNull(pszArg1, pszArg2)) return refuse();
    return forward(KESTA_ComFunc.m_pUOS_SetLanguage, pszArg2, pszArg1);
}

// ---- Events -------------------------------------------------------------------------------------

void X_getMediaId(std::string& text, _S_DEV_CONFIG* record) {
    text = mediaIdOf(*record);
}

void X_getCurrentSlots() {
    readCurrentSlots(g_WaitEventSlotMap);
}

int WaitForKeyEvent(unsigned int* pulEventType, char* pszMediaId, unsigned int* pulMediaIdLen) {
    LogEntry(kWaitTag, "begin");
    initialiseOnFirstUse();
    if (pszMediaId == nullptr) return answerMediaIdSize(pulMediaIdLen);
    LogEntry("X_getCurrentSlots", "before");
    X_getCurrentSlots();
    LogEntry("X_getCurrentSlots", "after");
    return waitForEvent(g_WaitEventSlotMap, isRun, {pulEventType, pszMediaId, pulMediaIdLen});
}

int StopDetectUKey() {
    begin();
    if (isRun.load(std::memory_order_acquire)) isRun.store(false, std::memory_order_release);
    return KESTA_OK;
}

// ---- Enrolment ----------------------------------------------------------------------------------

int GenerateCertRequest(const char* szSN, const char* requestInfo, char* szP10, int* pnP10Len) {
    begin();
    if (anyNull(szSN, requestInfo, pnP10Len)) return refuse();
    const RequestCall call = {szSN, requestInfo, szP10, pnP10Len};
    if (const auto kept = probeCache.answer(call)) return *kept;
    LgnString requests;
    const int result = makeRequests(KESTA_ComFunc, szSN, requestInfo, requests);
    return result != KESTA_OK ? result : probeCache.handOut(requests, call);
}

int Batch_InitAndGenerateCertRequest(const char* szSN, int initFlag, const char* requestInfo,
                                     char* szP10, int* pnP10Len) {
    LogEntry("Batch_InitAndGenerateCertRequest", "Begin szSN = %s,requestInfo = %s", szSN,
             requestInfo);
    initialiseOnFirstUse();
    if (anyNull(pnP10Len, requestInfo)) return refuse();
    const RequestCall call = {szSN, requestInfo, szP10, pnP10Len};
    // The last error is cleared after this: a kept request is answered with the code that stood.
    if (const auto kept = probeCache.answer(call)) return *kept;
    setLastError(KESTA_OK);
    LgnString requests;
    const int result = makeBatchRequests(KESTA_ComFunc, szSN, initFlag, requestInfo, requests);
    return result != KESTA_OK ? result : probeCache.handOut(requests, call);
}

// ---- Installation of certificates ---------------------------------------------------------------

int ImportX509Cert(const char* szSN, const char* strP7) {
    initialiseOnFirstUse();
    if (anyNull(szSN, strP7)) return refuse();
    probeCache.ReleaseP10Buffer();
    return importCertificate(KESTA_ComFunc, szSN, strP7);
}

int ImportEncX509Cert(const char* szSN, const char* strP7, const char* strPriKey) {
    initialiseOnFirstUse();
    if (anyNull(szSN, strPriKey, strP7)) return refuse();
    probeCache.ReleaseP10Buffer();
    setLastError(KESTA_OK);
    return importEncryption(KESTA_ComFunc, szSN, strP7, strPriKey);
}

// The one import that leaves a kept request alone.
int Batch_ImportX509Cert(const char* szSN, const char* strP7) {
    initialiseOnFirstUse();
    if (strP7 == nullptr) return refuse();
    return importBundle(KESTA_ComFunc, szSN, strP7);
}

// ---- Installation check -------------------------------------------------------------------------

// Tells whether the install directory can be listed. What it must hold (places::kCompanionFiles)
// is not decided here: ukey doctor looks.
int CheckDriverIntegrity(int nMode) {
    begin();
    std::vector<std::string> names;
    if (nMode != 1 || KESTA_ComFunc.find_dir_file(KESTA_INSTALL_DIRECTORY "/", names) != 0) {
        return setLastError(KESTA_UNSUPPORTED);
    }
    return lastError();
}

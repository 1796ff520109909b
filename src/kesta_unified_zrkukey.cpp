// The exports, in the public header's order, and the process-wide state, which nobody else
// includes.
//
// An export initialises the library if need be, checks its arguments in a fixed order, forwards to
// one entry point of the token library or to a module, and hands the result out. Which of them log,
// initialise, clear G_LastError or count a NUL differs on purpose; the public header says each.
#include "kesta_unified_zrkukey.h"

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
static const Token library(KESTA_ComFunc);
static std::atomic<bool> isRun{false};  // set while a wait runs, cleared by a stop

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

// Initialises on first use; true when the arguments that must be there are.
template <typename... Pointers>
bool initialisedWith(Pointers... required) {
    initialiseOnFirstUse();
    return !anyNull(required...);
}

void begin() {
    initialiseOnFirstUse();
    setLastError(KESTA_OK);
}

}  // namespace

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
    if (!initialisedWith(pnErrMsgLen)) return refuse();
    if (pszErrMsg == nullptr) {
        *pnErrMsgLen = limits::kMessage;
        return KESTA_OK;
    }
    if (!KESTA_ComFunc.IsBound()) return setLastError(KESTA_NOT_BOUND);
    const LgnString text = library.message(errCode);
    const bool fits = text.GetLength() < *pnErrMsgLen;
    *pnErrMsgLen = text.GetLength() + 1;
    if (!fits) return setLastError(KESTA_BUFFER_TOO_SMALL);
    std::memcpy(pszErrMsg, text.GetString(), static_cast<std::size_t>(*pnErrMsgLen));
    return KESTA_OK;
}

int GetDriverVersion(char* pszVersion, unsigned int* pnVersionLen) {
    begin();
    return answer("GetDriverVersion", "pszVersion: %s", KESTA_VERSION, pszVersion, pnVersionLen);
}

int GetDllVersion(char* pszVersion, unsigned int* pnVersionLen) {
    LogEntry("GetDllVersion", "Begin pnVersionLen = %08x", *pnVersionLen);
    begin();
    return answer("GetDllVersion", "pszVersion: %s", KESTA_VERSION, pszVersion, pnVersionLen);
}

int GetVidAndPid(char* pszVidPid, unsigned int* pnVidPidLen) {
    LogEntry("GetVidAndPid", "Begin pnVidPidLen = %08x", *pnVidPidLen);
    begin();
    return answer("GetVidAndPid", "pszVidPid: %s", places::kUsbIds, pszVidPid, pnVidPidLen);
}

int GetPrintNumber(char* pszSN, unsigned int* pnSNLen) {
    constexpr const char* kTag = "GetPrintNumber";
    LogEntry(kTag, "Begin pnSNLen = %08x", *pnSNLen);
    begin();
    std::uint32_t state = 0;
    _S_DEV_CONFIG record = {};
    char serial[limits::kSerialBuffer] = {};
    const int result = library.CheckDeviceEx(&state, &record, 1, &serial[0]);
    if (result == KESTA_OK) handOutWhole(serial, pszSN, pnSNLen);
    if (pszSN != nullptr) LogEntry(kTag, "m_SN: %s", pszSN);
    return logEnd(kTag, result);
}

int GetVendorInfo(int nLanguage, char* pszVendor, unsigned int* pnVendorLen) {
    begin();
    if (nLanguage < 0 || nLanguage > 2) return setLastError(KESTA_UNSUPPORTED);
    const std::string_view name = nLanguage == 2 ? places::kMakerEnglish : places::kMakerChinese;
    if (pszVendor == nullptr) {
        *pnVendorLen = static_cast<unsigned int>(name.size());
    } else {
        pszVendor[name.copy(pszVendor, name.size())] = '\0';
    }
    return KESTA_OK;
}

int ChangePin(const char* szSN) {
    logBegin("ChangePin");
    logSerial(szSN);
    begin();
    return logEnd("ChangePin", library.ChangePin(szSN));
}

int InitUKey(const char* szSN) {
    logBegin("InitUKey");
    logSerial(szSN);
    if (!isInitialised()) return KESTA_NOT_INITIALISED;
    setLastError(KESTA_OK);
    return logEnd("InitUKey", library.CustInitCard(szSN, 0, nullptr, 0));
}

int TestInitUKey(const char* szSN, void* pParam) {
    logBegin("TestInitUKey");
    begin();
    return logEnd("TestInitUKey", library.CustInitCard(szSN, 0, pParam, 0));
}

int VerifyPIN(const char* szSN) {
    initialiseOnFirstUse();
    return library.VerifyPIN(szSN);
}

int TestVerifyAndCachePin(const char* szSN, void* pParam) {
    initialiseOnFirstUse();
    return library.VerifyAndCachePin(szSN, pParam);
}

int GetPinInfo(const char* szSN, void* pPinInfo, unsigned int* pnPinInfoLen) {
    if (!initialisedWith(pnPinInfoLen)) return refuse();
    if (pPinInfo == nullptr) return answerSize(pnPinInfoLen, limits::kPinInformation);
    return library.GetPinInfo(szSN, pPinInfo, pnPinInfoLen);
}

int SetCachePinFlag(const char* szSN, int nFlag) {
    setLastError(KESTA_OK);
    return library.SetCachePinFlag(szSN, nFlag);
}

int RemovePinCache() {
    begin();
    return library.GM_RemoveUserPin();
}

int GetCert(const char* szSN, unsigned int nParam1, unsigned int nParam2, char* pszCert,
            unsigned int* pnCertLen) {
    if (!initialisedWith(pnCertLen, szSN)) return refuse();
    char certificate[limits::kCertificateBuffer] = {};
    std::uint32_t length = sizeof certificate;
    const int result = library.GetCertInfo(szSN, nParam1, nParam2, &certificate[0], &length);
    if (result != KESTA_OK) return result;
    return handOut({certificate, sizeof certificate, length}, pszCert, pnCertLen);
}

int GetCertDN(const char* szSN, unsigned int nParam1, unsigned int nParam2, char* pszDN,
              int* pnDNLen) {
    if (!initialisedWith(pnDNLen, szSN)) return refuse();
    return readAndHandOut<limits::kNameBuffer>(pszDN, pnDNLen, [=](char* name) {
        return library.GM_GetCertDN(szSN, nParam1, nParam2, name);
    });
}

int GetCertInfo(const char* szSN, unsigned int nParam, void* pInfo, unsigned int* pnInfoLen) {
    if (!initialisedWith(pnInfoLen)) return refuse();
    if (pInfo == nullptr) return answerSize(pnInfoLen, limits::kCertificateInformation);
    return library.GetCertInfo_UOS(szSN, nParam, pInfo, pnInfoLen);
}

int DelCertAndTempKey(const char* szSN, unsigned int nParam1, unsigned int nParam2) {
    initialiseOnFirstUse();
    return library.DelCertAndTempKey(szSN, nParam1, nParam2);
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

int Sign(const char* szSN, int nOption1, int nOption2, const char* pszData,
         const char* pszWarningMsg, char* pszSignature, unsigned int* pnSignatureLen) {
    if (!initialisedWith(pszData, pnSignatureLen, pszWarningMsg)) return refuse();
    if (pszSignature == nullptr) return answerSize(pnSignatureLen, workSize(pszData));
    const int result = library.SetWarningMsg(szSN, pszWarningMsg);
    if (result != KESTA_OK) return result;
    return library.GMUsbKeyCriticalSign(szSN, nOption1, nOption2, pszData, pszSignature,
                                        pnSignatureLen);
}

int SignHash(const char* szSN, int nOption1, int nOption2, const char* pszHash, int nOption3,
             char* pszSignature, unsigned int* pnSignatureLen) {
    if (!initialisedWith(pnSignatureLen, pszHash)) return refuse();
    const std::uint32_t size = workSize(pszHash);
    if (pszSignature == nullptr) return answerSize(pnSignatureLen, size);
    setLastError(KESTA_OK);
    const auto work = std::make_unique<char[]>(size);
    const WritableCopy serial(szSN), hash(pszHash);
    const int result = library.GMUsbKeyCommonSign(serial.get(), nOption1, nOption2, hash.get(),
                                                  nOption3, work.get(), pnSignatureLen);
    if (result == KESTA_OK) copyText(pszSignature, work.get(), size, size);
    return result;
}

int Batch_Sign(unsigned int nFlags, void* pParam2, int nParam3, int nParam4, const char* pszData,
               void* pParam6, void* pParam7, int nParam8, int nParam9, const char* pszDataList,
               int nParam11, char* pszSignatures, unsigned int* pnSignaturesLen) {
    if (!initialisedWith(pnSignaturesLen)) return refuse();
    if (pszSignatures == nullptr) {
        const char* list = pszDataList == nullptr ? "" : pszDataList;
        return answerSize(pnSignaturesLen, batchSize(pszData, pszDataList,
                                                     KESTA_ComFunc.GetSubStringCount(list, "||")));
    }
    if ((nFlags & 1) != 0 && anyNull(pParam2, pParam6, pszData)) return refuse();
    return library.Batch_Sign(nFlags, pParam2, nParam3, nParam4, pszData, pParam6, pParam7, nParam8,
                              nParam9, pszDataList, nParam11, pszSignatures, pnSignaturesLen);
}

int AsymDec(const char* szSN, int nOption1, unsigned int nOption2, const char* pszCipher,
            char* pszPlain, unsigned int* pnPlainLen) {
    if (!initialisedWith(pnPlainLen, pszCipher)) return refuse();
    const std::uint32_t size = workSize(pszCipher);
    if (pszPlain == nullptr) return answerSize(pnPlainLen, size);
    setLastError(KESTA_OK);
    const auto work = std::make_unique<char[]>(size);
    const WritableCopy serial(szSN), cipher(pszCipher, removeLineBreaks);
    std::uint32_t length = size;
    const int result = library.GMUSBKeyAsymDec2(serial.get(), nOption1, nOption2, cipher.get(),
                                                work.get(), &length);
    if (result != KESTA_OK) return result;
    return handOut({work.get(), size, length}, pszPlain, pnPlainLen);
}

int GetLabel(const char* szSN, char* pszLabel, int* pnLabelLen) {
    if (!initialisedWith(pnLabelLen, szSN) || *szSN == '\0') return refuse();
    return readAndHandOut<limits::kLabelBuffer>(pszLabel, pnLabelLen, [=](char* label) {
        return library.GetLabel(WritableCopy(szSN).get(), label);
    });
}

int SetLabel(const char* szSN, const char* szLabel) {
    if (!initialisedWith(szSN, szLabel)) return refuse();
    return library.SetLabel(szSN, szLabel);
}

int SetData(const char* szName, unsigned int nParam, const char* szValue) {
    if (!initialisedWith(szName, szValue) || !isDataName(szName) || !isDataValue(szValue))
        return refuse();
    return library.SetData(szName, nParam, szValue);
}

int GetData(const char* szName, unsigned int nParam, char* pszValue, int* pnValueLen) {
    if (!initialisedWith(szName, pnValueLen) || !isDataName(szName)) return refuse();
    return readAndHandOut<limits::kDataBuffer>(
        pszValue, pnValueLen, [=](char* value) { return library.GetData(szName, nParam, value); },
        1);
}

int SetCharset(const char* pszArg1, const char* pszArg2) {
    if (!initialisedWith(pszArg1, pszArg2)) return refuse();
    return library.UOS_SetCharset(pszArg2, pszArg1);
}

int SetLanguage(const char* pszArg1, const char* pszArg2) {
    if (!initialisedWith(pszArg1, pszArg2)) return refuse();
    return library.UOS_SetLanguage(pszArg2, pszArg1);
}

// With C++ linkage, exported for the maker's own tools.
KESTA_API void X_getMediaId(std::string& text, _S_DEV_CONFIG* record) {
    text = mediaIdOf(*record);
}

KESTA_API void X_getCurrentSlots() {
    readCurrentSlots(g_WaitEventSlotMap);
}

int WaitForKeyEvent(unsigned int* pulEventType, char* pszMediaId, unsigned int* pulMediaIdLen) {
    LogEntry(kWaitTag, "begin");
    initialiseOnFirstUse();
    if (pszMediaId == nullptr) return answerMediaIdSize(pulMediaIdLen);
    stayLoaded();
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

int GenerateCertRequest(const char* szSN, const char* requestInfo, char* szP10, int* pnP10Len) {
    begin();
    if (anyNull(szSN, requestInfo, pnP10Len)) return refuse();
    return probeCache.serve({szSN, requestInfo, szP10, pnP10Len}, [=](LgnString& requests) {
        return makeRequests(library, szSN, requestInfo, requests);
    });
}

int Batch_InitAndGenerateCertRequest(const char* szSN, int initFlag, const char* requestInfo,
                                     char* szP10, int* pnP10Len) {
    LogEntry("Batch_InitAndGenerateCertRequest", "Begin szSN = %s,requestInfo = %s", szSN,
             requestInfo);
    if (!initialisedWith(pnP10Len, requestInfo)) return refuse();
    return probeCache.serve({szSN, requestInfo, szP10, pnP10Len}, [=](LgnString& requests) {
        setLastError(KESTA_OK);  // not before: a kept request is answered with the code that stood
        return makeBatchRequests(library, szSN, initFlag, requestInfo, requests);
    });
}

int ImportX509Cert(const char* szSN, const char* strP7) {
    if (!initialisedWith(szSN, strP7)) return refuse();
    probeCache.ReleaseP10Buffer();
    return importCertificate(library, szSN, strP7);
}

int ImportEncX509Cert(const char* szSN, const char* strP7, const char* strPriKey) {
    if (!initialisedWith(szSN, strPriKey, strP7)) return refuse();
    probeCache.ReleaseP10Buffer();
    setLastError(KESTA_OK);
    return importEncryption(library, szSN, strP7, strPriKey);
}

// The one import that leaves a kept request alone.
int Batch_ImportX509Cert(const char* szSN, const char* strP7) {
    if (!initialisedWith(strP7)) return refuse();
    return importBundle(library, szSN, strP7);
}

// Tells whether the install directory can be listed. What it must hold (places::kCompanionFiles)
// is not decided here: ukey doctor looks.
int CheckDriverIntegrity(int nMode) {
    begin();
    std::vector<std::string> names;
    const bool listed =
        nMode == 1 && KESTA_ComFunc.find_dir_file(KESTA_INSTALL_DIRECTORY "/", names) == 0;
    return setLastError(listed ? KESTA_OK : KESTA_UNSUPPORTED);
}

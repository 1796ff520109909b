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

static CommonFunction kestaComFunc;
static const Token library(kestaComFunc);
static std::atomic<bool> isRun{false};  // set while a wait runs, cleared by a stop

// The request that the latest probe made, and what it was made for. All three or none.
static char* g_szLastP10 = nullptr;
static char* g_szLastReq = nullptr;
static char* g_szLastSN = nullptr;
static ProbeCache probeCache(g_szLastP10, g_szLastReq, g_szLastSN);

namespace {

bool IsInitialised() {
    return __atomic_load_n(&g_initFlag, __ATOMIC_ACQUIRE);
}

void InitialiseOnFirstUse() {
    // The result is not looked at: an export that asks the token answers for a failed binding.
    if (!IsInitialised()) Initialize();
}

// Initialises on first use; true when the arguments that must be there are.
template <typename... Pointers>
bool InitialisedWith(Pointers... required) {
    InitialiseOnFirstUse();
    return !AnyNull(required...);
}

void Begin() {
    InitialiseOnFirstUse();
    SetLastError(KESTA_OK);
}

}  // namespace

int Initialize() {
    SetLastError(KESTA_OK);
    const int result = SetLastError(kestaComFunc.init());
    if (result == KESTA_OK) __atomic_store_n(&g_initFlag, true, __ATOMIC_SEQ_CST);
    return result;
}

void Finalize() {
    __atomic_store_n(&g_initFlag, false, __ATOMIC_SEQ_CST);
    SetLastError(KESTA_OK);
}

void GetLastErrCode(unsigned int* pErrCode) {
    if (pErrCode == nullptr) {
        Refuse();
        return;
    }
    *pErrCode = static_cast<unsigned int>(LastError());
}

int GetErrorMsg(int errCode, char* pszErrMsg, int* pnErrMsgLen) {
    if (!InitialisedWith(pnErrMsgLen)) return Refuse();
    if (pszErrMsg == nullptr) {
        *pnErrMsgLen = limits::kMessage;
        return KESTA_OK;
    }
    if (!kestaComFunc.IsBound()) return SetLastError(KESTA_NOT_BOUND);
    const LgnString text = library.Message(errCode);
    const bool fits = text.GetLength() < *pnErrMsgLen;
    *pnErrMsgLen = text.GetLength() + 1;
    if (!fits) return SetLastError(KESTA_BUFFER_TOO_SMALL);
    std::memcpy(pszErrMsg, text.GetString(), static_cast<std::size_t>(*pnErrMsgLen));
    return KESTA_OK;
}

int GetDriverVersion(char* pszVersion, unsigned int* pnVersionLen) {
    Begin();
    return Answer("GetDriverVersion", "pszVersion: %s", KESTA_VERSION, pszVersion, pnVersionLen);
}

int GetDllVersion(char* pszVersion, unsigned int* pnVersionLen) {
    LogEntry("GetDllVersion", "Begin pnVersionLen = %08x", *pnVersionLen);
    Begin();
    return Answer("GetDllVersion", "pszVersion: %s", KESTA_VERSION, pszVersion, pnVersionLen);
}

int GetVidAndPid(char* pszVidPid, unsigned int* pnVidPidLen) {
    LogEntry("GetVidAndPid", "Begin pnVidPidLen = %08x", *pnVidPidLen);
    Begin();
    return Answer("GetVidAndPid", "pszVidPid: %s", places::kUsbIds, pszVidPid, pnVidPidLen);
}

int GetPrintNumber(char* pszSN, unsigned int* pnSNLen) {
    constexpr const char* kTag = "GetPrintNumber";
    LogEntry(kTag, "Begin pnSNLen = %08x", *pnSNLen);
    Begin();
    std::uint32_t state = 0;
    _S_DEV_CONFIG record = {};
    char serial[limits::kSerialBuffer] = {};
    const int result = library.CheckDeviceEx(&state, &record, 1, &serial[0]);
    if (result == KESTA_OK) HandOutWhole(serial, pszSN, pnSNLen);
    if (pszSN != nullptr) LogEntry(kTag, "m_SN: %s", pszSN);
    return LogEnd(kTag, result);
}

int GetVendorInfo(int nLanguage, char* pszVendor, unsigned int* pnVendorLen) {
    Begin();
    if (nLanguage < 0 || nLanguage > 2) return SetLastError(KESTA_UNSUPPORTED);
    const std::string_view name = nLanguage == 2 ? places::kMakerEnglish : places::kMakerChinese;
    if (pszVendor == nullptr) {
        *pnVendorLen = static_cast<unsigned int>(name.size());
    } else {
        pszVendor[name.copy(pszVendor, name.size())] = '\0';
    }
    return KESTA_OK;
}

int ChangePin(const char* szSN) {
    LogBegin("ChangePin");
    LogSerial(szSN);
    Begin();
    return LogEnd("ChangePin", library.ChangePin(szSN));
}

int InitUKey(const char* szSN) {
    LogBegin("InitUKey");
    LogSerial(szSN);
    if (!IsInitialised()) return KESTA_NOT_INITIALISED;
    SetLastError(KESTA_OK);
    return LogEnd("InitUKey", library.CustInitCard(szSN, 0, nullptr, 0));
}

int TestInitUKey(const char* szSN, void* pParam) {
    LogBegin("TestInitUKey");
    Begin();
    return LogEnd("TestInitUKey", library.CustInitCard(szSN, 0, pParam, 0));
}

int VerifyPIN(const char* szSN) {
    InitialiseOnFirstUse();
    return library.VerifyPIN(szSN);
}

int TestVerifyAndCachePin(const char* szSN, void* pParam) {
    InitialiseOnFirstUse();
    return library.VerifyAndCachePin(szSN, pParam);
}

int GetPinInfo(const char* szSN, void* pPinInfo, unsigned int* pnPinInfoLen) {
    if (!InitialisedWith(pnPinInfoLen)) return Refuse();
    if (pPinInfo == nullptr) return AnswerSize(pnPinInfoLen, limits::kPinInformation);
    return library.GetPinInfo(szSN, pPinInfo, pnPinInfoLen);
}

int SetCachePinFlag(const char* szSN, int nFlag) {
    SetLastError(KESTA_OK);
    return library.SetCachePinFlag(szSN, nFlag);
}

int RemovePinCache() {
    Begin();
    return library.GM_RemoveUserPin();
}

int GetCert(const char* szSN, unsigned int nParam1, unsigned int nParam2, char* pszCert,
            unsigned int* pnCertLen) {
    if (!InitialisedWith(pnCertLen, szSN)) return Refuse();
    char certificate[limits::kCertificateBuffer] = {};
    std::uint32_t length = sizeof certificate;
    const int result = library.GetCertInfo(szSN, nParam1, nParam2, &certificate[0], &length);
    if (result != KESTA_OK) return result;
    return HandOut({certificate, sizeof certificate, length}, pszCert, pnCertLen);
}

int GetCertDN(const char* szSN, unsigned int nParam1, unsigned int nParam2, char* pszDN,
              int* pnDNLen) {
    if (!InitialisedWith(pnDNLen, szSN)) return Refuse();
    return ReadAndHandOut<limits::kNameBuffer>(pszDN, pnDNLen, [=](char* name) {
        return library.GM_GetCertDN(szSN, nParam1, nParam2, name);
    });
}

int GetCertInfo(const char* szSN, unsigned int nParam, void* pInfo, unsigned int* pnInfoLen) {
    if (!InitialisedWith(pnInfoLen)) return Refuse();
    if (pInfo == nullptr) return AnswerSize(pnInfoLen, limits::kCertificateInformation);
    return library.GetCertInfo_UOS(szSN, nParam, pInfo, pnInfoLen);
}

int DelCertAndTempKey(const char* szSN, unsigned int nParam1, unsigned int nParam2) {
    InitialiseOnFirstUse();
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
    if (!InitialisedWith(pszData, pnSignatureLen, pszWarningMsg)) return Refuse();
    if (pszSignature == nullptr) return AnswerSize(pnSignatureLen, WorkSize(pszData));
    const int result = library.SetWarningMsg(szSN, pszWarningMsg);
    if (result != KESTA_OK) return result;
    return library.GMUsbKeyCriticalSign(szSN, nOption1, nOption2, pszData, pszSignature,
                                        pnSignatureLen);
}

int SignHash(const char* szSN, int nOption1, int nOption2, const char* pszHash, int nOption3,
             char* pszSignature, unsigned int* pnSignatureLen) {
    if (!InitialisedWith(pnSignatureLen, pszHash)) return Refuse();
    const std::uint32_t size = WorkSize(pszHash);
    if (pszSignature == nullptr) return AnswerSize(pnSignatureLen, size);
    SetLastError(KESTA_OK);
    const auto work = std::make_unique<char[]>(size);
    const WritableCopy serial(szSN), hash(pszHash);
    const int result = library.GMUsbKeyCommonSign(serial.get(), nOption1, nOption2, hash.get(),
                                                  nOption3, work.get(), pnSignatureLen);
    if (result == KESTA_OK) CopyText(pszSignature, work.get(), size, size);
    return result;
}

int Batch_Sign(unsigned int nFlags, void* pParam2, int nParam3, int nParam4, const char* pszData,
               void* pParam6, void* pParam7, int nParam8, int nParam9, const char* pszDataList,
               int nParam11, char* pszSignatures, unsigned int* pnSignaturesLen) {
    if (!InitialisedWith(pnSignaturesLen)) return Refuse();
    if (pszSignatures == nullptr) {
        const char* list = pszDataList == nullptr ? "" : pszDataList;
        return AnswerSize(pnSignaturesLen, BatchSize(pszData, pszDataList,
                                                     kestaComFunc.GetSubStringCount(list, "||")));
    }
    if ((nFlags & 1) != 0 && AnyNull(pParam2, pParam6, pszData)) return Refuse();
    return library.Batch_Sign(nFlags, pParam2, nParam3, nParam4, pszData, pParam6, pParam7, nParam8,
                              nParam9, pszDataList, nParam11, pszSignatures, pnSignaturesLen);
}

int AsymDec(const char* szSN, int nOption1, unsigned int nOption2, const char* pszCipher,
            char* pszPlain, unsigned int* pnPlainLen) {
    if (!InitialisedWith(pnPlainLen, pszCipher)) return Refuse();
    const std::uint32_t size = WorkSize(pszCipher);
    if (pszPlain == nullptr) return AnswerSize(pnPlainLen, size);
    SetLastError(KESTA_OK);
    const auto work = std::make_unique<char[]>(size);
    const WritableCopy serial(szSN), cipher(pszCipher, RemoveLineBreaks);
    std::uint32_t length = size;
    const int result = library.GMUSBKeyAsymDec2(serial.get(), nOption1, nOption2, cipher.get(),
                                                work.get(), &length);
    if (result != KESTA_OK) return result;
    return HandOut({work.get(), size, length}, pszPlain, pnPlainLen);
}

int GetLabel(const char* szSN, char* pszLabel, int* pnLabelLen) {
    if (!InitialisedWith(pnLabelLen, szSN) || *szSN == '\0') return Refuse();
    return ReadAndHandOut<limits::kLabelBuffer>(pszLabel, pnLabelLen, [=](char* label) {
        return library.GetLabel(WritableCopy(szSN).get(), label);
    });
}

int SetLabel(const char* szSN, const char* szLabel) {
    if (!InitialisedWith(szSN, szLabel)) return Refuse();
    return library.SetLabel(szSN, szLabel);
}

int SetData(const char* szName, unsigned int nParam, const char* szValue) {
    if (!InitialisedWith(szName, szValue) || !IsDataName(szName) || !IsDataValue(szValue))
        return Refuse();
    return library.SetData(szName, nParam, szValue);
}

int GetData(const char* szName, unsigned int nParam, char* pszValue, int* pnValueLen) {
    if (!InitialisedWith(szName, pnValueLen) || !IsDataName(szName)) return Refuse();
    return ReadAndHandOut<limits::kDataBuffer>(
        pszValue, pnValueLen, [=](char* value) { return library.GetData(szName, nParam, value); },
        1);
}

int SetCharset(const char* pszArg1, const char* pszArg2) {
    if (!InitialisedWith(pszArg1, pszArg2)) return Refuse();
    return library.UOS_SetCharset(pszArg2, pszArg1);
}

int SetLanguage(const char* pszArg1, const char* pszArg2) {
    if (!InitialisedWith(pszArg1, pszArg2)) return Refuse();
    return library.UOS_SetLanguage(pszArg2, pszArg1);
}

// With C++ linkage, exported for the maker's own tools.
KESTA_API void X_getMediaId(std::string& text, _S_DEV_CONFIG* record) {
    text = MediaIdOf(*record);
}

KESTA_API void X_getCurrentSlots() {
    ReadCurrentSlots(g_WaitEventSlotMap);
}

int WaitForKeyEvent(unsigned int* pulEventType, char* pszMediaId, unsigned int* pulMediaIdLen) {
    LogEntry(kWaitTag, "begin");
    InitialiseOnFirstUse();
    if (pszMediaId == nullptr) return AnswerMediaIdSize(pulMediaIdLen);
    StayLoaded();
    LogEntry("X_getCurrentSlots", "before");
    X_getCurrentSlots();
    LogEntry("X_getCurrentSlots", "after");
    return WaitForEvent(g_WaitEventSlotMap, isRun, {pulEventType, pszMediaId, pulMediaIdLen});
}

int StopDetectUKey() {
    Begin();
    if (isRun.load(std::memory_order_acquire)) isRun.store(false, std::memory_order_release);
    return KESTA_OK;
}

int GenerateCertRequest(const char* szSN, const char* requestInfo, char* szP10, int* pnP10Len) {
    Begin();
    if (AnyNull(szSN, requestInfo, pnP10Len)) return Refuse();
    return probeCache.Serve({szSN, requestInfo, szP10, pnP10Len}, [=](LgnString& requests) {
        return MakeRequests(library, szSN, requestInfo, requests);
    });
}

int Batch_InitAndGenerateCertRequest(const char* szSN, int initFlag, const char* requestInfo,
                                     char* szP10, int* pnP10Len) {
    LogEntry("Batch_InitAndGenerateCertRequest", "Begin szSN = %s,requestInfo = %s", szSN,
             requestInfo);
    if (!InitialisedWith(pnP10Len, requestInfo)) return Refuse();
    return probeCache.Serve({szSN, requestInfo, szP10, pnP10Len}, [=](LgnString& requests) {
        SetLastError(KESTA_OK);  // not before: a kept request is answered with the code that stood
        return MakeBatchRequests(library, szSN, initFlag, requestInfo, requests);
    });
}

int ImportX509Cert(const char* szSN, const char* strP7) {
    if (!InitialisedWith(szSN, strP7)) return Refuse();
    probeCache.ReleaseP10Buffer();
    return ImportCertificate(library, szSN, strP7);
}

int ImportEncX509Cert(const char* szSN, const char* strP7, const char* strPriKey) {
    if (!InitialisedWith(szSN, strPriKey, strP7)) return Refuse();
    probeCache.ReleaseP10Buffer();
    SetLastError(KESTA_OK);
    return ImportEncryption(library, szSN, strP7, strPriKey);
}

// The one import that leaves a kept request alone.
int Batch_ImportX509Cert(const char* szSN, const char* strP7) {
    if (!InitialisedWith(strP7)) return Refuse();
    return ImportBundle(library, szSN, strP7);
}

// Tells whether the install directory can be listed. What it must hold (places::kCompanionFiles)
// is not decided here: ukey doctor looks.
int CheckDriverIntegrity(int nMode) {
    Begin();
    std::vector<std::string> names;
    const bool listed =
        nMode == 1 && kestaComFunc.find_dir_file(KESTA_INSTALL_DIRECTORY "/", names) == 0;
    return SetLastError(listed ? KESTA_OK : KESTA_UNSUPPORTED);
}

// The exports and the process-wide state.
//
// An export initialises the library if need be, checks its arguments in a fixed order, forwards to
// one entry point of the token library, and hands the result out. Which of them log, initialise,
// clear G_LastError first or count a NUL differs on purpose; the public header says each.
#include "kesta_unified_zrkukey.h"

#include <cxxabi.h>
#include <string.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <limits>
#include <memory>
#include <new>

#include "commonfunction.h"
#include "import_text.h"
#include "kesta/event_library.h"
#include "kesta/places.h"
#include "last_error.h"
#include "request_info.h"

// With C++ linkage, exported for the maker's own tools.
KESTA_API void X_getCurrentSlots();
KESTA_API void X_getMediaId(std::string& text, _S_DEV_CONFIG* record);

int G_LastError = 0;
bool g_initFlag = false;

using SlotMap = std::map<unsigned int, std::string>;

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


namespace {

constexpr const char* kEndFormat = "End G_LastError: %08X";

void initialiseOnFirstUse() {
    // The result is not looked at: an export that asks the token answers for a failed binding.
    if (!__atomic_load_n(&g_initFlag, __ATOMIC_ACQUIRE)) Initialize();
}

// Calls an entry point of the bound library. The table may hold pointers of an earlier binding, so
// the handle is asked. Arguments take the entry point's own types.
template <typename... Parameters>
int callToken(int (*const& slot)(Parameters...), Parameters... arguments) {
    if (!KESTA_ComFunc.IsBound()) return KESTA_NOT_BOUND;
    return __atomic_load_n(&slot, __ATOMIC_RELAXED)(arguments...);
}

// As callToken, and the result becomes the export's.
template <typename... Parameters, typename... Arguments>
int forward(int (*const& slot)(Parameters...), Arguments&&... arguments) {
    return setLastError(callToken<Parameters...>(slot, static_cast<Parameters>(arguments)...));
}

void logEnd(const char* tag, int result) {
    LogEntry(tag, kEndFormat, static_cast<unsigned>(result));
}

LgnString copyOf(const char* text) {
    return LgnString(text, LGN::TextLength(text), _lgnBufferManager);
}

// A private copy of a text that the token library may write to.
class WritableCopy {
public:
    explicit WritableCopy(const char* text)
        : m_text(copyOf(text)), m_characters(m_text.GetBuffer(m_text.GetLength())) {}
    char* get() const { return m_characters; }

private:
    LgnString m_text;
    char* m_characters;
};

// Copies at most capacity characters of a text that may fill its array, and a NUL behind them.
void copyText(char* to, const char* text, std::size_t arraySize, std::size_t capacity) {
    const std::size_t length = std::min(strnlen(text, arraySize), capacity);
    std::memcpy(to, text, length);
    to[length] = '\0';
}

int lengthIn(const char* text, std::size_t arraySize) {
    return static_cast<int>(strnlen(text, arraySize));
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
        setLastError(KESTA_BAD_ARGUMENT);
        return;
    }
    *pErrCode = static_cast<unsigned int>(lastError());
}

int GetErrorMsg(int errCode, char* pszErrMsg, int* pnErrMsgLen) {
    initialiseOnFirstUse();
    if (pnErrMsgLen == nullptr) return setLastError(KESTA_BAD_ARGUMENT);
    if (pszErrMsg == nullptr) {
        *pnErrMsgLen = 200;
        return KESTA_OK;
    }
    if (!KESTA_ComFunc.IsBound()) return setLastError(KESTA_NOT_BOUND);
    const char* message =
        __atomic_load_n(&KESTA_ComFunc.m_pX_ErrorConvert_UOS, __ATOMIC_RELAXED)(errCode);
    const LgnString text = copyOf(message);
    const int length = text.GetLength();
    const bool fits = length < *pnErrMsgLen;
    *pnErrMsgLen = length + 1;
    if (!fits) return setLastError(KESTA_BUFFER_TOO_SMALL);
    std::memcpy(pszErrMsg, text.GetString(), static_cast<std::size_t>(length) + 1);
    return KESTA_OK;
}

// ---- Identity -----------------------------------------------------------------------------------

namespace {

constexpr const char kVersion[] = "9.2025.0731.3";
constexpr const char kVidAndPid[] = "2E5A&0301";
constexpr const char kVendorChinese[] = "岚岫诚科技股份有限公司";
constexpr const char kVendorEnglish[] = "Quillorn Corporation";
static_assert(sizeof kVersion - 1 == 13 && sizeof kVidAndPid - 1 == 9, "fixed lengths");
static_assert(sizeof kVendorChinese - 1 == 33 && sizeof kVendorEnglish - 1 == 20, "fixed lengths");

// Answers a constant without its NUL. The caller's capacity is not compared.
int answerConstant(const char* tag, const char* format, const char* text, char* buffer,
                   unsigned int* length) {
    initialiseOnFirstUse();
    setLastError(KESTA_OK);
    const std::size_t size = std::strlen(text);
    if (buffer != nullptr) std::memcpy(buffer, text, size);
    *length = static_cast<unsigned int>(size);
    if (buffer != nullptr) LogEntry(tag, format, text);
    const int result = lastError();
    logEnd(tag, result);
    return result;
}

}  // namespace

int GetDriverVersion(char* pszVersion, unsigned int* pnVersionLen) {
    return answerConstant("GetDriverVersion", "pszVersion: %s", kVersion, pszVersion, pnVersionLen);
}

int GetDllVersion(char* pszVersion, unsigned int* pnVersionLen) {
    LogEntry("GetDllVersion", "Begin pnVersionLen = %08x", *pnVersionLen);
    return answerConstant("GetDllVersion", "pszVersion: %s", kVersion, pszVersion, pnVersionLen);
}

int GetVidAndPid(char* pszVidPid, unsigned int* pnVidPidLen) {
    LogEntry("GetVidAndPid", "Begin pnVidPidLen = %08x", *pnVidPidLen);
    return answerConstant("GetVidAndPid", "pszVidPid: %s", kVidAndPid, pszVidPid, pnVidPidLen);
}

int GetPrintNumber(char* pszSN, unsigned int* pnSNLen) {
    constexpr const char* kTag = "GetPrintNumber";
    LogEntry(kTag, "Begin pnSNLen = %08x", *pnSNLen);
    initialiseOnFirstUse();
    setLastError(KESTA_OK);

    std::uint32_t state = 0;
    _S_DEV_CONFIG record = {};
    char serial[1024] = {};
    const int result = forward(KESTA_ComFunc.m_pCheckDeviceEx, &state, &record, 1, &serial[0]);
    if (result == KESTA_OK) {
        *pnSNLen = static_cast<unsigned int>(strnlen(serial, sizeof serial));
        if (pszSN != nullptr) copyText(pszSN, serial, sizeof serial, *pnSNLen);
    }
    if (pszSN != nullptr) LogEntry(kTag, "m_SN: %s", pszSN);
    logEnd(kTag, result);
    return result;
}

int GetVendorInfo(int nLanguage, char* pszVendor, unsigned int* pnVendorLen) {
    initialiseOnFirstUse();
    setLastError(KESTA_OK);
    if (nLanguage < 0 || nLanguage > 2) return setLastError(KESTA_UNSUPPORTED);
    const char* name = nLanguage == 2 ? kVendorEnglish : kVendorChinese;
    const std::size_t length = std::strlen(name);
    if (pszVendor != nullptr) {
        std::memcpy(pszVendor, name, length + 1);
    } else {
        *pnVendorLen = static_cast<unsigned int>(length);
    }
    return KESTA_OK;
}

// ---- PIN and initialisation ---------------------------------------------------------------------

namespace {

void logSerial(const char* szSN) {
    LogHex("szSN:", szSN, LGN::TextLength(szSN));
}

}  // namespace

int ChangePin(const char* szSN) {
    LogEntry("ChangePin", "Begin");
    logSerial(szSN);
    initialiseOnFirstUse();
    setLastError(KESTA_OK);
    const int result = forward(KESTA_ComFunc.m_pChangePin, szSN);
    logEnd("ChangePin", result);
    return result;
}

int InitUKey(const char* szSN) {
    LogEntry("InitUKey", "Begin");
    logSerial(szSN);
    if (!__atomic_load_n(&g_initFlag, __ATOMIC_ACQUIRE)) return KESTA_NOT_INITIALISED;
    setLastError(KESTA_OK);
    const int result = forward(KESTA_ComFunc.m_pCustInitCard, szSN, 0, nullptr, 0);
    logEnd("InitUKey", result);
    return result;
}

int TestInitUKey(const char* szSN, void* pParam) {
    LogEntry("TestInitUKey", "Begin");
    initialiseOnFirstUse();
    setLastError(KESTA_OK);
    const int result = forward(KESTA_ComFunc.m_pCustInitCard, szSN, 0, pParam, 0);
    logEnd("TestInitUKey", result);
    return result;
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
    if (pnPinInfoLen == nullptr) return setLastError(KESTA_BAD_ARGUMENT);
    if (pPinInfo == nullptr) {
        *pnPinInfoLen = 8;
        return setLastError(KESTA_OK);
    }
    return forward(KESTA_ComFunc.m_pGetPinInfo, szSN, pPinInfo, pnPinInfoLen);
}

int SetCachePinFlag(const char* szSN, int nFlag) {
    setLastError(KESTA_OK);
    return forward(KESTA_ComFunc.m_pSetCachePinFlag, szSN, nFlag);
}

int RemovePinCache() {
    initialiseOnFirstUse();
    setLastError(KESTA_OK);
    return forward(KESTA_ComFunc.m_pGM_RemoveUserPin);
}

// ---- Certificates -------------------------------------------------------------------------------

int GetCert(const char* szSN, unsigned int nParam1, unsigned int nParam2, char* pszCert,
            unsigned int* pnCertLen) {
    initialiseOnFirstUse();
    if (pnCertLen == nullptr || szSN == nullptr) return setLastError(KESTA_BAD_ARGUMENT);
    char certificate[4096] = {};
    std::uint32_t length = sizeof certificate;
    const int result =
        forward(KESTA_ComFunc.m_pGetCertInfo, szSN, nParam1, nParam2, &certificate[0], &length);
    if (result != KESTA_OK) return result;
    if (pszCert == nullptr) {
        *pnCertLen = length + 1;
        return KESTA_OK;
    }
    const std::uint32_t capacity = *pnCertLen;
    *pnCertLen = length;
    if (static_cast<std::int32_t>(capacity) < static_cast<std::int32_t>(length)) {
        return setLastError(KESTA_BUFFER_TOO_SMALL);
    }
    copyText(pszCert, certificate, sizeof certificate, capacity);
    return KESTA_OK;
}

int GetCertDN(const char* szSN, unsigned int nParam1, unsigned int nParam2, char* pszDN,
              int* pnDNLen) {
    initialiseOnFirstUse();
    if (pnDNLen == nullptr || szSN == nullptr) return setLastError(KESTA_BAD_ARGUMENT);
    setLastError(KESTA_OK);
    char name[1024] = {};
    const int result = forward(KESTA_ComFunc.m_pGM_GetCertDN, szSN, nParam1, nParam2, &name[0]);
    if (result != KESTA_OK) return result;
    const int length = lengthIn(name, sizeof name);
    if (pszDN == nullptr) {
        *pnDNLen = length + 1;
        return KESTA_OK;
    }
    const bool fits = *pnDNLen >= length;
    *pnDNLen = length;
    if (!fits) return setLastError(KESTA_BUFFER_TOO_SMALL);
    copyText(pszDN, name, sizeof name, sizeof name);
    return KESTA_OK;
}

int GetCertInfo(const char* szSN, unsigned int nParam, void* pInfo, unsigned int* pnInfoLen) {
    initialiseOnFirstUse();
    if (pnInfoLen == nullptr) return setLastError(KESTA_BAD_ARGUMENT);
    if (pInfo == nullptr) {
        *pnInfoLen = 1280;
        return setLastError(KESTA_OK);
    }
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

namespace {

// Twice the text and some room. Counted in 32 bits, as callers of a probe expect.
std::uint32_t workSize(const char* text) {
    return (static_cast<std::uint32_t>(std::strlen(text)) + 4096) * 2;
}

}  // namespace

int Sign(const char* szSN, int nOption1, int nOption2, const char* pszData,
         const char* pszWarningMsg, char* pszSignature, unsigned int* pnSignatureLen) {
    initialiseOnFirstUse();
    if (pszData == nullptr || pnSignatureLen == nullptr || pszWarningMsg == nullptr) {
        return setLastError(KESTA_BAD_ARGUMENT);
    }
    if (pszSignature == nullptr) {
        *pnSignatureLen = workSize(pszData);
        return setLastError(KESTA_OK);
    }
    const int result = forward(KESTA_ComFunc.m_pSetWarningMsg, szSN, pszWarningMsg);
    if (result != KESTA_OK) return result;
    return forward(KESTA_ComFunc.m_pGMUsbKeyCriticalSign, szSN, nOption1, nOption2, pszData,
                   pszSignature, pnSignatureLen);
}

int SignHash(const char* szSN, int nOption1, int nOption2, const char* pszHash, int nOption3,
             char* pszSignature, unsigned int* pnSignatureLen) {
    initialiseOnFirstUse();
    if (pnSignatureLen == nullptr || pszHash == nullptr) return setLastError(KESTA_BAD_ARGUMENT);
    const std::uint32_t size = workSize(pszHash);
    if (pszSignature == nullptr) {
        *pnSignatureLen = size;
        return setLastError(KESTA_OK);
    }
    setLastError(KESTA_OK);
    const auto work = std::make_unique<char[]>(size);
    const WritableCopy serial(szSN);
    const WritableCopy hash(pszHash);
    const int result = forward(KESTA_ComFunc.m_pGMUsbKeyCommonSign, serial.get(), nOption1,
                               nOption2, hash.get(), nOption3, work.get(), pnSignatureLen);
    if (result == KESTA_OK) copyText(pszSignature, work.get(), size, size);
    return result;
}

int Batch_Sign(unsigned int nFlags, void* pParam2, int nParam3, int nParam4, const char* pszData,
               void* pParam6, void* pParam7, int nParam8, int nParam9, const char* pszDataList,
               int nParam11, char* pszSignatures, unsigned int* pnSignaturesLen) {
    initialiseOnFirstUse();
    if (pnSignaturesLen == nullptr) return setLastError(KESTA_BAD_ARGUMENT);
    if (pszSignatures == nullptr) {
        std::uint32_t size = 0;
        if (pszData != nullptr) size = static_cast<std::uint32_t>(std::strlen(pszData)) + 2048;
        if (pszDataList != nullptr) {
            // Separators are counted, not texts: a list of one text adds nothing.
            const std::uint32_t separators = KESTA_ComFunc.GetSubStringCount(pszDataList, "||");
            size += (static_cast<std::uint32_t>(std::strlen(pszDataList)) + 2048) * separators;
        }
        *pnSignaturesLen = size * 2;
        return setLastError(KESTA_OK);
    }
    if ((nFlags & 1) != 0 && (pParam2 == nullptr || pParam6 == nullptr || pszData == nullptr)) {
        return setLastError(KESTA_BAD_ARGUMENT);
    }
    return forward(KESTA_ComFunc.m_pBatch_Sign, nFlags, pParam2, nParam3, nParam4, pszData, pParam6,
                   pParam7, nParam8, nParam9, pszDataList, nParam11, pszSignatures,
                   pnSignaturesLen);
}

int AsymDec(const char* szSN, int nOption1, unsigned int nOption2, const char* pszCipher,
            char* pszPlain, unsigned int* pnPlainLen) {
    initialiseOnFirstUse();
    if (pnPlainLen == nullptr || pszCipher == nullptr) return setLastError(KESTA_BAD_ARGUMENT);
    setLastError(KESTA_OK);
    const std::uint32_t size = workSize(pszCipher);
    if (pszPlain == nullptr) {
        *pnPlainLen = size;
        return KESTA_OK;
    }
    const auto work = std::make_unique<char[]>(size);
    const WritableCopy serial(szSN);
    LgnString cipher = copyOf(pszCipher);
    kesta::removeLineBreaks(cipher);
    std::uint32_t length = size;
    const int result = forward(KESTA_ComFunc.m_pGMUSBKeyAsymDec2, serial.get(), nOption1, nOption2,
                               cipher.GetBuffer(cipher.GetLength()), work.get(), &length);
    if (result != KESTA_OK) return result;
    const std::uint32_t capacity = *pnPlainLen;
    *pnPlainLen = length;
    if (static_cast<std::int32_t>(capacity) < static_cast<std::int32_t>(length)) {
        return setLastError(KESTA_BUFFER_TOO_SMALL);
    }
    copyText(pszPlain, work.get(), size, capacity);
    return KESTA_OK;
}

// ---- Labels, data objects, locale ---------------------------------------------------------------

namespace {

bool isDataName(const char* name) {
    const std::size_t length = std::strlen(name);
    return length >= 10 && length <= 16;
}

}  // namespace

int GetLabel(const char* szSN, char* pszLabel, int* pnLabelLen) {
    initialiseOnFirstUse();
    if (pnLabelLen == nullptr || szSN == nullptr) return setLastError(KESTA_BAD_ARGUMENT);
    setLastError(KESTA_OK);
    char label[512] = {};
    LgnString serial(szSN);
    if (serial.IsEmpty()) return setLastError(KESTA_BAD_ARGUMENT);
    const int result =
        forward(KESTA_ComFunc.m_pGetLabel, serial.GetBuffer(serial.GetLength()), &label[0]);
    if (result != KESTA_OK) return result;
    const int length = lengthIn(label, sizeof label);
    if (pszLabel == nullptr) {
        *pnLabelLen = length + 1;
        return KESTA_OK;
    }
    const bool fits = length <= *pnLabelLen;
    *pnLabelLen = length;
    if (!fits) return setLastError(KESTA_BUFFER_TOO_SMALL);
    copyText(pszLabel, label, sizeof label, sizeof label);
    return KESTA_OK;
}

int SetLabel(const char* szSN, const char* szLabel) {
    initialiseOnFirstUse();
    if (szSN == nullptr || szLabel == nullptr) return setLastError(KESTA_BAD_ARGUMENT);
    return forward(KESTA_ComFunc.m_pSetLabel, szSN, szLabel);
}

int SetData(const char* szName, unsigned int nParam, const char* szValue) {
    initialiseOnFirstUse();
    if (szName == nullptr || szValue == nullptr || !isDataName(szName) ||
        std::strlen(szValue) > 300) {
        return setLastError(KESTA_BAD_ARGUMENT);
    }
    return forward(KESTA_ComFunc.m_pSetData, szName, nParam, szValue);
}

int GetData(const char* szName, unsigned int nParam, char* pszValue, int* pnValueLen) {
    initialiseOnFirstUse();
    if (szName == nullptr || pnValueLen == nullptr || !isDataName(szName)) {
        return setLastError(KESTA_BAD_ARGUMENT);
    }
    setLastError(KESTA_OK);
    char value[260] = {};
    const int result = forward(KESTA_ComFunc.m_pGetData, szName, nParam, &value[0]);
    if (result != KESTA_OK) return result;
    const int length = lengthIn(value, sizeof value);
    if (pszValue != nullptr && length <= *pnValueLen) {
        *pnValueLen = length;
        copyText(pszValue, value, sizeof value, sizeof value);
        return KESTA_OK;
    }
    *pnValueLen = length + 1;
    return pszValue == nullptr ? KESTA_OK : setLastError(KESTA_BUFFER_TOO_SMALL);
}

int SetCharset(const char* pszArg1, const char* pszArg2) {
    initialiseOnFirstUse();
    if (pszArg1 == nullptr || pszArg2 == nullptr) return setLastError(KESTA_BAD_ARGUMENT);
    return forward(KESTA_ComFunc.m_pUOS_SetCharset, pszArg2, pszArg1);
}

int SetLanguage(const char* pszArg1, const char* pszArg2) {
    initialiseOnFirstUse();
    if (pszArg1 == nullptr || pszArg2 == nullptr) return setLastError(KESTA_BAD_ARGUMENT);
    return forward(KESTA_ComFunc.m_pUOS_SetLanguage, pszArg2, pszArg1);
}

// ---- Events -------------------------------------------------------------------------------------

namespace {

constexpr const char* kWaitTag = "SKF_WaitForDevEvent";
constexpr const char* kArrivalTag = "VALTO_EVENT_INFO::SLOT_DEVICEARRIVAL  ";
constexpr const char* kRemovalTag = "VALTO_EVENT_INFO::SLOT_DEVICEREMOVE ";
constexpr const char* kLineFormat = " G_LastError = %d, line = %d";
constexpr const char* kWaitEndFormat = "end, G_LastError = %d, line = %d";

bool pollOnce(VALTO_EVENT_INFO& event, std::uint32_t& context) {
    try {
        return ValtoT_WaitForEvent(1, 0, &event, &context) == 0;
    } catch (const abi::__forced_unwind&) {
        throw;  // the thread is being cancelled
    } catch (...) {
        LogEntry(kWaitTag, " end in catch ,G_LastError = %d, line = %d", lastError(), 582);
        return false;
    }
}

void pollUntilEventOrStop(VALTO_EVENT_INFO& event, std::uint32_t& context) {
    constexpr timespec kInterval = {0, 20000000};
    while (isRun.load(std::memory_order_acquire)) {
        if (pollOnce(event, context)) return;
        nanosleep(&kInterval, nullptr);
    }
}

// Names the arrived key. A failed read leaves the name empty and becomes the wait's result.
int readArrivedKey(std::uint32_t slot, std::string& mediaId) {
    _S_DEV_CONFIG record = {};
    LogEntry(kArrivalTag, " event.ei.slotEvent.u32SlotID = %d, line = %d", static_cast<int>(slot),
             600);
    const int result = setLastError(ValtoT_GetDeviceInfo(slot, 0xE0000, &record));
    LogEntry(kArrivalTag, kLineFormat, result, 603);
    X_getMediaId(mediaId, &record);
    return result;
}

int answerEvent(const VALTO_EVENT_INFO& event, unsigned int* eventType, std::string& mediaId) {
    const std::uint32_t slot = event.ei.slotEvent.u32SlotID;
    if (event.u32EventType == SLOT_DEVICEARRIVAL) {
        LogEntry(kArrivalTag, kLineFormat, lastError(), 596);
        *eventType = KESTA_EVENT_ARRIVAL;
        return readArrivedKey(slot, mediaId);
    }
    if (event.u32EventType == SLOT_DEVICEREMOVE) {
        LogEntry(kRemovalTag, "G_LastError = %d, line = %d", lastError(), 606);
        *eventType = KESTA_EVENT_REMOVAL;
        mediaId = g_WaitEventSlotMap[slot];
        LogEntry(kRemovalTag, kLineFormat, lastError(), 609);
        return setLastError(KESTA_OK);
    }
    return lastError();
}

}  // namespace

void X_getMediaId(std::string& text, _S_DEV_CONFIG* record) {
    text.assign(record->szMediaId, strnlen(record->szMediaId, sizeof record->szMediaId));
}

void X_getCurrentSlots() {
    constexpr std::uint32_t kOffered = 10;
    std::uint32_t slots[16] = {};
    g_WaitEventSlotMap.clear();
    std::uint32_t count = kOffered;
    if (ValtoT_GetSlotList(1, slots, &count) != 0) return;
    count = std::min<std::uint32_t>(count, std::size(slots));
    for (std::uint32_t i = 0; i < count; ++i) {
        // Four bytes longer than the record, for libraries that fill a longer one.
        alignas(_S_DEV_CONFIG) unsigned char buffer[400];
        auto* record = reinterpret_cast<_S_DEV_CONFIG*>(buffer);
        if (ValtoT_GetDeviceInfo(slots[i], 0, record) != 0) continue;
        X_getMediaId(g_WaitEventSlotMap[slots[i]], record);
    }
}

int WaitForKeyEvent(unsigned int* pulEventType, char* pszMediaId, unsigned int* pulMediaIdLen) {
    LogEntry(kWaitTag, "begin");
    initialiseOnFirstUse();
    if (pszMediaId == nullptr) {
        *pulMediaIdLen = 17;
        setLastError(KESTA_OK);
        LogEntry(kWaitTag, kWaitEndFormat, KESTA_OK, 560);
        return KESTA_OK;
    }
    LogEntry("X_getCurrentSlots", "before");
    X_getCurrentSlots();
    LogEntry("X_getCurrentSlots", "after");
    isRun.store(true, std::memory_order_release);

    std::uint32_t context = 0;
    setLastError(KESTA_OK);
    const int opened = setLastError(ValtoT_ContextInit(&context));
    if (opened != KESTA_OK) {
        LogEntry(kWaitTag, kWaitEndFormat, opened, 571);
        return opened;
    }
    VALTO_EVENT_INFO event;
    std::memset(&event, 0, sizeof event);
    pollUntilEventOrStop(event, context);
    if (!isRun.load(std::memory_order_acquire)) {
        // A stopped wait leaves its context open: the next wait goes on where it was.
        *pulEventType = KESTA_EVENT_STOPPED;
        return opened;
    }
    std::string mediaId;
    const int result = answerEvent(event, pulEventType, mediaId);
    ValtoT_ContextFinal();
    *pulMediaIdLen = static_cast<unsigned int>(mediaId.size());
    std::memcpy(pszMediaId, mediaId.c_str(), mediaId.size() + 1);
    LogEntry(kWaitTag, kWaitEndFormat, result, 616);
    return result;
}

int StopDetectUKey() {
    initialiseOnFirstUse();
    setLastError(KESTA_OK);
    if (isRun.load(std::memory_order_acquire)) isRun.store(false, std::memory_order_release);
    return KESTA_OK;
}

// ---- Enrolment ----------------------------------------------------------------------------------

namespace {

// What the token library returns in a char*: from new[], released here on every path.
struct ReturnedText {
    char* text = nullptr;

    ReturnedText() = default;
    ~ReturnedText() { delete[] text; }
    ReturnedText(const ReturnedText&) = delete;
    ReturnedText& operator=(const ReturnedText&) = delete;
};

const char* orEmpty(const char* text) {
    return text == nullptr ? "" : text;
}

std::unique_ptr<char[]> newCopy(const char* text) {
    const std::size_t size = std::strlen(text) + 1;
    std::unique_ptr<char[]> copy(new char[size]);
    std::memcpy(copy.get(), text, size);
    return copy;
}

void ReleaseP10Buffer() {
    for (char** entry : {&g_szLastP10, &g_szLastReq, &g_szLastSN}) {
        delete[] * entry;
        *entry = nullptr;
    }
}

void appendRequest(LgnString& result, const char* request, bool joined) {
    if (joined) result.Append("||", 2);
    result.Append(orEmpty(request), LGN::TextLength(request));
}

// Serves a call with a buffer from the latest probe. False where that was for another key or
// another request; it is then forgotten.
bool answerFromProbe(const char* szSN, const char* requestInfo, char* szP10, int* pnP10Len,
                     int& result) {
    if (szP10 == nullptr || g_szLastP10 == nullptr || g_szLastReq == nullptr ||
        g_szLastSN == nullptr) {
        return false;
    }
    if (std::strcmp(g_szLastReq, requestInfo) != 0 || std::strcmp(g_szLastSN, orEmpty(szSN)) != 0) {
        ReleaseP10Buffer();
        return false;
    }
    const int length = LGN::TextLength(g_szLastP10);
    if (*pnP10Len < length) {
        *pnP10Len = length + 1;
        result = setLastError(KESTA_BUFFER_TOO_SMALL);
        return true;
    }
    *pnP10Len = length;
    std::memcpy(szP10, g_szLastP10, static_cast<std::size_t>(length) + 1);
    ReleaseP10Buffer();
    result = lastError();
    return true;
}

// Hands newly made requests out, or keeps them for the call that follows a probe.
int handOutRequests(const LgnString& requests, const char* szSN, const char* requestInfo,
                    char* szP10, int* pnP10Len) {
    const int length = requests.GetLength();
    if (szP10 == nullptr) {
        // All three are there before the old ones go: no failure leaves a mixture.
        auto p10 = newCopy(requests.GetString());
        auto request = newCopy(requestInfo);
        auto serial = newCopy(orEmpty(szSN));
        ReleaseP10Buffer();
        *pnP10Len = length + 1;
        g_szLastP10 = p10.release();
        g_szLastReq = request.release();
        g_szLastSN = serial.release();
        return lastError();
    }
    const bool fits = *pnP10Len >= length;
    *pnP10Len = length;
    if (!fits) return setLastError(KESTA_BUFFER_TOO_SMALL);
    std::memcpy(szP10, requests.GetString(), static_cast<std::size_t>(length) + 1);
    return lastError();
}

// One request for each group.
int makeRequests(const char* szSN, const char* requestInfo, LgnString& requests) {
    const WritableCopy serial(szSN);
    kesta::RequestParameters parameters;
    kesta::GroupReader groups(requestInfo);
    std::string_view group;
    for (bool joined = false; groups.next(group); joined = true) {
        if (!kesta::parseGroup(group, parameters)) return setLastError(KESTA_BAD_ARGUMENT);
        int result = forward(KESTA_ComFunc.m_pVerifyPIN, serial.get());
        if (result != KESTA_OK) return result;
        ReturnedText p10;
        result = forward(KESTA_ComFunc.m_pGMCreatePKCS10, serial.get(), parameters.certType,
                         parameters.keyType, parameters.hashType, &p10.text, nullptr, 0);
        if (result != KESTA_OK) return result;
        appendRequest(requests, p10.text, joined);
    }
    return KESTA_OK;
}

// The records of a batch's groups, checked as far as the text alone allows.
bool readRecords(const char* requestInfo, kesta::RequestRecords& records) {
    kesta::RequestParameters parameters;
    kesta::GroupReader groups(requestInfo);
    std::string_view group;
    for (int taken = 0; groups.next(group); ++taken) {
        if (taken == kesta::RequestRecords::kMost) return false;
        if (!kesta::parseGroup(group, parameters) || !records.add(parameters)) return false;
    }
    return true;
}

// One request for each usable record. The key verifies the user unless it was just initialised.
int makeBatchRequests(const char* szSN, bool verify, kesta::RequestRecords& records,
                      LgnString& requests) {
    const WritableCopy serial(szSN);
    for (int slot = 0; slot < kesta::RequestRecords::kMost; ++slot) {
        KestaRequestRecord& record = records[slot];
        if (record.certType <= 0 || record.keyType <= 0) continue;
        if (slot == 0 && verify) {
            const int result = forward(KESTA_ComFunc.m_pVerifyPIN, szSN);
            if (result != KESTA_OK) return result;
        }
        ReturnedText p10;
        const int result = forward(KESTA_ComFunc.m_pGMCreatePKCS10Ex, serial.get(), &record,
                                   &p10.text, 1, nullptr, 0);
        if (result != KESTA_OK) return result;
        // By the slot, not by what came before: a skipped first record leaves its separator.
        appendRequest(requests, p10.text, slot != 0);
    }
    return KESTA_OK;
}

}  // namespace

int GenerateCertRequest(const char* szSN, const char* requestInfo, char* szP10, int* pnP10Len) {
    initialiseOnFirstUse();
    setLastError(KESTA_OK);
    if (szSN == nullptr || requestInfo == nullptr || pnP10Len == nullptr) {
        return setLastError(KESTA_BAD_ARGUMENT);
    }
    int result = KESTA_OK;
    if (answerFromProbe(szSN, requestInfo, szP10, pnP10Len, result)) return result;
    LgnString requests;
    result = makeRequests(szSN, requestInfo, requests);
    if (result != KESTA_OK) return result;
    return handOutRequests(requests, szSN, requestInfo, szP10, pnP10Len);
}

int Batch_InitAndGenerateCertRequest(const char* szSN, int initFlag, const char* requestInfo,
                                     char* szP10, int* pnP10Len) {
    LogEntry("Batch_InitAndGenerateCertRequest", "Begin szSN = %s,requestInfo = %s", szSN,
             requestInfo);
    initialiseOnFirstUse();
    if (pnP10Len == nullptr || requestInfo == nullptr) return setLastError(KESTA_BAD_ARGUMENT);
    int result = KESTA_OK;
    if (answerFromProbe(szSN, requestInfo, szP10, pnP10Len, result)) return result;
    setLastError(KESTA_OK);
    kesta::RequestRecords records;
    if (!readRecords(requestInfo, records) || static_cast<unsigned>(initFlag) > 1) {
        return setLastError(KESTA_BAD_ARGUMENT);
    }
    const bool initialise = initFlag == 1;
    if (initialise) {
        result = forward(KESTA_ComFunc.m_pCustInitCard, szSN, 1, nullptr, 0);
        if (result != KESTA_OK) return result;
    }
    LgnString requests;
    result = makeBatchRequests(szSN, !initialise, records, requests);
    if (result != KESTA_OK) return result;
    return handOutRequests(requests, szSN, requestInfo, szP10, pnP10Len);
}

// ---- Installation of certificates ---------------------------------------------------------------

namespace {

// A text of an escrowed key, gone from memory when it is done with. Removing commas works in
// place, so there is one buffer to clear.
class KeyText {
public:
    KeyText(const char* text, int length) : m_text(text, length, _lgnBufferManager) {
        kesta::removeCommas(m_text);
    }
    ~KeyText() {
        explicit_bzero(const_cast<char*>(m_text.GetString()),
                       static_cast<std::size_t>(m_text.GetAllocLength()));
    }
    KeyText(const KeyText&) = delete;
    KeyText& operator=(const KeyText&) = delete;

    const LgnString& get() const { return m_text; }

private:
    LgnString m_text;
};

int writeCertificate(const char* szSN, const char* certificate) {
    LgnString output;  // the token library may fill it; what it says is not used
    return forward(KESTA_ComFunc.m_pGMWritePKCS7, szSN, certificate, output.Object());
}

int importKey(const char* szSN, const LgnString& keyText) {
    // Not terminated when the body fills it.
    struct KeyBuffer {
        char characters[kesta::limits::kKeyBuffer] = {};
        ~KeyBuffer() { explicit_bzero(characters, sizeof characters); }
    } key;
    const std::string_view body = kesta::keyBody(keyText.View());
    // Cutting a key short would store a wrong one; there is no code for this.
    if (body.size() > sizeof key.characters) std::abort();
    std::memcpy(key.characters, body.data(), body.size());
    return forward(KESTA_ComFunc.m_pGMImportPriKey, szSN, &key.characters[0], 0);
}

}  // namespace

int ImportX509Cert(const char* szSN, const char* strP7) {
    initialiseOnFirstUse();
    if (szSN == nullptr || strP7 == nullptr) return setLastError(KESTA_BAD_ARGUMENT);
    ReleaseP10Buffer();
    LgnString certificate = copyOf(strP7);
    kesta::removeCommas(certificate);
    kesta::removeLineBreaks(certificate);
    return writeCertificate(szSN, certificate.GetString());
}

int ImportEncX509Cert(const char* szSN, const char* strP7, const char* strPriKey) {
    initialiseOnFirstUse();
    if (szSN == nullptr || strPriKey == nullptr || strP7 == nullptr) {
        return setLastError(KESTA_BAD_ARGUMENT);
    }
    ReleaseP10Buffer();
    setLastError(KESTA_OK);
    const LgnString serial = copyOf(szSN);
    // Line breaks stay in this certificate; the token library takes them here.
    LgnString certificate = copyOf(strP7);
    kesta::removeCommas(certificate);
    const KeyText keyText(strPriKey, LGN::TextLength(strPriKey));
    LogEntry("CZRKUSBKey::ImportEncX509Cert  strPriKeyTemp:", "strPriKeyTemp:%s",
             keyText.get().GetString());
    const int result = importKey(serial.GetString(), keyText.get());
    if (result != KESTA_OK) return result;
    return writeCertificate(serial.GetString(), certificate.GetString());
}

namespace {

// Imports a bundle's sections, kind by kind.
class BundleImport {
public:
    BundleImport(const char* szSN, std::string_view bundle) : m_serial(szSN), m_bundle(bundle) {}

    int run() {
        int result = importCertificates("SignCert(", "Batch_ImportX509Cert");
        if (result == KESTA_OK) result = importKeys();
        // Encryption certificates log under a tag of their own.
        if (result == KESTA_OK) result = importCertificates("EncCert(", "CGMUsbKeyCommonEx");
        if (result == KESTA_OK && !m_imported) result = setLastError(KESTA_BAD_ARGUMENT);
        return result;
    }

private:
    int importCertificates(std::string_view opener, const char* tag) {
        kesta::SectionScanner sections(m_bundle, opener);
        std::string_view content;
        while (sections.next(content)) {
            const LgnString certificate(content.data(), static_cast<int>(content.size()),
                                        _lgnBufferManager);
            const int result = writeCertificate(m_serial, certificate.GetString());
            if (result != KESTA_OK) {
                LogEntry(tag, "end, err: %d, Cert GMWritePKCS7 error.", result);
                return result;
            }
            m_imported = true;
        }
        return KESTA_OK;
    }

    int importKeys() {
        kesta::SectionScanner sections(m_bundle, "EncPriKey(");
        std::string_view content;
        while (sections.next(content)) {
            const KeyText keyText(content.data(), static_cast<int>(content.size()));
            LogEntry("CZRKUSBKey::Batch_ImportX509Cert  strPriKeyTemp:", "strPriKeyTemp:%s",
                     keyText.get().GetString());
            const int result = importKey(m_serial, keyText.get());
            if (result != KESTA_OK) {
                LogEntry("Batch_ImportX509Cert", "end, err: %d, Cert GMImportPriKey error.",
                         result);
                return result;
            }
            m_imported = true;
        }
        return KESTA_OK;
    }

    const char* m_serial;
    std::string_view m_bundle;
    bool m_imported = false;
};

}  // namespace

int Batch_ImportX509Cert(const char* szSN, const char* strP7) {
    initialiseOnFirstUse();
    if (strP7 == nullptr) return setLastError(KESTA_BAD_ARGUMENT);
    const LgnString serial = copyOf(szSN);
    setLastError(KESTA_OK);
    LgnString bundle = copyOf(strP7);
    kesta::removeCommas(bundle);
    kesta::removeLineBreaks(bundle);
    LogEntry("CZRKUSBKey::Batch_ImportX509Cert", "begin, strP7: %s", bundle.GetString());
    switch (static_cast<kesta::BundleKind>(KESTA_ComFunc.GetBatchCertDataType(bundle))) {
        case kesta::BundleKind::kMalformed:
            return setLastError(KESTA_BAD_ARGUMENT);
        case kesta::BundleKind::kSingleCertificate: {
            const int result = writeCertificate(serial.GetString(), bundle.GetString());
            // Written on success too: readers of the log look for it.
            LogEntry("Batch_ImportX509Cert", "end, err: %d, Cert GMWritePKCS7 error.", result);
            return result;
        }
        case kesta::BundleKind::kSections:
            break;
    }
    return BundleImport(serial.GetString(), bundle.View()).run();
}

// ---- Installation check -------------------------------------------------------------------------

int CheckDriverIntegrity(int nMode) {
    initialiseOnFirstUse();
    setLastError(KESTA_OK);
    if (nMode != 1) return setLastError(KESTA_UNSUPPORTED);
    std::vector<std::string> names;
    if (KESTA_ComFunc.find_dir_file(KESTA_INSTALL_DIRECTORY "/", names) != 0) {
        return setLastError(KESTA_UNSUPPORTED);
    }
    // Every name is looked up in the listing that it came from and so is always there: what the
    // directory must hold is not decided here.
    for (const std::string& name : names) {
        if (std::find(names.begin(), names.end(), name) == names.end()) {
            setLastError(KESTA_UNSUPPORTED);
        }
    }
    return lastError();
}

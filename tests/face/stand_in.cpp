#include "stand_in.h"

#include <chrono>
#include <cstring>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "kesta_unified_zrkukey.h"

int G_LastError = 0;
bool g_initFlag = false;

StandIn& stand_in() {
    static StandIn instance;
    return instance;
}

void StandIn::Reset() {
    calls.clear();
    code = 0;
    probeCode = 0;
    probeSilent = false;
    text.clear();
    reported.reset();
    probed.reset();
    beyond = 0;
    raise = false;
    message = "token text";
    messageCode = 0;
    fetchCode = 0;
    fetchLost = false;
    occurrences.clear();
    waitFailure = 0;
    deafMillis = 0;
    running = false;
    waits = 0;
    stops = 0;
    mostInside = 0;
    sleepMillis = 0;
    asking = false;
    g_initFlag = false;
    G_LastError = 0;
}

namespace {

void Sleep(int millis) {
    std::this_thread::sleep_for(std::chrono::milliseconds(millis));
}

// Counts how many calls are inside at once.
class Turn {
public:
    Turn() {
        StandIn& s = stand_in();
        const int now = ++s.inside;
        int most = s.mostInside;
        while (now > most && !s.mostInside.compare_exchange_weak(most, now)) {
        }
        if (s.sleepMillis > 0) Sleep(s.sleepMillis);
    }
    ~Turn() { --stand_in().inside; }
};

std::string Word(const char* text) {
    return text != nullptr ? text : "NULL";
}
std::string Word(const void* pointer) {
    return pointer != nullptr ? "pointer" : "NULL";
}
template <class Number>
std::string Word(Number number) {
    return std::to_string(number);
}

template <class... Arguments>
void Record(const char* name, const Arguments&... arguments) {
    std::string call = name;
    ((call += " " + Word(arguments)), ...);
    const std::lock_guard<std::mutex> lock(stand_in().mutex);
    stand_in().calls.push_back(call);
}

template <class... Arguments>
int Plain(const char* name, const Arguments&... arguments) {
    const Turn turn;
    while (stand_in().asking && name == std::string("VerifyPIN")) Sleep(1);
    Record(name, arguments...);
    if (stand_in().raise) throw std::length_error("from inside");
    return G_LastError = stand_in().code;
}

// Answers a probe with `probe`, else writes the text; bytes behind the capacity as the test says.
template <class Length, class... Arguments>
int Give(const char* name, std::size_t probe, char* buffer, Length* length,
         const Arguments&... arguments) {
    const Turn turn;
    StandIn& s = stand_in();
    Record(name, arguments...);
    if (s.raise) throw std::length_error("from inside");
    if (buffer == nullptr) {
        if (!s.probeSilent)
            *length = static_cast<Length>(s.probed.value_or(static_cast<std::uint32_t>(probe)));
        return G_LastError = s.probeCode;
    }
    if (s.code != 0) {
        if (s.reported) *length = static_cast<Length>(*s.reported);
        return G_LastError = s.code;
    }
    const auto capacity = static_cast<std::size_t>(*length);
    const std::size_t copied = s.text.size() < capacity ? s.text.size() : capacity;
    std::memcpy(buffer, s.text.data(), copied);
    if (copied < capacity) buffer[copied] = '\0';
    std::memset(buffer + capacity, 'x', s.beyond);
    *length = static_cast<Length>(s.reported.value_or(static_cast<std::uint32_t>(copied)));
    return G_LastError = 0;
}

std::string& Kept() {
    static std::string kept;
    return kept;
}

int Requests(const char* name, char* buffer, int* length, const std::string& arguments) {
    const Turn turn;
    StandIn& s = stand_in();
    const int capacity = *length;
    Record(name, arguments.c_str());
    if (s.raise) throw std::length_error("from inside");
    if (buffer == nullptr) {
        if (s.code != 0) return G_LastError = s.code;
        Kept() = s.text;
        *length = s.probed ? static_cast<int>(*s.probed) : static_cast<int>(s.text.size()) + 1;
        return G_LastError = 0;
    }
    const auto size = static_cast<std::uint32_t>(Kept().size());
    *length = static_cast<int>(s.reported.value_or(size));
    if (s.fetchLost || capacity < static_cast<int>(size))
        return G_LastError = KESTA_BUFFER_TOO_SMALL;
    std::memcpy(buffer, Kept().c_str(), Kept().size() + 1);
    return G_LastError = s.fetchCode;
}

}  // namespace

int Initialize() {
    const int code = Plain("Initialize");
    if (code == 0) __atomic_store_n(&g_initFlag, true, __ATOMIC_RELEASE);
    return code;
}
void Finalize() {
    Record("Finalize");
    __atomic_store_n(&g_initFlag, false, __ATOMIC_RELEASE);
}
void GetLastErrCode(unsigned* code) {
    *code = static_cast<unsigned>(G_LastError);
}
int GetErrorMsg(int code, char* buffer, int* length) {
    Record("GetErrorMsg", code);
    const StandIn& s = stand_in();
    const std::string& text = s.message;
    if (static_cast<int>(text.size()) >= *length) return KESTA_BUFFER_TOO_SMALL;
    std::memcpy(buffer, text.c_str(), text.size() + 1);
    const auto size = static_cast<std::uint32_t>(text.size()) + 1;
    *length = static_cast<int>(s.reported.value_or(size));
    return s.messageCode;
}
int GetDriverVersion(char* b, unsigned* n) {
    return Give("GetDriverVersion", 13, b, n);
}
int GetDllVersion(char* b, unsigned* n) {
    return Give("GetDllVersion", 13, b, n);
}
int GetVidAndPid(char* b, unsigned* n) {
    return Give("GetVidAndPid", 9, b, n);
}
int GetPrintNumber(char* b, unsigned* n) {
    return Give("GetPrintNumber", 5, b, n);
}
int GetVendorInfo(int language, char* b, unsigned* n) {
    return Give("GetVendorInfo", 5, b, n, language);
}
int ChangePin(const char* sn) {
    return Plain("ChangePin", sn);
}
int InitUKey(const char* sn) {
    return __atomic_load_n(&g_initFlag, __ATOMIC_ACQUIRE) ? Plain("InitUKey", sn)
                                                          : KESTA_NOT_INITIALISED;
}
int TestInitUKey(const char* sn, void* p) {
    return Plain("TestInitUKey", sn, static_cast<const void*>(p));
}
int VerifyPIN(const char* sn) {
    return Plain("VerifyPIN", sn);
}
int TestVerifyAndCachePin(const char* sn, void* p) {
    return Plain("TestVerifyAndCachePin", sn, static_cast<const void*>(p));
}
int GetPinInfo(const char* sn, void* b, unsigned* n) {
    return Give("GetPinInfo", 8, static_cast<char*>(b), n, sn);
}
int SetCachePinFlag(const char* sn, int flag) {
    return g_initFlag ? Plain("SetCachePinFlag", sn, flag) : KESTA_NOT_BOUND;
}
int RemovePinCache() {
    return Plain("RemovePinCache");
}
int GetCert(const char* sn, unsigned a, unsigned c, char* b, unsigned* n) {
    return Give("GetCert", 5, b, n, sn, a, c);
}
int GetCertDN(const char* sn, unsigned a, unsigned c, char* b, int* n) {
    return Give("GetCertDN", 5, b, n, sn, a, c);
}
int GetCertInfo(const char* sn, unsigned a, void* b, unsigned* n) {
    return Give("GetCertInfo", 1280, static_cast<char*>(b), n, sn, a);
}
int DelCertAndTempKey(const char* sn, unsigned a, unsigned b) {
    return Plain("DelCertAndTempKey", sn, a, b);
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
int Sign(const char* sn, int a, int c, const char* data, const char* warning, char* b,
         unsigned* n) {
    return Give("Sign", (std::strlen(data) + 4096) * 2, b, n, sn, a, c, data, warning);
}
int SignHash(const char* sn, int a, int c, const char* hash, int d, char* b, unsigned* n) {
    return Give("SignHash", (std::strlen(hash) + 4096) * 2, b, n, sn, a, c, hash, d);
}
int Batch_Sign(unsigned flags, void* p2, int p3, int p4, const char* data, void* p6, void* p7,
               int p8, int p9, const char* list, int p11, char* b, unsigned* n) {
    return Give("Batch_Sign", 0, b, n, flags, static_cast<const void*>(p2), p3, p4, data,
                static_cast<const void*>(p6), static_cast<const void*>(p7), p8, p9, list, p11,
                b != nullptr ? *n : 0U);
}
int AsymDec(const char* sn, int a, unsigned c, const char* cipher, char* b, unsigned* n) {
    return Give("AsymDec", (std::strlen(cipher) + 4096) * 2, b, n, sn, a, c, cipher);
}
int GetLabel(const char* sn, char* b, int* n) {
    return Give("GetLabel", 5, b, n, sn);
}
int SetLabel(const char* sn, const char* label) {
    return Plain("SetLabel", sn, label);
}
int SetData(const char* name, unsigned a, const char* value) {
    return Plain("SetData", name, a, value);
}
int GetData(const char* name, unsigned a, char* b, int* n) {
    return Give("GetData", 5, b, n, name, a);
}
int SetCharset(const char* a, const char* b) {
    return Plain("SetCharset", a, b);
}
int SetLanguage(const char* a, const char* b) {
    return Plain("SetLanguage", a, b);
}
int GenerateCertRequest(const char* sn, const char* info, char* b, int* n) {
    return Requests("GenerateCertRequest", b, n, std::string(sn) + " " + info);
}
int Batch_InitAndGenerateCertRequest(const char* sn, int flag, const char* info, char* b, int* n) {
    return Requests("Batch_InitAndGenerateCertRequest", b, n,
                    std::string(sn) + " " + std::to_string(flag) + " " + info);
}
int ImportX509Cert(const char* sn, const char* cert) {
    return Plain("ImportX509Cert", sn, cert);
}
int ImportEncX509Cert(const char* sn, const char* cert, const char* key) {
    return Plain("ImportEncX509Cert", sn, cert, key);
}
int Batch_ImportX509Cert(const char* sn, const char* bundle) {
    return Plain("Batch_ImportX509Cert", sn, bundle);
}
int CheckDriverIntegrity(int mode) {
    return Plain("CheckDriverIntegrity", mode);
}

// A stop that comes while the wait is still deaf is lost, as in the library.
int WaitForKeyEvent(unsigned* kind, char* mediaId, unsigned* length) {
    StandIn& s = stand_in();
    ++s.waits;
    if (s.waitFailure != 0) return s.waitFailure;
    Sleep(s.deafMillis);
    s.running = true;
    while (s.running) {
        {
            const std::lock_guard<std::mutex> lock(s.mutex);
            if (!s.occurrences.empty()) {
                const auto event = s.occurrences.front();
                s.occurrences.pop_front();
                if (event.kind == 1 || event.kind == 2) *kind = event.kind;
                std::memcpy(mediaId, event.mediaId.c_str(), event.mediaId.size() + 1);
                *length = s.reported.value_or(static_cast<std::uint32_t>(event.mediaId.size()));
                return event.code;
            }
        }
        Sleep(1);
    }
    *kind = KESTA_EVENT_STOPPED;
    return 0;
}
int StopDetectUKey() {
    if (stand_in().raise) throw std::length_error("from inside");
    ++stand_in().stops;
    stand_in().running = false;
    return 0;
}

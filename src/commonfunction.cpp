#include "commonfunction.h"

#include <dirent.h>
#include <dlfcn.h>
#include <iconv.h>

#include <cstddef>
#include <cstring>
#include <limits>
#include <memory>

#include "import_text.h"
#include "kesta/places.h"
#include "last_error.h"
#include "library_file.h"

// The managers of the string library.
static LGN::CCRTHeap g_heapmgr;
LGN::ILgnMemMgr* _lgnMemoryManager = &g_heapmgr;
static LGN::CLgnBufferMgr g_bufmgr(&g_heapmgr);
LGN::ILgnBufferMgr* _lgnBufferManager = &g_bufmgr;

const LGN::CTraceCategory lgnTraceGeneral = {"TraceGeneral", 17, 4};

// Tools of the maker's look into the table: its order and the handle's place behind it are fixed.
constexpr std::size_t Slot(int index) {
    return static_cast<std::size_t>(index) * sizeof(void*);
}
using kesta::token::kEntryPoints;
static_assert(offsetof(CommonFunction, m_pCheckDeviceEx) == Slot(0), "the first entry point");
static_assert(offsetof(CommonFunction, m_pSetCachePinFlag) == Slot(kEntryPoints - 1), "the last");
static_assert(offsetof(CommonFunction, m_hLibrary) == Slot(kEntryPoints), "then the handle");
static_assert(sizeof(CommonFunction) == Slot(kEntryPoints + 1), "and nothing else");

namespace {

using kesta::places::kTokenLibrary;

template <typename Entry>
bool lookUp(void* library, const char* name, Entry*& slot) {
    auto* entry = reinterpret_cast<Entry*>(dlsym(library, name));
    if (entry == nullptr) return false;
    __atomic_store_n(&slot, entry, __ATOMIC_RELAXED);
    return true;
}

}  // namespace

int CommonFunction::init() {
    void* library = kesta::OpenLibrary(kTokenLibrary);
    if (library == nullptr) {
        __atomic_store_n(&m_hLibrary, library, __ATOMIC_RELEASE);
        return SetLastError(KESTA_NOT_BOUND);
    }
    // The order of the look-ups is kept: it decides which pointers a failed binding has renewed.
#define KESTA_LOOK_UP(name) lookUp(library, #name, m_p##name)
    const bool complete =
        KESTA_LOOK_UP(CheckDeviceEx) && KESTA_LOOK_UP(ChangePin) && KESTA_LOOK_UP(CustInitCard) &&
        KESTA_LOOK_UP(GMCreatePKCS10) && KESTA_LOOK_UP(GMWritePKCS7) && KESTA_LOOK_UP(GetLabel) &&
        KESTA_LOOK_UP(SetLabel) && KESTA_LOOK_UP(GetCertInfo) && KESTA_LOOK_UP(GM_GetCertDN) &&
        KESTA_LOOK_UP(UOS_SetCharset) && KESTA_LOOK_UP(UOS_SetLanguage) &&
        KESTA_LOOK_UP(SetWarningMsg) && KESTA_LOOK_UP(GMUsbKeyCriticalSign) &&
        KESTA_LOOK_UP(GetMediaID) && KESTA_LOOK_UP(GM_RemoveUserPin) &&
        KESTA_LOOK_UP(GMImportPriKey) && KESTA_LOOK_UP(GMUsbKeyCommonSign) &&
        KESTA_LOOK_UP(GMUSBKeyAsymDec2) && KESTA_LOOK_UP(GMCreatePKCS10Ex) &&
        KESTA_LOOK_UP(X_ErrorConvert_UOS) && KESTA_LOOK_UP(DelCertAndTempKey) &&
        KESTA_LOOK_UP(VerifyPIN) && KESTA_LOOK_UP(VerifyAndCachePin) && KESTA_LOOK_UP(GetPinInfo) &&
        KESTA_LOOK_UP(GetCertInfo_UOS) && KESTA_LOOK_UP(SetData) && KESTA_LOOK_UP(GetData) &&
        KESTA_LOOK_UP(Batch_Sign) && KESTA_LOOK_UP(SetCachePinFlag);
#undef KESTA_LOOK_UP
    // Stored after the pointers, so that whoever sees the handle sees them too.
    __atomic_store_n(&m_hLibrary, library, __ATOMIC_RELEASE);
    if (!complete) {
        FreeFunc();
        return SetLastError(KESTA_NOT_BOUND);
    }
    return KESTA_OK;
}

int CommonFunction::FreeFunc() {
    void* library = __atomic_exchange_n(&m_hLibrary, static_cast<void*>(nullptr), __ATOMIC_ACQ_REL);
    if (library != nullptr) dlclose(library);
    return 0;
}

int CommonFunction::memcpy_s(void* dst, unsigned long dstSize, const void* src,
                             unsigned long count) {
    if (count > dstSize) return 1;
    if (src == nullptr) return 2;
    if (dst == nullptr) return 3;
    std::memcpy(dst, src, count);
    return 0;
}

unsigned CommonFunction::GetSubStringCount(const std::string& text, const std::string& sub) {
    const std::size_t step = sub.empty() ? 1 : sub.size();
    unsigned count = 0;
    for (std::size_t at = text.find(sub); at != std::string::npos; at = text.find(sub, at + step)) {
        ++count;
    }
    return count;
}

namespace {

struct Converter {
    const iconv_t handle = iconv_open("GB18030", "UTF-8");

    Converter() = default;
    ~Converter() {
        if (IsOpen()) iconv_close(handle);
    }
    Converter(const Converter&) = delete;
    Converter& operator=(const Converter&) = delete;

    bool IsOpen() const { return handle != nullptr && handle != reinterpret_cast<iconv_t>(-1); }
};

// Converts into text's own buffer. One call does it: GB18030 never takes more than twice the bytes
// of UTF-8. An invalid sequence ends the conversion; what stands before it counts.
void ConvertToGb18030(LGN::CSimpleBufferT<char>& text) {
    const Converter converter;
    if (converter.handle == nullptr) return;
    const LGN::CSimpleBufferT<char> input(text);
    const int length = text.GetLength();
    // GCOVR_EXCL_BR_START: it takes a text of 1 GiB to get there, more than a test may use.
    if (length > std::numeric_limits<int>::max() / 2) LGN::LgnThrow(LGN::kInvalidArgument);
    // GCOVR_EXCL_BR_STOP
    auto inputLeft = static_cast<std::size_t>(length);
    std::size_t outputLeft = inputLeft * 2;
    char* from = const_cast<char*>(input.GetString());
    char* to = text.GetBuffer(length * 2);
    if (converter.IsOpen()) iconv(converter.handle, &from, &inputLeft, &to, &outputLeft);
    text.SetLength(length * 2 - static_cast<int>(outputLeft));
}

}  // namespace

int CommonFunction::MB2MB(unsigned nDirection, const unsigned char* pIn, unsigned nInLen,
                          unsigned char** ppOut, unsigned* pnOutLen) {
    constexpr std::size_t kSpare = 10;
    if (nDirection == 0) {
        LGN::CSimpleBufferT<char> text(reinterpret_cast<const char*>(pIn), static_cast<int>(nInLen),
                                       _lgnBufferManager);
        ConvertToGb18030(text);
        const auto length = static_cast<unsigned>(text.GetLength());
        std::unique_ptr<unsigned char[]> out(new unsigned char[length + kSpare]);
        memcpy_s(out.get(), length + kSpare, text.GetString(), length);
        *pnOutLen = length;
        *ppOut = out.release();
        return length != 0 ? 0 : -1;
    }
    if (nDirection == 1) {
        std::unique_ptr<unsigned char[]> out(new unsigned char[nInLen + kSpare]);
        memcpy_s(out.get(), nInLen + kSpare, pIn, nInLen);
        *pnOutLen = nInLen;
        *ppOut = out.release();
        return nInLen != 0 ? 0 : -1;
    }
    return -1;
}

int CommonFunction::find_dir_file(const char* path, std::vector<std::string>& names) {
    const std::unique_ptr<DIR, int (*)(DIR*)> directory(opendir(path), closedir);
    if (directory == nullptr) return -1;
    while (const dirent* entry = readdir(directory.get())) names.emplace_back(entry->d_name);
    return 0;
}

int CommonFunction::GetBatchCertDataType(LgnString text) {
    return static_cast<int>(kesta::ClassifyBundle(text.View()));
}

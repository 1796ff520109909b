// libKestaZRK.so of the tests: all entry points, each of which only records.
//
// An entry point is an indirect function: the loader asks its resolver each time that somebody
// looks the name up, which is how the order of the look-ups is seen.
#include "capture.h"

namespace {

using recording::Answer;
using recording::Raw;

template <class Result>
Result Give(const Answer& answer) {
    return answer.code;
}
template <>
const char* Give<const char*>(const Answer& answer) {
    return recording::TheRecorder().KeepMessage(answer);
}

// The body of one entry point, of exactly the contract's type. Row tells its name and roles.
template <class Row, class Type>
struct Body;
template <class Row, class Result, class... Arguments>
struct Body<Row, Result(Arguments...)> {
    static Result run(Arguments... arguments) {
        const std::vector<Raw> raws{recording::RawArgument(arguments)...};
        return Give<Result>(recording::CarryOut(Row::name(), Row::roles(), raws));
    }
};

#define ROW(entry, role_words)                            \
    struct Row_##entry {                                  \
        static const char* name() { return #entry; }      \
        static const char* roles() { return role_words; } \
    };
ROW(CheckDeviceEx, "l m396 v m1024")
ROW(GetLabel, "t m512")
ROW(SetLabel, "t t")
ROW(ChangePin, "t")
ROW(CustInitCard, "t v p v")
ROW(GMCreatePKCS10, "t v v v r p v")
ROW(GMWritePKCS7, "t t s")
ROW(GetCertInfo, "t v v m4096 l")
ROW(GM_GetCertDN, "t v v m1024")
ROW(UOS_SetCharset, "t t")
ROW(UOS_SetLanguage, "t t")
ROW(SetWarningMsg, "t t")
ROW(GMUsbKeyCriticalSign, "t v v t p l")
ROW(GetMediaID, "t p")
ROW(GM_RemoveUserPin, "")
ROW(GMImportPriKey, "t m1024 v")
ROW(GMUsbKeyCommonSign, "t v v t v p l")
ROW(GMUSBKeyAsymDec2, "t v v t p l")
ROW(GMCreatePKCS10Ex, "t m32 r v p v")
ROW(X_ErrorConvert_UOS, "v")
ROW(DelCertAndTempKey, "t v v")
ROW(VerifyPIN, "t")
ROW(VerifyAndCachePin, "t p")
ROW(GetPinInfo, "t p l")
ROW(GetCertInfo_UOS, "t v p l")
ROW(SetData, "t v t")
ROW(GetData, "t v m260")
ROW(Batch_Sign, "v p v v t p p v v t v p l")
ROW(SetCachePinFlag, "t v")
#undef ROW

}  // namespace

extern "C" {
#define ENTRY(result, name, arguments)                                          \
    __attribute__((visibility("hidden"))) result(*resolve_##name()) arguments { \
        return recording::TheRecorder().NoteLookup(#name)                       \
                   ? &Body<Row_##name, kesta::token::name>::run                 \
                   : nullptr;                                                   \
    }                                                                           \
    RECORDING_API result name arguments __attribute__((ifunc("resolve_" #name)));
KESTA_TOKEN_ENTRY_POINTS(ENTRY)
#undef ENTRY
}

#ifdef KESTA_UNRESOLVABLE
// Binding everything at once would refuse this library; binding when called does not.
extern "C" void kesta_function_that_nobody_defines();
extern "C" RECORDING_API void kesta_caller_of_the_undefined() {
    kesta_function_that_nobody_defines();
}
#endif

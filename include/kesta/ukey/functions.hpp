// The library's functions as one table of pointers, either looked up in a library that is loaded
// at run time or taken from the one that the program is linked with.
#ifndef KESTA_UKEY_FUNCTIONS_HPP
#define KESTA_UKEY_FUNCTIONS_HPP

#include <dlfcn.h>

#include <string>

#include "kesta/ukey/failure.hpp"
#include "kesta_unified_zrkukey.h"

// One line for each function of the public header.
// clang-format off
#define KESTA_UKEY_FUNCTIONS(X)                                                                    \
    X(Initialize)                                                                                  \
    X(Finalize)                                                                                    \
    X(GetLastErrCode)                                                                              \
    X(GetErrorMsg)                                                                                 \
    X(GetDriverVersion)                                                                            \
    X(GetDllVersion)                                                                               \
    X(GetVidAndPid)                                                                                \
    X(GetPrintNumber)                                                                              \
    X(GetVendorInfo)                                                                               \
    X(ChangePin)                                                                                   \
    X(InitUKey)                                                                                    \
    X(TestInitUKey)                                                                                \
    X(VerifyPIN)                                                                                   \
    X(TestVerifyAndCachePin)                                                                       \
    X(GetPinInfo)                                                                                  \
    X(SetCachePinFlag)                                                                             \
    X(RemovePinCache)                                                                              \
    X(GetCert)                                                                                     \
    X(GetCertDN)                                                                                   \
    X(GetCertInfo)                                                                                 \
    X(DelCertAndTempKey)                                                                           \
    X(RegisterCert)                                                                                \
    X(UnregisterCert)                                                                              \
    X(RepairDriver)                                                                                \
    X(Sign)                                                                                        \
    X(SignHash)                                                                                    \
    X(Batch_Sign)                                                                                  \
    X(AsymDec)                                                                                     \
    X(GetLabel)                                                                                    \
    X(SetLabel)                                                                                    \
    X(SetData)                                                                                     \
    X(GetData)                                                                                     \
    X(SetCharset)                                                                                  \
    X(SetLanguage)                                                                                 \
    X(WaitForKeyEvent)                                                                             \
    X(StopDetectUKey)                                                                              \
    X(GenerateCertRequest)                                                                         \
    X(Batch_InitAndGenerateCertRequest)                                                            \
    X(ImportX509Cert)                                                                              \
    X(ImportEncX509Cert)                                                                           \
    X(Batch_ImportX509Cert)                                                                        \
    X(CheckDriverIntegrity)
// clang-format on

namespace kesta {

struct Functions {
#define KESTA_UKEY_POINTER(name) decltype(&::name) name = nullptr;
    KESTA_UKEY_FUNCTIONS(KESTA_UKEY_POINTER)
#undef KESTA_UKEY_POINTER
    const bool* initFlag = nullptr;

    // A program that is linked with the library calls this; another one must not.
    static Functions Linked() {
        Functions table;
#define KESTA_UKEY_TAKE(name) table.name = &::name;
        KESTA_UKEY_FUNCTIONS(KESTA_UKEY_TAKE)
#undef KESTA_UKEY_TAKE
        table.initFlag = &::g_initFlag;
        return table;
    }

    // The library stays loaded until the process ends: it keeps the token library loaded for as
    // long, and a thread may be waiting inside it.
    static Result<Functions> Load(const std::string& file) {
        void* const library = ::dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
        if (library == nullptr) return LoadFailure(file);
        Functions table;
#define KESTA_UKEY_LOOK_UP(name)                                               \
    table.name = reinterpret_cast<decltype(&::name)>(::dlsym(library, #name)); \
    if (table.name == nullptr) return LoadFailure(Say(Sentence::kNoFunction, {file, #name}));
        KESTA_UKEY_FUNCTIONS(KESTA_UKEY_LOOK_UP)
#undef KESTA_UKEY_LOOK_UP
        table.initFlag = static_cast<const bool*>(::dlsym(library, "g_initFlag"));
        if (table.initFlag == nullptr)
            return LoadFailure(Say(Sentence::kNoVariable, {file, "g_initFlag"}));
        return table;
    }

private:
    static Failure LoadFailure(const std::string& fallback) {
        const char* const reason = ::dlerror();
        return {KESTA_NOT_BOUND, "Load", reason != nullptr ? reason : fallback,
                Failure::Origin::kLoading};
    }
};

}  // namespace kesta

#endif

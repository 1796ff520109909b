// The stand-in for libkesta_unified_zrkukey.so: its functions. Its variables and its C++ names
// stay those of the real library, which this one needs and which comes behind it in every look-up.
#include "kesta/ukey/functions.hpp"
#include "shim.h"

namespace kesta {
namespace recorder {

// Bound as the real library's own use of it is: to a client's copy where there is one.
int* LastErrorOf(std::size_t) {
    return &::G_LastError;
}

}  // namespace recorder
}  // namespace kesta

using namespace kesta::recorder;

#define KESTA_STAND(name) Stand<NumberOf(Boundary::kExports, #name), decltype(::name)>

// The public header declares the functions; an indirect one gets its body without its parameters
// being written down again.
#define KESTA_DEFINE(name)                             \
    extern "C" decltype(&::name) kesta_find_##name() { \
        return &KESTA_STAND(name)::call;               \
    }                                                  \
    extern "C" decltype(::name) name __attribute__((ifunc("kesta_find_" #name)));
KESTA_UKEY_FUNCTIONS(KESTA_DEFINE)

__attribute__((constructor)) static void Bind() {
    const RealLibrary library(Boundary::kExports);
#define KESTA_BIND(name) library.Find(#name, KESTA_STAND(name)::real);
    KESTA_UKEY_FUNCTIONS(KESTA_BIND)
}

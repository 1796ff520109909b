// The stand-in for libKestaZRK.so.
#include "kesta/token_library.h"

#define KESTA_ENTRY_SPACE kesta::token
#define KESTA_ENTRY_STAND(name) Stand<NumberOf(Boundary::kToken, #name), kesta::token::name>

#include "entry_points.h"

KESTA_TOKEN_ENTRY_POINTS(KESTA_DEFINE_ENTRY)

#ifndef KESTA_REPLAYER
__attribute__((constructor)) static void Bind() {
    const RealLibrary library(Boundary::kToken);
    KESTA_TOKEN_ENTRY_POINTS(KESTA_BIND_ENTRY)
}
#endif

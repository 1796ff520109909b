// The names that the library shows. Each is declared from the contract's own list, so that a
// definition with other arguments does not compile, and one that is missing does not link.
#ifndef SOFTKEY_TOKEN_ENTRY_POINTS_H
#define SOFTKEY_TOKEN_ENTRY_POINTS_H

#include "kesta/token_library.h"

#define SOFTKEY_DECLARE_ENTRY(result, name, arguments) \
    extern "C" __attribute__((visibility("default"))) result name arguments;
KESTA_TOKEN_ENTRY_POINTS(SOFTKEY_DECLARE_ENTRY)
#undef SOFTKEY_DECLARE_ENTRY

#endif

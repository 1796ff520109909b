// A library with the token library's entry points and nothing behind them: it must not be called.
#include "kesta/token_library.h"

#include <cstdlib>

extern "C" {
#define FIXTURE_ENTRY(result, name, arguments)           \
    __attribute__((visibility("default"))) void name() { \
        std::abort();                                    \
    }
KESTA_TOKEN_ENTRY_POINTS(FIXTURE_ENTRY)
#undef FIXTURE_ENTRY
}

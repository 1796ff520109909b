// A library with the token library's entry points and nothing behind them. What is called ends,
// halts, or succeeds without an answer, as FIXTURE_END says.
#include "kesta/token_library.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#ifndef FIXTURE_END
#define FIXTURE_END std::abort()
#endif

extern "C" {
#define FIXTURE_ENTRY(result, name, arguments)          \
    __attribute__((visibility("default"))) int name() { \
        FIXTURE_END;                                    \
        return 0;                                       \
    }
KESTA_TOKEN_ENTRY_POINTS(FIXTURE_ENTRY)
#undef FIXTURE_ENTRY
}

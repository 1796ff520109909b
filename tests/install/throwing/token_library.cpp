// A token library whose every entry point throws.
#include "kesta/token_library.h"

#include <stdexcept>

#define THROW(result, name, arguments)                                        \
    extern "C" __attribute__((visibility("default"))) result name arguments { \
        throw std::runtime_error(#name);                                      \
    }
KESTA_TOKEN_ENTRY_POINTS(THROW)

// The names of the token event library, for the linker alone. At run time the maker's library (or
// a stand-in of the same name) is found in the install directory; these bodies are never called.
#include "kesta/event_library.h"

#pragma GCC visibility push(default)
#pragma GCC diagnostic ignored "-Wunused-parameter"

#define KESTA_NEVER_CALLED(result, name, arguments) \
    result name arguments {                         \
        return -1;                                  \
    }
KESTA_EVENT_ENTRY_POINTS(KESTA_NEVER_CALLED)

#pragma GCC visibility pop

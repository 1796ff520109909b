// A library with the 42 functions that does nothing at all: what remains is the cost of the call.
#include "kesta/ukey/functions.hpp"

#define EXPORT __attribute__((visibility("default")))

extern "C" {
EXPORT int Forwarded() {
    return 0;
}
EXPORT bool initialised = true;
}

#define NULL_FUNCTION(name) __asm__(".globl " #name "\n.set " #name ", Forwarded\n");
KESTA_UKEY_FUNCTIONS(NULL_FUNCTION)
__asm__(".globl g_initFlag\n.set g_initFlag, initialised\n");

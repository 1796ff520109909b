// Access to G_LastError. It is a plain exported int that clients read as such; here every access
// is a relaxed atomic one, because a wait, a stop and another call may run side by side.
#ifndef KESTA_LAST_ERROR_H
#define KESTA_LAST_ERROR_H

#include "kesta_unified_zrkukey.h"

inline int LastError() {
    return __atomic_load_n(&G_LastError, __ATOMIC_RELAXED);
}

// Stores the code and hands it back, as most paths return what they store.
inline int SetLastError(int code) {
    __atomic_store_n(&G_LastError, code, __ATOMIC_RELAXED);
    return code;
}

#endif

/* Which call of the library into the runtime fails. */
#ifndef KESTA_FAULTS_FAILING_CALL_H
#define KESTA_FAULTS_FAILING_CALL_H

#include <stdbool.h>

#ifdef __cplusplus
extern "C" {
#endif

/* True when the call of this symbol that returns to this place is the chosen one. */
bool MustFailCall(const char* symbol, const void* returnAddress);
void ThrowNoMemory(void);

#ifdef __cplusplus
}
#endif

#endif

/* Fails one chosen call that a loaded file makes into others: into the runtime, the kernel,
   OpenSSL, SQLite. The calls go through the file's table of addresses, where a function of ours
   takes the place of each; it counts, and when the chosen call comes, answers as the real one does
   when the machine is at fault. What fails how stands in failures.def, and for all that is watched.
 */
#ifndef KESTA_FAULTS_FAILING_CALLS_H
#define KESTA_FAULTS_FAILING_CALLS_H

#include <stdbool.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

enum { kFaultSlots = 2048, kFaultCalls = 1 << 19, kFaultName = 96 };

/* What is watched of a file. */
enum FaultScope {
    kFaultAll, /* every call that can fail; one that failures.def does not have is a fault of it */
    kFaultFiles, /* of a library between: its reading and writing, and its allocations */
    kFaultMemory /* its allocations */
};

/* One call that can fail. The place is where it was made, as far as the stack tells. */
struct FaultCall {
    uint32_t slot;
    uint32_t place;
};

/* Laid out the same for whoever reads it from a file. */
struct FaultRecord {
    uint32_t target; /* the call that is to fail; 0 for none */
    uint32_t calls;  /* made since FaultsArm */
    uint32_t failed; /* 1: the target was reached */
    uint32_t slots;  /* functions that are watched */
    uint32_t theirs; /* 1: the process ended inside OpenSSL, which has no way out of this failure */
    uint32_t unused[3];
    char names[kFaultSlots][kFaultName];
    uint32_t canFail[kFaultSlots]; /* 0: never; 1: it can; 2: nobody has said */
    struct FaultCall log[kFaultCalls];
};

/* Takes over the calls of the first loaded file whose name ends so; "" is the program itself. False
   when there is none. */
bool FaultsWatch(const char* file, enum FaultScope scope);
/* Where counts and names are kept; some memory of the process unless told. */
void FaultsKeepIn(struct FaultRecord* record);
struct FaultRecord* FaultsKept(void);
/* From now on a crash inside OpenSSL is noted as such: it does not look everywhere whether it has
   got memory, and asserts that it has elsewhere. */
void FaultsTellCrashes(void);
/* Counts from the first call of this function on, and not before. */
void FaultsArmAt(const char* symbol, uint32_t target);
/* From now on the call of this number fails; 0 only counts. */
void FaultsArm(uint32_t target);
/* Looked up by what ends a process that counts its lines. */
__attribute__((visibility("default"))) void FaultsDisarm(void);

#ifdef __cplusplus
}
#endif

#endif

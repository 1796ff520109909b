/* Loaded in front of a command: fails the call that the file named by KESTA_FAULTS asks for. What
   the command starts in turn runs undisturbed. */
#define _GNU_SOURCE
#include <fcntl.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <unistd.h>

#include "failing_calls.h"

__attribute__((constructor)) static void Begin(void) {
    const char* const path = getenv("KESTA_FAULTS");
    if (!path) return;
    const int file = open(path, O_RDWR | O_CLOEXEC);
    void* const record =
        mmap(NULL, sizeof(struct FaultRecord), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    if (file < 0 || record == MAP_FAILED) abort();
    close(file);
    unsetenv("KESTA_FAULTS");
    unsetenv("LD_PRELOAD");
    unsetenv("LD_BIND_NOW");
    FaultsKeepIn(record);
    FaultsKept()->slots = 0;
    if (!FaultsWatch("", kFaultAll)) abort();
    FaultsWatch("libstdc++.so.6", kFaultFiles);
    FaultsWatch("libcrypto.so.3", kFaultMemory);
    FaultsWatch("libsqlite3.so.0", kFaultMemory);
    FaultsTellCrashes();
    /* The first that a command calls itself: before it stands what the C++ runtime prepares. */
    FaultsArmAt("setlocale", FaultsKept()->target);
}

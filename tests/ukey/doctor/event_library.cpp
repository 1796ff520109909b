// The same for the token event library.
#include <cstdlib>

#define FIXTURE_ENTRY(name)                                         \
    extern "C" __attribute__((visibility("default"))) void name() { \
        std::abort();                                               \
    }
FIXTURE_ENTRY(ValtoT_GetSlotList)
FIXTURE_ENTRY(ValtoT_GetDeviceInfo)
FIXTURE_ENTRY(ValtoT_ContextInit)
FIXTURE_ENTRY(ValtoT_WaitForEvent)
FIXTURE_ENTRY(ValtoT_ContextFinal)

// The names of the token event library, for the linker alone. At run time the maker's library (or
// a stand-in of the same name) is found in the install directory; these bodies are never called.
#include "kesta/event_library.h"

#pragma GCC visibility push(default)

int ValtoT_GetSlotList(std::uint32_t, std::uint32_t*, std::uint32_t*) {
    return -1;
}
int ValtoT_GetDeviceInfo(std::uint32_t, std::uint32_t, _S_DEV_CONFIG*) {
    return -1;
}
int ValtoT_ContextInit(std::uint32_t*) {
    return -1;
}
int ValtoT_WaitForEvent(std::uint32_t, std::uint32_t, VALTO_EVENT_INFO*, std::uint32_t*) {
    return -1;
}
int ValtoT_ContextFinal(void) {
    return -1;
}

#pragma GCC visibility pop

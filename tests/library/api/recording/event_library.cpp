// libR7Token_KESTA.so of the tests: five entry points that only record. The library under test is
// linked against it, so it is there from the start of the process.
#include "kesta/event_library.h"

#include "capture.h"

namespace {

template <class... Arguments>
int Recorded(const char* entry, const char* roles, Arguments... arguments) {
    return recording::CarryOut(entry, roles, {recording::RawOf(arguments)...}).code;
}

}  // namespace

extern "C" {

RECORDING_API int ValtoT_GetSlotList(std::uint32_t present, std::uint32_t* slotIds,
                                     std::uint32_t* count) {
    return Recorded("ValtoT_GetSlotList", "v m64 l", present, slotIds, count);
}

RECORDING_API int ValtoT_GetDeviceInfo(std::uint32_t slotId, std::uint32_t flags,
                                       _S_DEV_CONFIG* record) {
    return Recorded("ValtoT_GetDeviceInfo", "v v m396", slotId, flags, record);
}

RECORDING_API int ValtoT_ContextInit(std::uint32_t* context) {
    return Recorded("ValtoT_ContextInit", "l", context);
}

RECORDING_API int ValtoT_WaitForEvent(std::uint32_t argument1, std::uint32_t argument2,
                                      VALTO_EVENT_INFO* event, std::uint32_t* context) {
    return Recorded("ValtoT_WaitForEvent", "v v m332 l", argument1, argument2, event, context);
}

RECORDING_API int ValtoT_ContextFinal(void) {
    return Recorded("ValtoT_ContextFinal", "");
}
}

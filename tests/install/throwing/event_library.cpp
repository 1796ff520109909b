// An event library that throws four times, each time something else, before it delivers an event.
#include "kesta/event_library.h"

#include <new>
#include <stdexcept>

namespace {
struct OfItsOwn {};
int polls = 0;
}  // namespace

int ValtoT_WaitForEvent(std::uint32_t, std::uint32_t, VALTO_EVENT_INFO* event, std::uint32_t*) {
    switch (++polls) {
        case 1:
            throw std::runtime_error("gone");
        case 2:
            throw std::bad_alloc();
        case 3:
            throw 42;
        case 4:
            throw OfItsOwn();
        default:
            event->u32EventType = 0x7f;
            return 0;
    }
}

int ValtoT_GetSlotList(std::uint32_t, std::uint32_t*, std::uint32_t* count) {
    *count = 0;
    return 0;
}
int ValtoT_GetDeviceInfo(std::uint32_t, std::uint32_t, _S_DEV_CONFIG*) {
    return 1;
}
int ValtoT_ContextInit(std::uint32_t*) {
    return 0;
}
int ValtoT_ContextFinal() {
    return 0;
}

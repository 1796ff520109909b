// The contract with the token event library, libR7Token_KESTA.so: five entry points and the two
// records that they fill. The library is linked against these names, the software key and the
// tests' stand-ins define them.
#ifndef KESTA_EVENT_LIBRARY_H
#define KESTA_EVENT_LIBRARY_H

#include <cstddef>
#include <cstdint>

#include "kesta/device_record.h"

// Event kinds of VALTO_EVENT_INFO::u32EventType.
enum : std::uint32_t {
    SLOT_DEVICEARRIVAL = 1,
    SLOT_DEVICEREMOVE = 2,
};

#pragma pack(push, 4)
struct VALTO_EVENT_INFO {
    std::uint32_t u32EventType;
    std::uint32_t reserved4[2];
    union {
        struct {
            std::uint32_t u32SlotID;
        } slotEvent;
        unsigned char raw[320];
    } ei;
};
#pragma pack(pop)

static_assert(sizeof(VALTO_EVENT_INFO) == 332, "the event record is 332 bytes");
static_assert(offsetof(VALTO_EVENT_INFO, u32EventType) == 0, "the event kind stands at byte 0");
static_assert(offsetof(VALTO_EVENT_INFO, ei.slotEvent.u32SlotID) == 12,
              "the slot id stands at byte 12");

extern "C" {

// Fills slotIds with the ids of the present slots. *count holds the room in ids on entry and the
// number of ids filled on return. The caller passes present = 1. 0 is success.
int ValtoT_GetSlotList(std::uint32_t present, std::uint32_t* slotIds, std::uint32_t* count);

// Fills the 396 bytes of *record for one slot. flags is 0 in a slot scan and 0xE0000 for a key
// that has just arrived. 0 is success.
int ValtoT_GetDeviceInfo(std::uint32_t slotId, std::uint32_t flags, _S_DEV_CONFIG* record);

// Opens an event context; *context is 0 on entry. 0 is success, anything else an error code.
int ValtoT_ContextInit(std::uint32_t* context);

// Delivers the next event into the 332 bytes of *event and returns 0, or returns non-zero when
// there is none yet. The caller passes 1 and 0 first. It may throw.
int ValtoT_WaitForEvent(std::uint32_t argument1, std::uint32_t argument2, VALTO_EVENT_INFO* event,
                        std::uint32_t* context);

// Closes the event context.
int ValtoT_ContextFinal(void);
}

#endif

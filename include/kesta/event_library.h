// The contract with the token event library, libR7Token_KESTA.so: its entry points and the two
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

// One line for each entry point: result, name, arguments. Expanded below into declarations, and by
// those who list the entry points or stand in for them. An int of 0 is success.
#define KESTA_EVENT_ENTRY_POINTS(X)                                                               \
    /* Fills slotIds with the ids of the present slots. *count: the room in ids on entry, the */  \
    /* number of ids filled on return. present is 1. */                                           \
    X(int, ValtoT_GetSlotList,                                                                    \
      (std::uint32_t present, std::uint32_t * slotIds, std::uint32_t * count))                    \
    /* Fills the record for one slot. flags: 0 in a slot scan, 0xE0000 for a key that has just */ \
    /* arrived. */                                                                                \
    X(int, ValtoT_GetDeviceInfo,                                                                  \
      (std::uint32_t slotId, std::uint32_t flags, _S_DEV_CONFIG * record))                        \
    /* Opens an event context; *context is 0 on entry. Any other result is an error code. */      \
    X(int, ValtoT_ContextInit, (std::uint32_t * context))                                         \
    /* Delivers the next event into *event and returns 0, or returns non-zero when there is */    \
    /* none yet. The first two arguments are 1 and 0. It may throw. */                            \
    X(int, ValtoT_WaitForEvent,                                                                   \
      (std::uint32_t argument1, std::uint32_t argument2, VALTO_EVENT_INFO * event,                \
       std::uint32_t * context))                                                                  \
    /* Closes the event context; the result is not looked at. */                                  \
    X(int, ValtoT_ContextFinal, ())

extern "C" {
#define KESTA_DECLARE_EVENT_ENTRY(result, name, arguments) result name arguments;
KESTA_EVENT_ENTRY_POINTS(KESTA_DECLARE_EVENT_ENTRY)
#undef KESTA_DECLARE_EVENT_ENTRY
}

// kesta::event::ValtoT_GetSlotList and so on: the types of the entry points.
namespace kesta {
namespace event {
#define KESTA_ENTRY_TYPE(result, name, arguments) using name = result arguments;
KESTA_EVENT_ENTRY_POINTS(KESTA_ENTRY_TYPE)
#undef KESTA_ENTRY_TYPE

#define KESTA_COUNT_ENTRY(result, name, arguments) +1
constexpr int kEntryPoints = KESTA_EVENT_ENTRY_POINTS(KESTA_COUNT_ENTRY);
#undef KESTA_COUNT_ENTRY
static_assert(kEntryPoints == 5, "5 entry points");
}  // namespace event
}  // namespace kesta

#endif

// The stand-in for libR7Token_KESTA.so.
#include "kesta/event_library.h"

#define KESTA_ENTRY_SPACE kesta::event
#define KESTA_ENTRY_STAND(name) Stand<NumberOf(Boundary::kEvents, #name), kesta::event::name>

#include "entry_points.h"

KESTA_EVENT_ENTRY_POINTS(KESTA_DEFINE_ENTRY)

#ifndef KESTA_REPLAYER
__attribute__((constructor)) static void Bind() {
    const RealLibrary library(Boundary::kEvents);
    KESTA_EVENT_ENTRY_POINTS(KESTA_BIND_ENTRY)
}
#endif

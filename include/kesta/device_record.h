// The device record: what a token or event library tells about one key.
//
// Its layout is fixed by the maker. This library reads one field of it, the media id.
#ifndef KESTA_DEVICE_RECORD_H
#define KESTA_DEVICE_RECORD_H

#include <cstddef>

#include "kesta/places.h"

#pragma pack(push, 1)
// The name is the maker's; it is part of the symbol of X_getMediaId.
struct _S_DEV_CONFIG {
    unsigned char reserved0[248];
    char szMediaId[kesta::limits::kMediaId];  // no NUL when all 16 bytes are used
    unsigned char reserved264[132];
};
#pragma pack(pop)

static_assert(sizeof(_S_DEV_CONFIG) == 396, "the device record is 396 bytes");
static_assert(offsetof(_S_DEV_CONFIG, szMediaId) == 248, "the media id stands at byte 248");

#endif

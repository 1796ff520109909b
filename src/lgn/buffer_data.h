// The header that stands in front of every string's characters.
#ifndef LGN_BUFFER_DATA_H
#define LGN_BUFFER_DATA_H

#include <cstddef>
#include <cstdint>

#include "kesta/token_library.h"

namespace LGN {

class ILgnBufferMgr;

struct CBufferData {
    ILgnBufferMgr* pBufferMgr;
    std::int32_t nDataLength;   // characters in use, without the NUL
    std::int32_t nAllocLength;  // characters that fit, without the NUL
    std::int64_t nRefs;         // strings that share the buffer; negative: locked

    char* Characters() { return reinterpret_cast<char*>(this + 1); }
    bool IsLocked() const { return nRefs < 0; }
    bool IsShared() const { return nRefs > 1; }
};

static_assert(sizeof(CBufferData) == sizeof(KestaStringHeader) &&
                  offsetof(CBufferData, pBufferMgr) == offsetof(KestaStringHeader, manager) &&
                  offsetof(CBufferData, nDataLength) == offsetof(KestaStringHeader, dataLength) &&
                  offsetof(CBufferData, nAllocLength) == offsetof(KestaStringHeader, allocLength) &&
                  offsetof(CBufferData, nRefs) == offsetof(KestaStringHeader, references),
              "peers see this header");

// One string fewer uses the buffer; the last one frees it. The block goes straight back to the
// system heap, where every buffer comes from; its manager is not asked.
void ReleaseBufferData(CBufferData* data);

}  // namespace LGN

#endif

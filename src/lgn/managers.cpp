#include <cstdlib>
#include <limits>

#include "lgn/lgn.h"

namespace LGN {

namespace {

// Characters to reserve for nChars and the NUL: the next multiple of 8 above nChars. 0 when that
// cannot be counted.
int ReservedCount(int nChars) {
    if (nChars < 0 || nChars > std::numeric_limits<int>::max() - 8) return 0;
    return (nChars + 8) & ~7;
}

// Bytes of a block for that many reserved characters, 0 when they cannot be counted. Characters of
// no size take the header alone.
std::size_t BlockSize(int reserved, int nCharSize) {
    int bytes = 0;
    if (reserved == 0 || nCharSize < 0 || __builtin_mul_overflow(nCharSize, reserved, &bytes)) {
        return 0;
    }
    return static_cast<std::size_t>(bytes) + sizeof(CBufferData);
}

}  // namespace

void* CCRTHeap::Allocate(std::size_t bytes) {
    lastSize_ = bytes;
    return std::malloc(bytes);
}

void CCRTHeap::Free(void* p) {
    lastSize_ = 0;
    std::free(p);
}

void* CCRTHeap::Reallocate(void* p, std::size_t bytes) {
    lastSize_ = bytes;
    return std::realloc(p, bytes);
}

std::size_t CCRTHeap::GetSize(void*) {
    return lastSize_;
}

CBufferData* CLgnBufferMgr::Allocate(int nChars, int nCharSize) {
    const int reserved = ReservedCount(nChars);
    const std::size_t bytes = BlockSize(reserved, nCharSize);
    if (bytes == 0) return nullptr;
    auto* data = static_cast<CBufferData*>(memMgr_->Allocate(bytes));
    if (data == nullptr) return nullptr;
    data->pBufferMgr = this;
    data->nDataLength = 0;
    data->nAllocLength = reserved - 1;
    data->nRefs = 1;
    return data;
}

void CLgnBufferMgr::Free(CBufferData* data) {
    memMgr_->Free(data);
}

CBufferData* CLgnBufferMgr::Reallocate(CBufferData* data, int nChars, int nCharSize) {
    const int reserved = ReservedCount(nChars);
    const std::size_t bytes = BlockSize(reserved, nCharSize);
    if (bytes == 0) return nullptr;
    auto* moved = static_cast<CBufferData*>(memMgr_->Reallocate(data, bytes));
    if (moved == nullptr) return nullptr;
    moved->nAllocLength = reserved - 1;
    return moved;
}

CBufferData* CLgnBufferMgr::GetNilBuffer() {
    ++nil_.nRefs;
    return &nil_;
}

ILgnBufferMgr* CLgnBufferMgr::Clone() {
    return this;
}

void ReleaseBufferData(CBufferData* data) {
    if (--data->nRefs < 1) std::free(data);
}

void LgnThrow(int code) {
    throw CLgnException(code);
}

void DoInitialization() {}
void DoCleanup() {}

}  // namespace LGN

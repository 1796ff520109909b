#include "lgn/simple_buffer.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "lgn/simple_string.h"

namespace LGN {

namespace {

constexpr int kMaxLength = std::numeric_limits<int>::max();

std::size_t Bytes(int nCharacters) {
    return static_cast<std::size_t>(nCharacters);
}

// A buffer from a manager, which may be a peer's: one that hands out too little is refused.
CBufferData* AllocateFrom(ILgnBufferMgr* mgr, int nLength) {
    CBufferData* data = mgr->Allocate(nLength, sizeof(char));
    if (data == nullptr) CSimpleBufferT<char>::ThrowMemoryException();
    if (nLength > data->nAllocLength) {
        ReleaseBufferData(data);
        LgnThrow(kInvalidArgument);
    }
    return data;
}

}  // namespace

int TextLength(const char* psz) {
    if (psz == nullptr) return 0;
    const std::size_t length = std::strlen(psz);
    if (length > Bytes(kMaxLength)) LgnThrow(kInvalidArgument);
    return static_cast<int>(length);
}

CSimpleBufferT<char>::CSimpleBufferT(ILgnBufferMgr* mgr) : object_{nullptr} {
    Attach(mgr->GetNilBuffer());
}

CSimpleBufferT<char>::CSimpleBufferT(const char* pch, int nLength, ILgnBufferMgr* mgr)
    : object_{nullptr} {
    if (nLength < 0 || (pch == nullptr && nLength != 0)) LgnThrow(kInvalidArgument);
    Attach(AllocateFrom(mgr, nLength));
    SetLength(nLength);
    if (nLength != 0) std::memcpy(object_.characters, pch, Bytes(nLength));
}

CSimpleBufferT<char>::CSimpleBufferT(const CSimpleBufferT& other) : object_{nullptr} {
    Attach(CloneData(other.GetData()));
}

CSimpleBufferT<char>& CSimpleBufferT<char>::operator=(const CSimpleBufferT& other) {
    CBufferData* own = GetData();
    CBufferData* theirs = other.GetData();
    if (own == theirs) return *this;
    if (own->IsLocked() || own->pBufferMgr != theirs->pBufferMgr) {
        SetString(other.GetString(), other.GetLength());
        return *this;
    }
    CBufferData* data = CloneData(theirs);
    ReleaseBufferData(own);
    Attach(data);
    return *this;
}

char CSimpleBufferT<char>::GetAt(int nIndex) const {
    if (nIndex < 0 || nIndex > GetLength()) LgnThrow(kInvalidArgument);
    return object_.characters[nIndex];
}

char* CSimpleBufferT<char>::GetBuffer(int nMinBufferLength, unsigned flags) {
    PrepareWrite(std::max(nMinBufferLength, GetLength()));
    if ((flags & kZeroUnused) != 0) {
        std::memset(object_.characters + GetLength(), 0, Bytes(GetAllocLength() - GetLength()));
    }
    return object_.characters;
}

void CSimpleBufferT<char>::SetLength(int nLength) {
    if (nLength < 0 || nLength > GetAllocLength()) LgnThrow(kInvalidArgument);
    GetData()->nDataLength = nLength;
    object_.characters[nLength] = '\0';
}

void CSimpleBufferT<char>::Fork(int nLength) {
    CBufferData* old = GetData();
    CBufferData* data = AllocateFrom(old->pBufferMgr->Clone(), nLength);
    const int copied = std::min(old->nDataLength, nLength) + 1;
    std::memcpy(data->Characters(), object_.characters, Bytes(copied));
    data->nDataLength = old->nDataLength;
    ReleaseBufferData(old);
    Attach(data);
}

void CSimpleBufferT<char>::Empty() {
    CBufferData* data = GetData();
    if (data->nDataLength == 0) return;
    if (data->IsLocked()) {
        SetLength(0);
        return;
    }
    ILgnBufferMgr* mgr = data->pBufferMgr;
    ReleaseBufferData(data);
    Attach(mgr->GetNilBuffer());
}

void CSimpleBufferT<char>::SetString(const char* psz, int nLength) {
    if (nLength == 0) {
        Empty();
        return;
    }
    if (nLength < 0 || psz == nullptr) LgnThrow(kInvalidArgument);
    const int oldLength = GetLength();
    // The source may be this string's own text, which moves when the buffer does: it is known by
    // its offset. An address below the text wraps to an offset beyond any length.
    const auto offset = reinterpret_cast<std::uintptr_t>(psz) -
                        reinterpret_cast<std::uintptr_t>(object_.characters);
    char* buffer = PrepareWrite(std::max(nLength, oldLength));
    if (offset > Bytes(oldLength)) {
        std::memcpy(buffer, psz, Bytes(nLength));
    } else {
        std::memmove(buffer, buffer + offset, Bytes(nLength));
    }
    SetLength(nLength);
}

void CSimpleBufferT<char>::Append(const char* psz, int nLength) {
    if (nLength < 0 || (psz == nullptr && nLength != 0)) LgnThrow(kInvalidArgument);
    const int oldLength = GetLength();
    if (nLength > kMaxLength - oldLength) LgnThrow(kInvalidArgument);
    if (nLength == 0) return;
    const auto offset = reinterpret_cast<std::uintptr_t>(psz) -
                        reinterpret_cast<std::uintptr_t>(object_.characters);
    char* buffer = PrepareWrite(oldLength + nLength);
    const char* source = offset > Bytes(oldLength) ? psz : buffer + offset;
    std::memmove(buffer + oldLength, source, Bytes(nLength));
    SetLength(oldLength + nLength);
}

CBufferData* CSimpleBufferT<char>::CloneData(CBufferData* data) {
    ILgnBufferMgr* mgr = data->pBufferMgr->Clone();
    if (mgr == data->pBufferMgr && !data->IsLocked()) {
        ++data->nRefs;
        return data;
    }
    CBufferData* copy = AllocateFrom(mgr, data->nDataLength);
    copy->nDataLength = data->nDataLength;
    std::memcpy(copy->Characters(), data->Characters(), Bytes(data->nDataLength) + 1);
    return copy;
}

void CSimpleBufferT<char>::ThrowMemoryException() {
    LgnThrow(kOutOfMemory);
}

char* CSimpleBufferT<char>::PrepareWrite(int nLength) {
    if (GetData()->IsShared()) {
        Fork(nLength);
    } else if (GetAllocLength() < nLength) {
        Grow(nLength);
    }
    return object_.characters;
}

// Doubles small buffers, then adds 1024 characters at a time: peers size their own texts by it.
void CSimpleBufferT<char>::Grow(int nLength) {
    CBufferData* data = GetData();
    const int old = data->nAllocLength;
    int wanted = nLength;
    if (old <= 1024) {
        wanted = std::max(wanted, old * 2);
    } else if (old <= kMaxLength - 1024) {
        wanted = std::max(wanted, old + 1024);
    }
    CBufferData* moved = data->pBufferMgr->Reallocate(data, wanted, sizeof(char));
    if (moved == nullptr) ThrowMemoryException();
    Attach(moved);
    if (nLength > moved->nAllocLength) LgnThrow(kInvalidArgument);
}

}  // namespace LGN

// The shared buffer under a string: one pointer to the first character, copy on write.
#ifndef LGN_SIMPLE_BUFFER_H
#define LGN_SIMPLE_BUFFER_H

#include "lgn/buffer_mgr.h"
#include "lgn/exception.h"

namespace LGN {

template <typename T>
class CSimpleBufferT;

template <>
class CSimpleBufferT<char> {
public:
    // GetBuffer fills the unused characters with zero bytes.
    static constexpr unsigned kZeroUnused = 0x40;

    // The empty string of mgr.
    explicit CSimpleBufferT(ILgnBufferMgr* mgr = _lgnBufferManager);
    // A copy of nLength characters. Throws on a negative length, and on null with another length
    // than 0, before anything is allocated.
    CSimpleBufferT(const char* pch, int nLength, ILgnBufferMgr* mgr);
    CSimpleBufferT(const CSimpleBufferT& other);
    CSimpleBufferT& operator=(const CSimpleBufferT& other);
    ~CSimpleBufferT() { ReleaseBufferData(GetData()); }

    int GetLength() const { return GetData()->nDataLength; }
    int GetAllocLength() const { return GetData()->nAllocLength; }
    bool IsEmpty() const { return GetLength() == 0; }
    const char* GetString() const { return object_.characters; }
    // The character at an index from 0 to the length, where the NUL is.
    char GetAt(int nIndex) const;
    char operator[](int nIndex) const { return GetAt(nIndex); }

    // What a peer receives that may replace the text.
    KestaStringObject& Object() { return object_; }

    // Makes the buffer private, with room for nMinBufferLength characters at least.
    char* GetBuffer(int nMinBufferLength, unsigned flags = 0);
    // Tells how much of a buffer from GetBuffer is in use.
    void SetLength(int nLength);
    // Unshares the text into a new buffer.
    void Fork(int nLength);
    void Empty();
    void SetString(const char* psz, int nLength);
    void Append(const char* psz, int nLength);

    static CBufferData* CloneData(CBufferData* data);
    [[noreturn]] static void ThrowMemoryException();

protected:
    CBufferData* GetData() const { return reinterpret_cast<CBufferData*>(object_.characters) - 1; }
    void Attach(CBufferData* data) { object_.characters = data->Characters(); }
    char* PrepareWrite(int nLength);

private:
    void Grow(int nLength);

    KestaStringObject object_;
};

static_assert(sizeof(CSimpleBufferT<char>) == sizeof(KestaStringObject), "peers see one pointer");

}  // namespace LGN

#endif

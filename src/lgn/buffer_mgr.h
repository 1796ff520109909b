// Who makes and resizes buffers. The order of the operations is a binary contract with peers.
#ifndef LGN_BUFFER_MGR_H
#define LGN_BUFFER_MGR_H

#include "lgn/buffer_data.h"
#include "lgn/mem_mgr.h"

namespace LGN {

class ILgnBufferMgr {
public:
    virtual ~ILgnBufferMgr() {}
    virtual CBufferData* Allocate(int nChars, int nCharSize) = 0;
    virtual void Free(CBufferData* data) = 0;
    virtual CBufferData* Reallocate(CBufferData* data, int nChars, int nCharSize) = 0;
    virtual CBufferData* GetNilBuffer() = 0;
    virtual ILgnBufferMgr* Clone() = 0;
};

class CLgnBufferMgr : public ILgnBufferMgr {
public:
    constexpr explicit CLgnBufferMgr(ILgnMemMgr* memory)
        : memMgr_(memory), nil_{this, 0, 0, 2}, nilCharacters_{} {}
    ~CLgnBufferMgr() override {}

    // Null when the memory manager has none left.
    CBufferData* Allocate(int nChars, int nCharSize) override;
    void Free(CBufferData* data) override;
    CBufferData* Reallocate(CBufferData* data, int nChars, int nCharSize) override;
    CBufferData* GetNilBuffer() override;
    ILgnBufferMgr* Clone() override;

private:
    ILgnMemMgr* memMgr_;
    // Every empty string points behind this header. Its count starts at 2 so that no release
    // brings it down to a free.
    CBufferData nil_;
    [[maybe_unused]] char nilCharacters_[4];
};

}  // namespace LGN

// The managers that strings use unless they are given others.
extern LGN::ILgnMemMgr* _lgnMemoryManager;
extern LGN::ILgnBufferMgr* _lgnBufferManager;

#endif

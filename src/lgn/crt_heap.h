// The system heap as memory manager.
#ifndef LGN_CRT_HEAP_H
#define LGN_CRT_HEAP_H

#include "lgn/mem_mgr.h"

namespace LGN {

class CCRTHeap : public ILgnMemMgr {
public:
    constexpr CCRTHeap() : lastSize_(0) {}
    ~CCRTHeap() override {}

    void* Allocate(std::size_t bytes) override;
    void Free(void* p) override;
    void* Reallocate(void* p, std::size_t bytes) override;
    // The size last asked for, whatever block is named: peers rely on the slot, not on the answer.
    std::size_t GetSize(void* p) override;

private:
    std::size_t lastSize_;
};

}  // namespace LGN

#endif

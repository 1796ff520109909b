// Where buffers' memory comes from. The order of the operations is a binary contract with peers.
#ifndef LGN_MEM_MGR_H
#define LGN_MEM_MGR_H

#include <cstddef>

namespace LGN {

class ILgnMemMgr {
public:
    virtual ~ILgnMemMgr() {}
    virtual void* Allocate(std::size_t bytes) = 0;
    virtual void Free(void* p) = 0;
    virtual void* Reallocate(void* p, std::size_t bytes) = 0;
    virtual std::size_t GetSize(void* p) = 0;
};

}  // namespace LGN

#endif

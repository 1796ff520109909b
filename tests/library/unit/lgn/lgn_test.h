// What the tests of the string library share.
#ifndef KESTA_UNIT_LGN_TEST_H
#define KESTA_UNIT_LGN_TEST_H

#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "lgn/heap_watch.h"
#include "lgn/lgn.h"
#include "lgn/peer.h"

using Buffer = LGN::CSimpleBufferT<char>;

constexpr int kNoMemoryCode = static_cast<int>(0x8007000Eu);
constexpr int kInvalidCode = static_cast<int>(0x80070057u);

// The code of the library's exception that act throws, 0 when it throws none.
template <typename Act>
int ThrownBy(Act act) {
    try {
        act();
    } catch (const LGN::CLgnException& exception) {
        return exception.GetCode();
    }
    return 0;
}

// A string as its bytes tell it.
inline int LengthOf(const Buffer& string) {
    return peer::Header(&string).dataLength;
}
inline int CapacityOf(const Buffer& string) {
    return peer::Header(&string).allocLength;
}
inline std::int64_t ReferencesOf(const Buffer& string) {
    return peer::Header(&string).references;
}
inline void* ManagerOf(const Buffer& string) {
    return peer::Header(&string).manager;
}
inline std::string TextOf(const Buffer& string) {
    return std::string(peer::Characters(&string), static_cast<std::size_t>(LengthOf(string)));
}
inline bool IsTerminated(const Buffer& string) {
    return peer::Characters(&string)[LengthOf(string)] == '\0';
}
inline const char* AddressOf(const Buffer& string) {
    return peer::Characters(&string);
}

// The reference count of the empty text of the library's own manager.
inline std::int64_t NilReferences() {
    return peer::Load<std::int64_t>(_lgnBufferManager, 32);
}

// Every test ends with as many blocks, and users of the empty text, as it began with.
class LgnTest : public testing::Test {
protected:
    LgnTest() : blocks_(heap::LiveBlocks()), nil_(NilReferences()) {}
    ~LgnTest() override {
        EXPECT_EQ(heap::LiveBlocks(), blocks_) << "blocks were lost or given back twice";
        EXPECT_EQ(NilReferences(), nil_) << "the empty text's count is not as it was";
    }

private:
    const long blocks_;
    const std::int64_t nil_;
};

// A manager whose operations can be made to fail, beside the library's own.
class FaultyManagerTest : public LgnTest {
protected:
    ~FaultyManagerTest() override {
        EXPECT_EQ(raw.NilReferences(), 2) << "the raw manager's empty text is still in use";
        EXPECT_EQ(other.NilReferences(), 2) << "the other manager's empty text is still in use";
    }

    LGN::ILgnBufferMgr* Mgr() { return raw.As<LGN::ILgnBufferMgr>(); }
    LGN::ILgnBufferMgr* OtherMgr() { return other.As<LGN::ILgnBufferMgr>(); }

    peer::RawManager raw{_lgnBufferManager};
    peer::RawManager other{_lgnBufferManager};
};

// Strings made without a manager use this one while it lives.
class DefaultManager {
public:
    explicit DefaultManager(LGN::ILgnBufferMgr* mgr)
        : before_(std::exchange(_lgnBufferManager, mgr)) {}
    ~DefaultManager() { _lgnBufferManager = before_; }
    DefaultManager(const DefaultManager&) = delete;
    DefaultManager& operator=(const DefaultManager&) = delete;

private:
    LGN::ILgnBufferMgr* before_;
};

#endif

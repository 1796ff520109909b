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
int thrown_by(Act act) {
    try {
        act();
    } catch (const LGN::CLgnException& exception) {
        return exception.GetCode();
    }
    return 0;
}

// A string as its bytes tell it.
inline int length_of(const Buffer& string) {
    return peer::header(&string).dataLength;
}
inline int capacity_of(const Buffer& string) {
    return peer::header(&string).allocLength;
}
inline std::int64_t references_of(const Buffer& string) {
    return peer::header(&string).references;
}
inline void* manager_of(const Buffer& string) {
    return peer::header(&string).manager;
}
inline std::string text_of(const Buffer& string) {
    return std::string(peer::characters(&string), static_cast<std::size_t>(length_of(string)));
}
inline bool is_terminated(const Buffer& string) {
    return peer::characters(&string)[length_of(string)] == '\0';
}
inline const char* address_of(const Buffer& string) {
    return peer::characters(&string);
}

// The reference count of the empty text of the library's own manager.
inline std::int64_t nil_references() {
    return peer::load<std::int64_t>(_lgnBufferManager, 32);
}

// Every test ends with as many blocks, and users of the empty text, as it began with.
class LgnTest : public testing::Test {
protected:
    LgnTest() : m_blocks(heap::live_blocks()), m_nil(nil_references()) {}
    ~LgnTest() override {
        EXPECT_EQ(heap::live_blocks(), m_blocks) << "blocks were lost or given back twice";
        EXPECT_EQ(nil_references(), m_nil) << "the empty text's count is not as it was";
    }

private:
    const long m_blocks;
    const std::int64_t m_nil;
};

// A manager whose operations can be made to fail, beside the library's own.
class FaultyManagerTest : public LgnTest {
protected:
    ~FaultyManagerTest() override {
        EXPECT_EQ(raw.nil_references(), 2) << "the raw manager's empty text is still in use";
        EXPECT_EQ(other.nil_references(), 2) << "the other manager's empty text is still in use";
    }

    LGN::ILgnBufferMgr* mgr() { return raw.as<LGN::ILgnBufferMgr>(); }
    LGN::ILgnBufferMgr* other_mgr() { return other.as<LGN::ILgnBufferMgr>(); }

    peer::RawManager raw{_lgnBufferManager};
    peer::RawManager other{_lgnBufferManager};
};

// Strings made without a manager use this one while it lives.
class DefaultManager {
public:
    explicit DefaultManager(LGN::ILgnBufferMgr* mgr)
        : m_before(std::exchange(_lgnBufferManager, mgr)) {}
    ~DefaultManager() { _lgnBufferManager = m_before; }
    DefaultManager(const DefaultManager&) = delete;
    DefaultManager& operator=(const DefaultManager&) = delete;

private:
    LGN::ILgnBufferMgr* m_before;
};

#endif

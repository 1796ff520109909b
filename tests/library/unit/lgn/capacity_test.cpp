// How much room a buffer gets: when it is made and when it grows.
#include "lgn/lgn_test.h"

namespace {

struct Room {
    int characters;
    int capacity;
};

class NewBuffer : public LgnTest, public testing::WithParamInterface<Room> {};

TEST_P(NewBuffer, reserves_the_next_multiple_of_eight_above_its_characters) {
    const std::string text(static_cast<std::size_t>(GetParam().characters), 'x');
    const Buffer buffer(text.data(), GetParam().characters, _lgnBufferManager);
    EXPECT_EQ(CapacityOf(buffer), GetParam().capacity);
    EXPECT_EQ(LengthOf(buffer), GetParam().characters);
    EXPECT_EQ(ReferencesOf(buffer), 1);
    EXPECT_EQ(_lgnMemoryManager->GetSize(nullptr), static_cast<unsigned>(GetParam().capacity) + 25);
    EXPECT_EQ(TextOf(buffer), text);
    EXPECT_TRUE(IsTerminated(buffer));
}

INSTANTIATE_TEST_SUITE_P(Sizes, NewBuffer,
                         testing::Values(Room{0, 7}, Room{1, 7}, Room{7, 7}, Room{8, 15},
                                         Room{15, 15}, Room{16, 23}, Room{1023, 1023},
                                         Room{1024, 1031}, Room{100000, 100007}),
                         [](const auto& test) { return std::to_string(test.param.characters); });

struct Growth {
    int before;     // capacity
    int needed;     // characters
    int requested;  // of the manager
    int after;      // capacity
};

class Growing : public FaultyManagerTest, public testing::WithParamInterface<Growth> {
protected:
    // A private text whose buffer has the capacity to begin with.
    LgnString TextWithRoom() {
        const std::string text(static_cast<std::size_t>(GetParam().before), 'x');
        LgnString string(text.data(), GetParam().before, Mgr());
        peer::SetCapacity(&string, GetParam().before);
        raw.allocated.clear();
        return string;
    }
    void ExpectGrowth(const LgnString& string) {
        EXPECT_EQ(raw.reallocated, std::vector<int>{GetParam().requested});
        EXPECT_EQ(raw.allocated, std::vector<int>{}) << "a private buffer grows in place";
        EXPECT_EQ(CapacityOf(string), GetParam().after);
        EXPECT_TRUE(IsTerminated(string));
    }
};

TEST_P(Growing, in_GetBuffer) {
    LgnString string = TextWithRoom();
    const std::string before = TextOf(string);
    const char* const buffer = string.GetBuffer(GetParam().needed);
    EXPECT_EQ(buffer, AddressOf(string));
    ExpectGrowth(string);
    EXPECT_EQ(TextOf(string), before);
}

TEST_P(Growing, in_SetString) {
    LgnString string = TextWithRoom();
    const std::string text(static_cast<std::size_t>(GetParam().needed), 'y');
    string.SetString(text.c_str());
    ExpectGrowth(string);
    EXPECT_EQ(TextOf(string), text);
}

TEST_P(Growing, in_an_assignment_between_managers) {
    LgnString string = TextWithRoom();
    const std::string text(static_cast<std::size_t>(GetParam().needed), 'y');
    const LgnString source(text.c_str());
    string = source;
    ExpectGrowth(string);
    EXPECT_EQ(TextOf(string), text);
}

TEST_P(Growing, in_Replace) {
    LgnString string = TextWithRoom();
    string.GetBuffer(0)[0] = '|';
    const std::string longer(static_cast<std::size_t>(GetParam().needed - GetParam().before + 1),
                             'y');
    EXPECT_EQ(string.Replace("|", longer.c_str()), 1);
    ExpectGrowth(string);
    EXPECT_EQ(LengthOf(string), GetParam().needed);
}

TEST_P(Growing, in_Append) {
    LgnString string = TextWithRoom();
    const std::string more(static_cast<std::size_t>(GetParam().needed - GetParam().before), 'y');
    string.Append(more.c_str(), static_cast<int>(more.size()));
    ExpectGrowth(string);
    EXPECT_EQ(LengthOf(string), GetParam().needed);
}

INSTANTIATE_TEST_SUITE_P(
    Rule, Growing,
    testing::Values(Growth{7, 8, 14, 15}, Growth{7, 14, 14, 15}, Growth{7, 15, 15, 15},
                    Growth{7, 16, 16, 23}, Growth{7, 100, 100, 103}, Growth{1023, 1024, 2046, 2047},
                    Growth{1024, 1025, 2048, 2055}, Growth{1025, 1026, 2049, 2055},
                    Growth{1031, 1032, 2055, 2055}, Growth{1031, 5000, 5000, 5007},
                    Growth{2055, 2056, 3079, 3079}, Growth{100007, 100008, 101031, 101031}),
    [](const auto& test) {
        return std::to_string(test.param.before) + "_to_" + std::to_string(test.param.needed);
    });

using CapacityLimits = FaultyManagerTest;

TEST_F(CapacityLimits, a_count_that_overflows_is_no_memory) {
    for (const int chars : {0x7fffffff, 0x7ffffff8}) {
        EXPECT_EQ(_lgnBufferManager->Allocate(chars, 1), nullptr) << chars;
    }
    EXPECT_EQ(_lgnBufferManager->Allocate(0x20000000, 8), nullptr);
    heap::FailRequest(1);  // or it would be two gigabytes
    EXPECT_EQ(_lgnBufferManager->Allocate(0x7ffffff7, 1), nullptr);
    heap::FailRequest(0);
    EXPECT_EQ(_lgnMemoryManager->GetSize(nullptr), 0x7ffffff8u + 24) << "the longest was asked for";
}

TEST_F(CapacityLimits, a_negative_count_is_no_memory) {
    for (const int chars : {-1, -8, -16, -0x7fffffff - 1}) {
        EXPECT_EQ(_lgnBufferManager->Allocate(chars, 1), nullptr) << chars;
    }
    LgnString string("abc");
    EXPECT_EQ(ThrownBy([&] { string.Fork(-1); }), kNoMemoryCode);
    EXPECT_EQ(TextOf(string), "abc");
}

TEST_F(CapacityLimits, a_negative_size_is_no_memory) {
    EXPECT_EQ(_lgnBufferManager->Allocate(5, -1), nullptr);
}

TEST_F(CapacityLimits, a_growth_near_the_longest_text_asks_for_what_is_needed) {
    constexpr int kMost = 0x7fffffff;
    constexpr int kLast = kMost - 1024;
    Buffer string("abc", 3, Mgr());
    const int capacity = CapacityOf(string);
    raw.reallocation = peer::RawManager::Fault::kNoMemory;
    for (const int old : {kLast, kLast + 1}) {
        peer::SetCapacity(&string, old);
        EXPECT_EQ(ThrownBy([&] { string.GetBuffer(old + 1); }), kNoMemoryCode);
    }
    EXPECT_EQ(raw.reallocated, (std::vector<int>{kMost, kLast + 2}));
    peer::SetCapacity(&string, capacity);
}

TEST_F(CapacityLimits, a_growth_that_overflows_is_no_memory_and_leaves_the_text) {
    LgnString string("abc");
    EXPECT_EQ(ThrownBy([&] { string.GetBuffer(0x7fffffff); }), kNoMemoryCode);
    EXPECT_EQ(ThrownBy([&] { string.Append("x", 0x7fffffff - 3); }), kNoMemoryCode);
    EXPECT_EQ(TextOf(string), "abc");
}

}  // namespace

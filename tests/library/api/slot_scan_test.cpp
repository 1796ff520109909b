// X_getMediaId and X_getCurrentSlots: which keys are present, read from raw records.
#include "event_test.h"
#include "exports_cpp.h"

namespace {

std::string MediaIdOf(std::string record) {
    std::string text = "before";
    X_getMediaId(text, reinterpret_cast<_S_DEV_CONFIG*>(&record[0]));
    return text;
}

void AnswerDevice(int nth, const std::string& mediaId) {
    TheRecorder().On("ValtoT_GetDeviceInfo", nth).Writes(2, DeviceRecord(mediaId));
}

void Scan(const std::vector<unsigned>& slots) {
    OfferSlots(slots);
    X_getCurrentSlots();
}

// The slot ids of the devices read, each with flags 0.
std::vector<unsigned> SlotsRead() {
    std::vector<unsigned> slots;
    for (const recording::Call& call : TheRecorder().Calls("ValtoT_GetDeviceInfo")) {
        EXPECT_EQ(call.At(1).value, 0);
        slots.push_back(static_cast<unsigned>(call.At(0).value));
    }
    return slots;
}

}  // namespace

// ---- X_getMediaId -------------------------------------------------------------------------------

TEST(X_getMediaId, takes_the_text_at_byte_248) {
    EXPECT_EQ(MediaIdOf(DeviceRecord("M1")), "M1");
}

TEST(X_getMediaId, takes_all_16_bytes_when_none_is_a_NUL) {
    EXPECT_EQ(MediaIdOf(DeviceRecord("0123456789ABCDEF")), "0123456789ABCDEF");
}

TEST(X_getMediaId, takes_15_bytes_in_front_of_a_NUL) {
    EXPECT_EQ(MediaIdOf(DeviceRecord("0123456789ABCDE")), "0123456789ABCDE");
}

TEST(X_getMediaId, replaces_the_text_by_an_empty_one) {
    EXPECT_EQ(MediaIdOf(DeviceRecord("")), "");
}

TEST(X_getMediaId, takes_any_byte_but_NUL) {
    EXPECT_EQ(MediaIdOf(DeviceRecord("\xFF\x01 \r\n|")), "\xFF\x01 \r\n|");
}

// ---- The map ------------------------------------------------------------------------------------

TEST(SlotMapVariable, is_an_empty_map_before_any_wait) {
    EXPECT_TRUE(g_WaitEventSlotMap.empty());
    EXPECT_EQ(g_WaitEventSlotMap, SlotMap{});
}

// A client may hold it as a variable of its own program, where the loader copies it.
TEST(SlotMapVariable, can_be_written_by_a_client_before_any_wait) {
    const std::string name(100000, '5');
    const std::size_t before = HeapInUse();
    g_WaitEventSlotMap[5] = name;
    EXPECT_EQ(g_WaitEventSlotMap, (SlotMap{{5, name}}));
    Scan({});
    EXPECT_EQ(g_WaitEventSlotMap, SlotMap{});
    EXPECT_LT(HeapInUse(), before + name.size()) << "what was written is lost";
}

// ---- X_getCurrentSlots --------------------------------------------------------------------------

TEST(X_getCurrentSlots, offers_ten_of_sixteen_zeroed_places) {
    OfferSlots({});
    X_getCurrentSlots();
    EXPECT_EQ(Trace(), (Lines{"ValtoT_GetSlotList(1, zero[64], &10)"}));
}

TEST(X_getCurrentSlots, reads_the_device_of_each_slot_in_the_order_of_the_list) {
    OfferSlots({7, 0xFFFFFFFF, 3});
    AnswerDevice(1, "seven");
    AnswerDevice(2, "last");
    AnswerDevice(3, "three");
    X_getCurrentSlots();
    EXPECT_EQ(SlotsRead(), (std::vector<unsigned>{7, 0xFFFFFFFF, 3}));
    EXPECT_EQ(g_WaitEventSlotMap, (SlotMap{{3, "three"}, {7, "seven"}, {0xFFFFFFFF, "last"}}));
}

TEST(X_getCurrentSlots, has_room_for_a_record_of_400_bytes) {
    OfferSlots({1, 2});
    TheRecorder().On("ValtoT_GetDeviceInfo").Writes(2, DeviceRecord("M") + std::string(4, '\xEE'));
    X_getCurrentSlots();
    EXPECT_EQ(g_WaitEventSlotMap, (SlotMap{{1, "M"}, {2, "M"}}));
}

TEST(X_getCurrentSlots, empties_the_map_first) {
    Scan({5});
    SlotMap seen{{1, "x"}};
    TheRecorder().On("ValtoT_GetSlotList").Does([&seen](const recording::Call&) {
        seen = g_WaitEventSlotMap;
    });
    Scan({});
    EXPECT_EQ(seen, SlotMap{});
    EXPECT_EQ(g_WaitEventSlotMap, SlotMap{});
}

TEST(X_getCurrentSlots, leaves_the_map_empty_when_the_list_cannot_be_had) {
    Scan({5});
    TheRecorder().On("ValtoT_GetSlotList").Returns(5);
    Scan({1, 2});
    EXPECT_EQ(SlotsRead(), std::vector<unsigned>{5});
    EXPECT_EQ(g_WaitEventSlotMap, SlotMap{});
}

TEST(X_getCurrentSlots, leaves_the_map_empty_when_no_slot_is_filled) {
    TheRecorder().On("ValtoT_GetSlotList").Writes(1, LittleEndian(4)).WritesNumber(2, 0);
    X_getCurrentSlots();
    EXPECT_EQ(SlotsRead(), std::vector<unsigned>{});
    EXPECT_EQ(g_WaitEventSlotMap, SlotMap{});
}

TEST(X_getCurrentSlots, skips_a_slot_whose_device_cannot_be_read) {
    OfferSlots({1, 2, 3});
    TheRecorder().On("ValtoT_GetDeviceInfo").Writes(2, DeviceRecord("M"));
    TheRecorder().On("ValtoT_GetDeviceInfo", 2).Returns(9).Writes(2, DeviceRecord("unread"));
    X_getCurrentSlots();
    EXPECT_EQ(g_WaitEventSlotMap, (SlotMap{{1, "M"}, {3, "M"}}));
}

TEST(X_getCurrentSlots, keeps_the_later_text_of_a_slot_that_is_listed_twice) {
    OfferSlots({4, 4});
    AnswerDevice(1, "first");
    AnswerDevice(2, "second");
    X_getCurrentSlots();
    EXPECT_EQ(g_WaitEventSlotMap, (SlotMap{{4, "second"}}));
}

TEST(X_getCurrentSlots, keeps_the_earlier_text_when_the_second_read_fails) {
    OfferSlots({4, 4});
    AnswerDevice(1, "first");
    TheRecorder().On("ValtoT_GetDeviceInfo", 2).Returns(1);
    X_getCurrentSlots();
    EXPECT_EQ(g_WaitEventSlotMap, (SlotMap{{4, "first"}}));
}

TEST(X_getCurrentSlots, takes_a_slot_id_of_0_for_a_slot) {
    OfferSlots({0});
    AnswerDevice(1, "zero");
    X_getCurrentSlots();
    EXPECT_EQ(g_WaitEventSlotMap, (SlotMap{{0, "zero"}}));
}

TEST(X_getCurrentSlots, neither_initialises_nor_logs_nor_stores_a_code) {
    G_LastError = unrelated_code;
    TheRecorder().On("ValtoT_GetSlotList").Returns(5);
    X_getCurrentSlots();
    EXPECT_EQ(G_LastError, unrelated_code);
    EXPECT_FALSE(g_initFlag);
    EXPECT_FALSE(LogExists());
}

// ---- A list that claims more than was offered ---------------------------------------------------

namespace {

std::vector<unsigned> ScanWithCount(unsigned count) {
    std::string ids;
    for (unsigned slot = 1; slot <= 16; ++slot) ids += LittleEndian(slot);
    TheRecorder().On("ValtoT_GetSlotList").Writes(1, ids).WritesNumber(2, count);
    TheRecorder().On("ValtoT_GetDeviceInfo").Writes(2, DeviceRecord("M"));
    X_getCurrentSlots();
    return SlotsRead();
}

std::vector<unsigned> UpTo(unsigned last) {
    std::vector<unsigned> slots;
    for (unsigned slot = 1; slot <= last; ++slot) slots.push_back(slot);
    return slots;
}

}  // namespace

TEST(X_getCurrentSlots, reads_as_many_slots_as_the_array_holds) {
    EXPECT_EQ(ScanWithCount(16), UpTo(16));
    EXPECT_EQ(g_WaitEventSlotMap.size(), 16U);
}

TEST(X_getCurrentSlots, never_reads_past_the_array_for_a_count_of_17) {
    EXPECT_EQ(ScanWithCount(17), UpTo(16));
}

TEST(X_getCurrentSlots, never_reads_past_the_array_for_the_largest_count) {
    EXPECT_EQ(ScanWithCount(0xFFFFFFFF), UpTo(16));
    EXPECT_EQ(g_WaitEventSlotMap.size(), 16U);
}

TEST(X_getCurrentSlots, leaks_nothing) {
    OfferSlots({1, 2, 3});
    TheRecorder().On("ValtoT_GetDeviceInfo").Writes(2, DeviceRecord("0123456789ABCDEF"));
    ExpectNoLeak([] { X_getCurrentSlots(); });
}

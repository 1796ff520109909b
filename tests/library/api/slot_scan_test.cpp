// X_getMediaId and X_getCurrentSlots: which keys are present, read from raw records.
#include "event_test.h"
#include "exports_cpp.h"

namespace {

std::string media_id_of(std::string record) {
    std::string text = "before";
    X_getMediaId(text, reinterpret_cast<_S_DEV_CONFIG*>(&record[0]));
    return text;
}

void answer_device(int nth, const std::string& media_id) {
    recorder().on("ValtoT_GetDeviceInfo", nth).writes(2, device_record(media_id));
}

void scan(const std::vector<unsigned>& slots) {
    offer_slots(slots);
    X_getCurrentSlots();
}

// The slot ids of the devices read, each with flags 0.
std::vector<unsigned> slots_read() {
    std::vector<unsigned> slots;
    for (const recording::Call& call : recorder().calls("ValtoT_GetDeviceInfo")) {
        EXPECT_EQ(call.at(1).value, 0);
        slots.push_back(static_cast<unsigned>(call.at(0).value));
    }
    return slots;
}

}  // namespace

// ---- X_getMediaId -------------------------------------------------------------------------------

TEST(X_getMediaId, takes_the_text_at_byte_248) {
    EXPECT_EQ(media_id_of(device_record("M1")), "M1");
}

TEST(X_getMediaId, takes_all_16_bytes_when_none_is_a_NUL) {
    EXPECT_EQ(media_id_of(device_record("0123456789ABCDEF")), "0123456789ABCDEF");
}

TEST(X_getMediaId, takes_15_bytes_in_front_of_a_NUL) {
    EXPECT_EQ(media_id_of(device_record("0123456789ABCDE")), "0123456789ABCDE");
}

TEST(X_getMediaId, replaces_the_text_by_an_empty_one) {
    EXPECT_EQ(media_id_of(device_record("")), "");
}

TEST(X_getMediaId, takes_any_byte_but_NUL) {
    EXPECT_EQ(media_id_of(device_record("\xFF\x01 \r\n|")), "\xFF\x01 \r\n|");
}

// ---- The map ------------------------------------------------------------------------------------

TEST(SlotMapVariable, is_an_empty_map_before_any_wait) {
    EXPECT_TRUE(g_WaitEventSlotMap.empty());
    EXPECT_EQ(g_WaitEventSlotMap, SlotMap{});
}

// A client may hold it as a variable of its own program, where the loader copies it.
TEST(SlotMapVariable, can_be_written_by_a_client_before_any_wait) {
    g_WaitEventSlotMap[5] = "five";
    EXPECT_EQ(g_WaitEventSlotMap, (SlotMap{{5, "five"}}));
    scan({});
    EXPECT_EQ(g_WaitEventSlotMap, SlotMap{});
}

// ---- X_getCurrentSlots --------------------------------------------------------------------------

TEST(X_getCurrentSlots, offers_ten_of_sixteen_zeroed_places) {
    offer_slots({});
    X_getCurrentSlots();
    EXPECT_EQ(trace(), (Lines{"ValtoT_GetSlotList(1, zero[64], &10)"}));
}

TEST(X_getCurrentSlots, reads_the_device_of_each_slot_in_the_order_of_the_list) {
    offer_slots({7, 0xFFFFFFFF, 3});
    answer_device(1, "seven");
    answer_device(2, "last");
    answer_device(3, "three");
    X_getCurrentSlots();
    EXPECT_EQ(slots_read(), (std::vector<unsigned>{7, 0xFFFFFFFF, 3}));
    EXPECT_EQ(g_WaitEventSlotMap, (SlotMap{{3, "three"}, {7, "seven"}, {0xFFFFFFFF, "last"}}));
}

TEST(X_getCurrentSlots, has_room_for_a_record_of_400_bytes) {
    offer_slots({1, 2});
    recorder().on("ValtoT_GetDeviceInfo").writes(2, device_record("M") + std::string(4, '\xEE'));
    X_getCurrentSlots();
    EXPECT_EQ(g_WaitEventSlotMap, (SlotMap{{1, "M"}, {2, "M"}}));
}

TEST(X_getCurrentSlots, empties_the_map_first) {
    scan({5});
    SlotMap seen{{1, "x"}};
    recorder().on("ValtoT_GetSlotList").does([&seen](const recording::Call&) {
        seen = g_WaitEventSlotMap;
    });
    scan({});
    EXPECT_EQ(seen, SlotMap{});
    EXPECT_EQ(g_WaitEventSlotMap, SlotMap{});
}

TEST(X_getCurrentSlots, leaves_the_map_empty_when_the_list_cannot_be_had) {
    scan({5});
    recorder().on("ValtoT_GetSlotList").returns(5);
    scan({1, 2});
    EXPECT_EQ(slots_read(), std::vector<unsigned>{5});
    EXPECT_EQ(g_WaitEventSlotMap, SlotMap{});
}

TEST(X_getCurrentSlots, leaves_the_map_empty_when_no_slot_is_filled) {
    recorder().on("ValtoT_GetSlotList").writes(1, little_endian(4)).writes_number(2, 0);
    X_getCurrentSlots();
    EXPECT_EQ(slots_read(), std::vector<unsigned>{});
    EXPECT_EQ(g_WaitEventSlotMap, SlotMap{});
}

TEST(X_getCurrentSlots, skips_a_slot_whose_device_cannot_be_read) {
    offer_slots({1, 2, 3});
    recorder().on("ValtoT_GetDeviceInfo").writes(2, device_record("M"));
    recorder().on("ValtoT_GetDeviceInfo", 2).returns(9).writes(2, device_record("unread"));
    X_getCurrentSlots();
    EXPECT_EQ(g_WaitEventSlotMap, (SlotMap{{1, "M"}, {3, "M"}}));
}

TEST(X_getCurrentSlots, keeps_the_later_text_of_a_slot_that_is_listed_twice) {
    offer_slots({4, 4});
    answer_device(1, "first");
    answer_device(2, "second");
    X_getCurrentSlots();
    EXPECT_EQ(g_WaitEventSlotMap, (SlotMap{{4, "second"}}));
}

TEST(X_getCurrentSlots, keeps_the_earlier_text_when_the_second_read_fails) {
    offer_slots({4, 4});
    answer_device(1, "first");
    recorder().on("ValtoT_GetDeviceInfo", 2).returns(1);
    X_getCurrentSlots();
    EXPECT_EQ(g_WaitEventSlotMap, (SlotMap{{4, "first"}}));
}

TEST(X_getCurrentSlots, takes_a_slot_id_of_0_for_a_slot) {
    offer_slots({0});
    answer_device(1, "zero");
    X_getCurrentSlots();
    EXPECT_EQ(g_WaitEventSlotMap, (SlotMap{{0, "zero"}}));
}

TEST(X_getCurrentSlots, neither_initialises_nor_logs_nor_stores_a_code) {
    G_LastError = unrelated_code;
    recorder().on("ValtoT_GetSlotList").returns(5);
    X_getCurrentSlots();
    EXPECT_EQ(G_LastError, unrelated_code);
    EXPECT_FALSE(g_initFlag);
    EXPECT_FALSE(log_exists());
}

// ---- A list that claims more than was offered ---------------------------------------------------

namespace {

std::vector<unsigned> scan_with_count(unsigned count) {
    std::string ids;
    for (unsigned slot = 1; slot <= 16; ++slot) ids += little_endian(slot);
    recorder().on("ValtoT_GetSlotList").writes(1, ids).writes_number(2, count);
    recorder().on("ValtoT_GetDeviceInfo").writes(2, device_record("M"));
    X_getCurrentSlots();
    return slots_read();
}

std::vector<unsigned> up_to(unsigned last) {
    std::vector<unsigned> slots;
    for (unsigned slot = 1; slot <= last; ++slot) slots.push_back(slot);
    return slots;
}

}  // namespace

TEST(X_getCurrentSlots, reads_as_many_slots_as_the_array_holds) {
    EXPECT_EQ(scan_with_count(16), up_to(16));
    EXPECT_EQ(g_WaitEventSlotMap.size(), 16U);
}

TEST(X_getCurrentSlots, never_reads_past_the_array_for_a_count_of_17) {
    EXPECT_EQ(scan_with_count(17), up_to(16));
}

TEST(X_getCurrentSlots, never_reads_past_the_array_for_the_largest_count) {
    EXPECT_EQ(scan_with_count(0xFFFFFFFF), up_to(16));
    EXPECT_EQ(g_WaitEventSlotMap.size(), 16U);
}

TEST(X_getCurrentSlots, leaks_nothing) {
    offer_slots({1, 2, 3});
    recorder().on("ValtoT_GetDeviceInfo").writes(2, device_record("0123456789ABCDEF"));
    expect_no_leak([] { X_getCurrentSlots(); });
}

// Nothing piles up over many waits: no memory, no descriptor, no entry of the slot map.
#include "descriptors.h"
#include "event_test.h"

namespace {

// Each wait ends by an arrival, a removal, another event, a stop or a failure to begin.
void WaitOnce(int round) {
    TheRecorder().On("ValtoT_ContextInit").Returns(round % 5 == 4 ? 1 : 0);
    Deliver(round % 5 < 3 ? static_cast<unsigned>(round % 5) : 1, 5);
    const bool stopped = round % 5 == 3;
    TheRecorder().On("ValtoT_WaitForEvent").Does([stopped](const recording::Call&) {
        if (stopped) StopDetectUKey();
    });
    const Waited waited({1, 2, 3});
    TheRecorder().Forget();
}

void WaitOften(int times) {
    for (int round = 0; round < times; ++round) {
        WaitOnce(round);
        if (round % 500 == 499) ForgetLog();
    }
}

}  // namespace

TEST(TenThousandWaits, leak_neither_memory_nor_descriptors) {
    TheRecorder().On("ValtoT_GetDeviceInfo").Writes(2, DeviceRecord("0123456789ABCDEF"));
    WaitOften(500);
    const std::size_t heap = HeapInUse();
    const int descriptors = Descriptors();
    WaitOften(10000);
    EXPECT_LT(HeapInUse(), heap + 10000);
    EXPECT_EQ(Descriptors(), descriptors);
    EXPECT_LE(g_WaitEventSlotMap.size(), 4U);
}

// Nothing piles up over many waits: no memory, no descriptor, no entry of the slot map.
#include <dirent.h>

#include "event_test.h"

namespace {

int open_descriptors() {
    int count = 0;
    DIR* const directory = opendir("/proc/self/fd");
    while (readdir(directory)) ++count;
    closedir(directory);
    return count;
}

// Each wait ends by an arrival, a removal, another event, a stop or a failure to begin.
void wait_once(int round) {
    recorder().on("ValtoT_ContextInit").returns(round % 5 == 4 ? 1 : 0);
    deliver(round % 5 < 3 ? static_cast<unsigned>(round % 5) : 1, 5);
    const bool stopped = round % 5 == 3;
    recorder().on("ValtoT_WaitForEvent").does([stopped](const recording::Call&) {
        if (stopped) StopDetectUKey();
    });
    const Waited waited({1, 2, 3});
    recorder().forget();
}

void wait_often(int times) {
    for (int round = 0; round < times; ++round) {
        wait_once(round);
        if (round % 500 == 499) forget_log();
    }
}

}  // namespace

TEST(TenThousandWaits, leak_neither_memory_nor_descriptors) {
    recorder().on("ValtoT_GetDeviceInfo").writes(2, device_record("0123456789ABCDEF"));
    wait_often(500);
    const std::size_t heap = heap_in_use();
    const int descriptors = open_descriptors();
    wait_often(10000);
    EXPECT_LT(heap_in_use(), heap + 10000);
    EXPECT_EQ(open_descriptors(), descriptors);
    EXPECT_LE(g_WaitEventSlotMap.size(), 4U);
}

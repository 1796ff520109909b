// How many times as long one piece of work takes as another, in this process's own computing time,
// so that a busy machine does not count. The best of several runs stands for each.
#ifndef KESTA_UNIT_CPU_RATIO_H
#define KESTA_UNIT_CPU_RATIO_H

#include <malloc.h>

#include <algorithm>
#include <ctime>

inline double CpuSeconds() {
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

template <typename Work>
double CpuTime(Work work) {
    const double start = CpuSeconds();
    work();
    return CpuSeconds() - start;
}

// Memory once taken stays with the process: the heap would otherwise give large blocks back to the
// system and fetch their pages anew each time, and small ones not.
inline void KeepMemory() {
    mallopt(M_MMAP_THRESHOLD, 32 << 20);
    mallopt(M_TRIM_THRESHOLD, 1 << 30);
}

template <typename Small, typename Large>
double CpuRatio(Small small, Large large) {
    KeepMemory();
    double smallTime = 1e9, largeTime = 1e9;
    for (int run = 0; run < 7; ++run) {
        smallTime = std::min(smallTime, CpuTime(small));
        largeTime = std::min(largeTime, CpuTime(large));
    }
    return largeTime / smallTime;
}

#endif

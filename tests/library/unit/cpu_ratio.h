// How many times as long one piece of work takes as another, in this process's own computing time,
// so that a busy machine does not count. The best of several runs stands for each.
#ifndef KESTA_UNIT_CPU_RATIO_H
#define KESTA_UNIT_CPU_RATIO_H

#include <malloc.h>

#include <algorithm>
#include <ctime>

inline double cpu_seconds() {
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

template <typename Work>
double cpu_time(Work work) {
    const double start = cpu_seconds();
    work();
    return cpu_seconds() - start;
}

// Memory once taken stays with the process: the heap would otherwise give large blocks back to the
// system and fetch their pages anew each time, and small ones not.
inline void keep_memory() {
    mallopt(M_MMAP_THRESHOLD, 32 << 20);
    mallopt(M_TRIM_THRESHOLD, 1 << 30);
}

template <typename Small, typename Large>
double cpu_ratio(Small small, Large large) {
    keep_memory();
    double small_time = 1e9, large_time = 1e9;
    for (int run = 0; run < 7; ++run) {
        small_time = std::min(small_time, cpu_time(small));
        large_time = std::min(large_time, cpu_time(large));
    }
    return large_time / small_time;
}

#endif

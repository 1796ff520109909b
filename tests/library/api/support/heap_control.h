// The heap as the library under test sees it: allocations that fail on request, blocks that leak.
#ifndef KESTA_API_HEAP_CONTROL_H
#define KESTA_API_HEAP_CONTROL_H

#include <gtest/gtest.h>

#include <cstddef>

#include "recording.h"

// While it lives, the nth allocation of the library itself fails: operator new throws bad_alloc,
// malloc returns null (not in a sanitizer's build, which has its own malloc).
class FailingAllocation {
public:
    explicit FailingAllocation(int nth);
    ~FailingAllocation();
    FailingAllocation(const FailingAllocation&) = delete;
    FailingAllocation& operator=(const FailingAllocation&) = delete;
    bool Happened() const;
};

// What every byte of a block from new[] holds until somebody writes to it.
constexpr unsigned char fresh_byte = 0xA5;

// Bytes allocated and not released, by anybody in the process.
std::size_t HeapInUse();

// Repeats what often enough that a leak of one block in each round shows.
template <std::size_t rounds = 200, class Function>
void ExpectNoLeak(Function what) {
    const auto repeat = [&what] {
        for (std::size_t round = 0; round < rounds; ++round) {
            what();
            recording::TheRecorder().Forget();
        }
    };
    repeat();
    const std::size_t before = HeapInUse();
    repeat();
    EXPECT_LT(HeapInUse(), before + rounds * 8);
}

#endif

// Calls into the runtime that the linker sends here first, so that a test can let them fail in its
// own process, where coverage counts what follows.
#ifndef KESTA_UNIT_RUNTIME_H
#define KESTA_UNIT_RUNTIME_H

#include <sys/time.h>

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace runtime {

struct Plan {
    // Requests for memory of at least so many bytes find none, from the one after `granted` on.
    std::size_t refusedSize = 0;  // 0: all are granted
    int granted = 0;
    // What each write answers, one after the other: bytes taken, or an error as a negative number.
    std::vector<int> writes;
    bool statusFails = false;
    bool addressFails = false;
    // Flags of the libraries that were opened; while this is wanted, none is.
    bool holdsLibraries = false;
    std::vector<int> opened;
    std::optional<timeval> now;      // what the clock says
    int process = 0;                 // the number of this process, unless it is 0
    std::vector<std::string> wiped;  // what was wiped out of memory
};

Plan& ThePlan();

// How a process ends that called abort: the ordinary way, which writes the counts.
constexpr int kAborted = 86;

}  // namespace runtime

#endif

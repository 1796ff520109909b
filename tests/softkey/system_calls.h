// Between the software key's parts and the system: a test says what its calls answer, and sees
// which were made. The program that uses it is linked with --wrap for those that the parts make.
#ifndef TESTS_SOFTKEY_SYSTEM_CALLS_H
#define TESTS_SOFTKEY_SYSTEM_CALLS_H

#include <cstdint>
#include <ctime>
#include <functional>
#include <optional>
#include <string>
#include <vector>

struct SystemCalls {
    std::size_t most = SIZE_MAX;         // bytes that one pread or pwrite takes
    bool interrupts = false;             // a signal ends every other call
    std::string fails;                   // "CALL FILE", which fails once
    int error = 0;                       // and how
    std::function<void()> afterRead;     // called behind the next pread
    std::optional<struct timespec> now;  // what the clocks say
    time_t tick = 0;                     // seconds by which they go on with each look
    int reads = 0;
    std::vector<long> rests;           // nanoseconds of each rest
    std::vector<std::string> changes;  // "CALL FILE" of what was written, synced and renamed

    static SystemCalls& Instance();
    static void Reset() { Instance() = SystemCalls(); }
};

#endif

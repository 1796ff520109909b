// One fuzz target a file: it gets bytes and aborts where the library and the plain transcription of
// its rules disagree.
#ifndef KESTA_FUZZ_TARGET_H
#define KESTA_FUZZ_TARGET_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

// A disagreement, told before the end.
#define FUZZ_EXPECT(condition)                                                   \
    do {                                                                         \
        if (!(condition)) {                                                      \
            std::fprintf(stderr, "%s:%d: %s\n", __FILE__, __LINE__, #condition); \
            std::abort();                                                        \
        }                                                                        \
    } while (false)

#endif

/* The heap's figures in types that hold more than 2 GB, which the C library has had since 2.33
 * only. On the floor they are as small as its own. */
#define _GNU_SOURCE 1
#include <malloc.h>

struct mallinfo2 mallinfo2(void) {
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
    const struct mallinfo figures = mallinfo();
    const struct mallinfo2 wide = {
        .arena = (unsigned)figures.arena,
        .ordblks = (unsigned)figures.ordblks,
        .smblks = (unsigned)figures.smblks,
        .hblks = (unsigned)figures.hblks,
        .hblkhd = (unsigned)figures.hblkhd,
        .usmblks = (unsigned)figures.usmblks,
        .fsmblks = (unsigned)figures.fsmblks,
        .uordblks = (unsigned)figures.uordblks,
        .fordblks = (unsigned)figures.fordblks,
        .keepcost = (unsigned)figures.keepcost,
    };
    return wide;
}

// The system heap as the string library uses it. The linker sends the calls of malloc, realloc and
// free that the program's own objects make to the functions behind this. A block that is resized
// always moves, and its old place is overwritten: who reads on there is found out.
#ifndef KESTA_UNIT_LGN_HEAP_WATCH_H
#define KESTA_UNIT_LGN_HEAP_WATCH_H

namespace heap {

// Blocks taken and not yet given back.
long LiveBlocks();
bool IsLive(const void* block);
// From now on the nth request (1: the next) finds no memory; 0 ends it.
void FailRequest(int n);

}  // namespace heap

#endif

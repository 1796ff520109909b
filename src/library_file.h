// A look at a library's file before the loader maps it.
#ifndef KESTA_LIBRARY_FILE_H
#define KESTA_LIBRARY_FILE_H

namespace kesta {

// True for an ELF file that ends before its own segments do, as an interrupted copy leaves it. The
// loader maps such a file without complaint and the process dies of SIGBUS at the first access to
// what is missing. False for a whole file and for all that the loader itself refuses.
bool isCutShort(const char* path);

}  // namespace kesta

#endif

// Loading a library whose file may be damaged.
#ifndef KESTA_LIBRARY_FILE_H
#define KESTA_LIBRARY_FILE_H

namespace kesta {

// Opens a library with lazy binding. Null where the loader refuses it, and for an ELF file that
// ends before the pages of its own segments do, as an interrupted copy leaves it: the loader maps
// such a file without complaint and the process dies of SIGBUS at the first access to what is
// missing. A library that the process has already stays good whatever became of its file.
void* OpenLibrary(const char* path);

}  // namespace kesta

#endif

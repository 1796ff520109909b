// How many descriptors this process has open.
#ifndef KESTA_DESCRIPTORS_H
#define KESTA_DESCRIPTORS_H

#include <dirent.h>

inline int Descriptors() {
    int count = 0;
    DIR* const folder = opendir("/proc/self/fd");
    while (readdir(folder) != nullptr) ++count;
    closedir(folder);
    return count;
}

#endif

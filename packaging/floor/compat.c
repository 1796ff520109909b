/* What programs ask of the C library under today's names and the library of the floor offers under
 * others, or not at all. Hidden, so that each file has its own and no peer is affected. */
#define _POSIX_C_SOURCE 200809L
#include <sys/stat.h>

#pragma GCC visibility push(default)
/* The C library of the floor has these in place of stat and its kin; later ones still do. */
int __xstat(int version, const char* path, struct stat* out);
int __lxstat(int version, const char* path, struct stat* out);
int __fxstat(int version, int fd, struct stat* out);
int __fxstatat(int version, int fd, const char* path, struct stat* out, int flags);
#pragma GCC visibility pop

#if defined(__x86_64__)
enum { stat_version = 1 };
#else
enum { stat_version = 0 };
#endif

int stat(const char* path, struct stat* out) {
    return __xstat(stat_version, path, out);
}

int lstat(const char* path, struct stat* out) {
    return __lxstat(stat_version, path, out);
}

int fstat(int fd, struct stat* out) {
    return __fxstat(stat_version, fd, out);
}

int fstatat(int fd, const char* path, struct stat* out, int flags) {
    return __fxstatat(stat_version, fd, path, out, flags);
}

/* The 64-bit variants are the same functions on 64-bit machines. */
extern __typeof__(stat) stat64 __attribute__((alias("stat"), copy(stat)));
extern __typeof__(lstat) lstat64 __attribute__((alias("lstat"), copy(lstat)));
extern __typeof__(fstat) fstat64 __attribute__((alias("fstat"), copy(fstat)));
extern __typeof__(fstatat) fstatat64 __attribute__((alias("fstatat"), copy(fstatat)));

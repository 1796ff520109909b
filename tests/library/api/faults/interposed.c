/* The calls that the library makes into the runtime and the kernel, each in front of the real one:
   where it is the chosen one it fails as it does when the machine is at fault. In C, where a
   function of the runtime may be defined again. */
#define _GNU_SOURCE
#include <dirent.h>
#include <dlfcn.h>
#include <errno.h>
#include <iconv.h>
#include <stdarg.h>
#include <stddef.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include "failing_call.h"

#define SHOWN __attribute__((visibility("default"), noinline))

typedef void* LookUp(void*, const char*);

static LookUp* RealLookUp(void) {
    static const char* const versions[] = {"GLIBC_2.34", "GLIBC_2.2.5", "GLIBC_2.17"};
    static LookUp* found;
    for (size_t i = 0; !found && i < sizeof versions / sizeof *versions; ++i) {
        *(void**)&found = dlvsym(RTLD_NEXT, "dlsym", versions[i]);
    }
    return found;
}

/* What the real one of this name is. */
static void* Real(const char* name) {
    return RealLookUp()(RTLD_NEXT, name);
}

#define WRAP(result, name, parameters, arguments, failure)             \
    SHOWN result name parameters {                                     \
        static result(*original) parameters;                           \
        if (!original) *(void**)&original = Real(#name);               \
        if (MustFailCall(#name, __builtin_return_address(0))) failure; \
        return original arguments;                                     \
    }

#define FAIL(number, result) \
    {                        \
        errno = number;      \
        return result;       \
    }
/* The descriptor is gone all the same. */
#define FAIL_BEHIND(arguments, number, result) \
    {                                          \
        original arguments;                    \
        errno = number;                        \
        return result;                         \
    }

WRAP(void*, dlopen, (const char* file, int mode), (file, mode), return NULL)
WRAP(int, dladdr, (const void* place, Dl_info* info), (place, info), return 0)
WRAP(int, dlclose, (void* handle), (handle), FAIL_BEHIND((handle), 0, 1))
WRAP(int, stat, (const char* path, struct stat* to), (path, to), FAIL(EACCES, -1))
WRAP(int, fstat, (int file, struct stat* to), (file, to), FAIL(EIO, -1))
WRAP(ssize_t, pread, (int file, void* to, size_t size, off_t at), (file, to, size, at),
     FAIL(EIO, -1))
WRAP(ssize_t, write, (int file, const void* from, size_t size), (file, from, size),
     FAIL(ENOSPC, -1))
WRAP(int, close, (int file), (file), FAIL_BEHIND((file), EIO, -1))
WRAP(int, remove, (const char* path), (path), FAIL(EACCES, -1))
WRAP(DIR*, opendir, (const char* path), (path), FAIL(EMFILE, NULL))
WRAP(struct dirent*, readdir, (DIR * folder), (folder), FAIL(EIO, NULL))
WRAP(int, closedir, (DIR * folder), (folder), FAIL_BEHIND((folder), EIO, -1))
WRAP(iconv_t, iconv_open, (const char* to, const char* from), (to, from), FAIL(EMFILE, (iconv_t)-1))
WRAP(size_t, iconv, (iconv_t how, char** from, size_t* left, char** to, size_t* room),
     (how, from, left, to, room), FAIL(EILSEQ, (size_t)-1))
WRAP(int, iconv_close, (iconv_t how), (how), FAIL_BEHIND((how), EBADF, -1))
WRAP(long, sysconf, (int name), (name), FAIL(EINVAL, -1))
WRAP(int, gettimeofday, (struct timeval* restrict now, void* restrict zone), (now, zone),
     FAIL(EFAULT, -1))
WRAP(struct tm*, localtime_r, (const time_t* restrict time, struct tm* restrict to), (time, to),
     FAIL(EOVERFLOW, NULL))
/* A wait sleeps between its polls; here that takes no time. */
SHOWN int nanosleep(const struct timespec* interval, struct timespec* left) {
    (void)interval, (void)left;
    if (MustFailCall("nanosleep", __builtin_return_address(0))) FAIL(EINTR, -1)
    return 0;
}
WRAP(int, __vsnprintf_chk,
     (char* to, size_t room, int flag, size_t size, const char* format, va_list arguments),
     (to, room, flag, size, format, arguments), FAIL(ENOMEM, -1))
/* Of std::string: what it is built of allocates inside the runtime. */
WRAP(void*, _ZNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEE9_M_createERmm,
     (void* text, size_t* room, size_t before), (text, room, before), ThrowNoMemory())
WRAP(void*, _ZNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEE9_M_assignERKS4_,
     (void* text, const void* other), (text, other), ThrowNoMemory())

SHOWN void* dlsym(void* restrict library, const char* restrict name) {
    if (MustFailCall("dlsym", __builtin_return_address(0))) return NULL;
    return RealLookUp()(library, name);
}

SHOWN int open(const char* path, int flags, ...) {
    static int (*original)(const char*, int, ...);
    if (!original) *(void**)&original = Real("open");
    if (MustFailCall("open", __builtin_return_address(0))) FAIL(EMFILE, -1)
    va_list more;
    va_start(more, flags);
    const mode_t mode = va_arg(more, mode_t);
    va_end(more);
    return original(path, flags, mode);
}

// Linked into everything that coverage measures: a process that leaves by _exit, as the children of
// tests and tools do, writes its counts first. Each library has counts of its own and enters its
// function into the program's list.
#define _GNU_SOURCE
#include <dlfcn.h>
#include <stddef.h>

enum { MOST = 64 };
struct list {
    size_t count;
    void (*functions[MOST])(void);
};

extern void __gcov_dump(void) __attribute__((weak));
extern void __real__exit(int status) __attribute__((noreturn));
void __wrap__exit(int status) __attribute__((noreturn));

#ifdef PROGRAM
__attribute__((visibility("default"))) struct list coverage_functions;
#endif

static struct list* found(void) {
    return dlsym(RTLD_DEFAULT, "coverage_functions");
}

// Calls that are failed on purpose are not those that write the counts.
static void end_disturbance(void) {
    void (*const disarm)(void) = (void (*)(void))dlsym(RTLD_DEFAULT, "FaultsDisarm");
    if (disarm != NULL) disarm();
}

__attribute__((constructor)) static void enter(void) {
    struct list* const list = found();
    if (list != NULL && __gcov_dump != NULL && list->count < MOST) {
        list->functions[list->count++] = __gcov_dump;
    }
}

__attribute__((destructor)) static void take_out(void) {
    struct list* const list = found();
    end_disturbance();
    for (size_t i = 0; list != NULL && i < list->count; ++i) {
        if (list->functions[i] == __gcov_dump) list->functions[i] = list->functions[--list->count];
    }
}

void __wrap__exit(int status) {
    const struct list* const list = found();
    end_disturbance();
    for (size_t i = 0; list != NULL && i < list->count; ++i) list->functions[i]();
    __real__exit(status);
}

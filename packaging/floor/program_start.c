/* The start of a program that runs on C libraries old and new.
 *
 * Since 2.34 the C library itself runs a program's constructors; before, each program brought the
 * code for it and passed its address. Today's start files no longer do, so a program that is linked
 * with them and loaded by an older C library would run without its constructors. Newer ones accept
 * such an address as well. */
#include <stddef.h>

typedef int main_function(int, char**, char**);
typedef void init_function(int, char**, char**);

extern init_function* __init_array_start[] __attribute__((visibility("hidden")));
extern init_function* __init_array_end[] __attribute__((visibility("hidden")));

static void run_constructors(int argc, char** argv, char** environment) {
    const ptrdiff_t count = __init_array_end - __init_array_start;
    for (ptrdiff_t i = 0; i < count; ++i) {
        __init_array_start[i](argc, argv, environment);
    }
}

__attribute__((visibility("default"))) int __libc_start_main(main_function* main, int argc,
                                                             char** argv, init_function* init,
                                                             void (*fini)(void),
                                                             void (*loader_fini)(void),
                                                             void* stack_end);

int main(int, char**, char**);

/* Called by _start with the stack as the kernel left it. */
void kesta_program_start(long* stack, void (*loader_fini)(void)) {
    __libc_start_main(main, (int)stack[0], (char**)(stack + 1), run_constructors, NULL, loader_fini,
                      stack);
    __builtin_trap();
}

/* Debian's start file carries no mark for control-flow protection, which would take the mark from
 * the whole program. */
#if defined(__x86_64__)
__asm__(
    ".globl _start\n.type _start,@function\n_start:\n"
    "endbr64\n"
    "xorl %ebp, %ebp\n" /* ends the chain of frames */
    "movq %rsp, %rdi\n"
    "movq %rdx, %rsi\n"
    "andq $-16, %rsp\n"
    "call kesta_program_start\n"
    "hlt\n"
    ".size _start,.-_start");
#elif defined(__aarch64__)
__asm__(
    ".globl _start\n.type _start,%function\n_start:\n"
    "hint #34\n" /* bti c */
    "mov x29, #0\n"
    "mov x30, #0\n" /* end the chain of frames */
    "mov x1, x0\n"
    "mov x0, sp\n"
    "bl kesta_program_start\n"
    "brk #1\n"
    ".size _start,.-_start");
#else
#error "no program start is written for this architecture"
#endif

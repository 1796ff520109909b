/* What the compiler's own start files do for every program and library, with the marks for
 * control-flow protection that Debian's lack: the identity of the file for __cxa_atexit, and the
 * call of what was registered under it when the file is unloaded. */
extern void __cxa_finalize(void*) __attribute__((weak, visibility("default")));

extern void* const __dso_handle __attribute__((visibility("hidden")));
void* const __dso_handle = (void*)&__dso_handle;

__attribute__((destructor)) static void finalize_module(void) {
    __cxa_finalize((void*)&__dso_handle);
}

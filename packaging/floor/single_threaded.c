/* The C library tells reference counts here that no second thread exists. The floor's does not, so
 * they are always counted atomically, which is right and hardly slower. */
char __libc_single_threaded = 0;

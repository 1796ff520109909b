/* Prints the library's version. */
#include <kesta_unified_zrkukey.h>
#include <stdio.h>

int main(void) {
    char version[64] = "";
    unsigned int length = sizeof version;
    const int code = GetDllVersion(version, &length);
    if (code != KESTA_OK) {
        fprintf(stderr, "GetDllVersion: %d\n", code);
        return 1;
    }
    printf("version %s\n", version);
    return 0;
}

/*
 * sign: signs a text with the key. The key shows a warning and waits for its button.
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "kesta_unified_zrkukey.h"

/* What the token library takes: KeyType and HashType. */
enum { SM2 = 2, SM3 = 3 };

static int usage(FILE* stream) {
    fputs(
        "usage: sign TEXT WARNING\n"
        "\n"
        "Signs TEXT with the SM2 signing key and prints the signature, Base64 of its DER form.\n"
        "The key shows WARNING and waits until its button is pressed.\n"
        "\n"
        "example:\n"
        "  sign 'pay 12.50 to A. Lovelace' 'Pay 12.50 to A. Lovelace?'\n",
        stream);
    return stream == stdout ? EXIT_SUCCESS : 2;
}

/* Tells what failed, with the code and its message text. */
static int failed(const char* what, int code) {
    char text[1024] = "no message text";
    int room = sizeof text;
    if (GetErrorMsg(code, text, &room) != KESTA_OK && code == KESTA_NOT_BOUND) {
        strcpy(text, "the token library is not installed");
    }
    fprintf(stderr, "sign: %s: %s (%d)\n", what, text, code);
    return EXIT_FAILURE;
}

/* The serial number of the key that is present; to be freed. NULL after telling what failed. */
static char* serial_number(void) {
    unsigned int length = 0;
    int code = GetPrintNumber(NULL, &length);
    /* The length does not count the NUL. */
    char* serial = code == KESTA_OK ? calloc(length + 1U, 1) : NULL;
    if (serial != NULL) code = GetPrintNumber(serial, &length);
    if (code == KESTA_OK && serial != NULL) return serial;
    free(serial);
    if (code == KESTA_OK) {
        fputs("sign: out of memory\n", stderr);
    } else {
        failed("looking for a key", code);
    }
    return NULL;
}

static int sign(const char* serial, const char* text, const char* warning) {
    unsigned int length = 0;
    /* The probe answers with a bound, without asking the key: nothing is shown yet. */
    int code = Sign(serial, SM2, SM3, text, warning, NULL, &length);
    if (code != KESTA_OK) return failed("asking for the signature's size", code);

    char* signature = calloc(length + 1U, 1);
    if (signature == NULL) {
        fputs("sign: out of memory\n", stderr);
        return EXIT_FAILURE;
    }
    code = Sign(serial, SM2, SM3, text, warning, signature, &length);
    if (code == KESTA_OK) {
        puts(signature);
    } else {
        failed("signing", code);
    }
    free(signature);
    return code == KESTA_OK ? EXIT_SUCCESS : EXIT_FAILURE;
}

int main(int argc, char** argv) {
    if (argc == 2 && strcmp(argv[1], "--help") == 0) return usage(stdout);
    if (argc != 3) return usage(stderr);

    char* serial = serial_number();
    if (serial == NULL) return EXIT_FAILURE;
    /* The person unlocks the key; the token library asks for the PIN. */
    int code = VerifyPIN(serial);
    int status =
        code == KESTA_OK ? sign(serial, argv[1], argv[2]) : failed("unlocking the key", code);
    free(serial);
    return status;
}

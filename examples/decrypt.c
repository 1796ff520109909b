/*
 * decrypt: decrypts a text that was encrypted for the key's encryption certificate.
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "kesta_unified_zrkukey.h"

/* What the token library takes: the key pair's CertType and its KeyType. */
enum { ENCRYPTION_PAIR = 3, SM2 = 2 };

enum { LIMIT = 65536 };

static int usage(FILE* stream) {
    fputs(
        "usage: decrypt < CIPHER-TEXT\n"
        "\n"
        "Reads a cipher text from standard input, Base64 of its DER form with or without\n"
        "line breaks, and prints the plain text.\n"
        "\n"
        "example:\n"
        "  openssl pkeyutl -encrypt -certin -inkey enc.cer -in letter.txt | base64 | decrypt\n",
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
    fprintf(stderr, "decrypt: %s: %s (%d)\n", what, text, code);
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
        fputs("decrypt: out of memory\n", stderr);
    } else {
        failed("looking for a key", code);
    }
    return NULL;
}

static int decrypt(const char* serial, const char* cipher) {
    unsigned int length = 0;
    int code = AsymDec(serial, ENCRYPTION_PAIR, SM2, cipher, NULL, &length);
    if (code != KESTA_OK) return failed("asking for the text's size", code);

    char* plain = calloc(length + 1U, 1);
    if (plain == NULL) {
        fputs("decrypt: out of memory\n", stderr);
        return EXIT_FAILURE;
    }
    code = AsymDec(serial, ENCRYPTION_PAIR, SM2, cipher, plain, &length);
    if (code == KESTA_OK) {
        fputs(plain, stdout);
    } else {
        failed("decrypting", code);
    }
    free(plain);
    return code == KESTA_OK ? EXIT_SUCCESS : EXIT_FAILURE;
}

int main(int argc, char** argv) {
    static char cipher[LIMIT + 1];
    if (argc == 2 && strcmp(argv[1], "--help") == 0) return usage(stdout);
    if (argc != 1) return usage(stderr);
    if (fread(cipher, 1, LIMIT, stdin) == LIMIT || ferror(stdin)) {
        fputs("decrypt: cannot read the cipher text, or it is too long\n", stderr);
        return EXIT_FAILURE;
    }

    char* serial = serial_number();
    if (serial == NULL) return EXIT_FAILURE;
    /* The person unlocks the key; the token library asks for the PIN. */
    int code = VerifyPIN(serial);
    int status = code == KESTA_OK ? decrypt(serial, cipher) : failed("unlocking the key", code);
    free(serial);
    return status;
}

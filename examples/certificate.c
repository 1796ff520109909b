/*
 * certificate: reads a certificate from the key.
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "kesta_unified_zrkukey.h"

/* What the token library takes: the key pair's CertType and its KeyType. */
enum { SIGNING_PAIR = 1, ENCRYPTION_PAIR = 3, SM2 = 2 };

static int usage(FILE* stream) {
    fputs(
        "usage: certificate sign|enc\n"
        "\n"
        "Prints the certificate of the SM2 signing or encryption key, Base64 of its DER form.\n"
        "\n"
        "example:\n"
        "  certificate sign | base64 -d | openssl x509 -inform DER -noout -subject\n",
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
    fprintf(stderr, "certificate: %s: %s (%d)\n", what, text, code);
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
        fputs("certificate: out of memory\n", stderr);
    } else {
        failed("looking for a key", code);
    }
    return NULL;
}

static int print_certificate(const char* serial, unsigned int pair) {
    unsigned int length = 0;
    int code = GetCert(serial, pair, SM2, NULL, &length);
    if (code != KESTA_OK) return failed("reading the certificate", code);

    char* certificate = calloc(length, 1); /* the probed length counts the NUL */
    if (certificate == NULL) {
        fputs("certificate: out of memory\n", stderr);
        return EXIT_FAILURE;
    }
    code = GetCert(serial, pair, SM2, certificate, &length);
    if (code == KESTA_OK) {
        puts(certificate);
    } else {
        failed("reading the certificate", code);
    }
    free(certificate);
    return code == KESTA_OK ? EXIT_SUCCESS : EXIT_FAILURE;
}

int main(int argc, char** argv) {
    if (argc == 2 && strcmp(argv[1], "--help") == 0) return usage(stdout);
    int signing = argc == 2 && strcmp(argv[1], "sign") == 0;
    if (!signing && (argc != 2 || strcmp(argv[1], "enc") != 0)) return usage(stderr);

    char* serial = serial_number();
    if (serial == NULL) return EXIT_FAILURE;
    int status = print_certificate(serial, signing ? SIGNING_PAIR : ENCRYPTION_PAIR);
    free(serial);
    return status;
}

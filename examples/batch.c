/*
 * batch: a whole enrolment in two calls. The first may initialise the key and makes one request for
 * the SM2 signing pair and its encryption companion; the second installs a bundle of certificates.
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "kesta_unified_zrkukey.h"

static const char INFORMATION[] =
    "CertType(1)KeyType(2)HashType(3)|CertType(3)KeyType(2)HashType(3)";

enum { LIMIT = 65536 };

static int usage(FILE* stream) {
    fputs(
        "usage: batch [--init]\n"
        "       batch --import < BUNDLE\n"
        "\n"
        "The first form makes one request for a signing pair with its encryption companion, SM2\n"
        "both, and prints it. With --init the key is initialised before and loses what it holds.\n"
        "The second form installs a bundle from standard input:\n"
        "  SignCert(...)|EncCert(...)|EncPriKey(...)\n"
        "\n"
        "examples:\n"
        "  batch > request.txt\n"
        "  batch --import < bundle.txt\n",
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
    fprintf(stderr, "batch: %s: %s (%d)\n", what, text, code);
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
        fputs("batch: out of memory\n", stderr);
    } else {
        failed("looking for a key", code);
    }
    return NULL;
}

static int make_request(const char* serial, int initialise) {
    int length = 0;
    /* The probe does the work; the second call fetches what the first has made. */
    int code = Batch_InitAndGenerateCertRequest(serial, initialise, INFORMATION, NULL, &length);
    if (code != KESTA_OK) return failed("making the request", code);

    char* request = malloc((size_t)length);
    if (request == NULL) {
        fputs("batch: out of memory\n", stderr);
        return EXIT_FAILURE;
    }
    code = Batch_InitAndGenerateCertRequest(serial, initialise, INFORMATION, request, &length);
    if (code == KESTA_OK) {
        puts(request);
    } else {
        failed("fetching the request", code);
    }
    free(request);
    return code == KESTA_OK ? EXIT_SUCCESS : EXIT_FAILURE;
}

static int import_bundle(const char* serial) {
    static char bundle[LIMIT + 1];
    if (fread(bundle, 1, LIMIT, stdin) == LIMIT || ferror(stdin)) {
        fputs("batch: cannot read the bundle, or it is too long\n", stderr);
        return EXIT_FAILURE;
    }
    int code = Batch_ImportX509Cert(serial, bundle);
    if (code != KESTA_OK) return failed("importing the bundle", code);
    puts("bundle imported");
    return EXIT_SUCCESS;
}

int main(int argc, char** argv) {
    const char* option = argc > 1 ? argv[1] : "";
    if (argc == 2 && strcmp(option, "--help") == 0) return usage(stdout);
    int initialising = strcmp(option, "--init") == 0;
    int importing = strcmp(option, "--import") == 0;
    if (argc > 2 || (argc == 2 && !initialising && !importing)) return usage(stderr);

    char* serial = serial_number();
    if (serial == NULL) return EXIT_FAILURE;
    int status = importing ? import_bundle(serial) : make_request(serial, initialising);
    free(serial);
    return status;
}

/*
 * enrol: makes certificate requests on the key, and installs what the certificate authority sends
 * back. A complete client: each result is checked, and an error is told with its message text.
 */
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "kesta_unified_zrkukey.h"

/* An SM2 signing pair and an SM2 encryption pair, both hashed with SM3. */
static const char DEFAULT_INFORMATION[] =
    "CertType(1)KeyType(2)HashType(3)|CertType(3)KeyType(2)HashType(3)";

static int usage(FILE* stream) {
    fputs(
        "usage: enrol [REQUEST-INFORMATION]\n"
        "       enrol --import SIGNING-CERT [ENCRYPTION-KEY ENCRYPTION-CERT]\n"
        "\n"
        "The first form makes one PKCS#10 request for each group of the request information and\n"
        "prints each on a line of its own. Without it:\n"
        "  CertType(1)KeyType(2)HashType(3)|CertType(3)KeyType(2)HashType(3)\n"
        "The second form installs the files that the certificate authority has sent back: the\n"
        "signing certificate, and the escrowed encryption key with its certificate.\n"
        "\n"
        "examples:\n"
        "  enrol > requests.txt\n"
        "  enrol 'CertType(1)KeyType(1)HashType(2)'\n"
        "  enrol --import sign.cer enc.key enc.cer\n",
        stream);
    return stream == stdout ? EXIT_SUCCESS : 2;
}

/* The message text of a code; to be freed. NULL where there is none. */
static char* message_text(int code) {
    int length = 0;
    if (GetErrorMsg(code, NULL, &length) != KESTA_OK) return NULL;
    for (;;) {
        char* text = malloc((size_t)length);
        if (text == NULL) return NULL;
        int result = GetErrorMsg(code, text, &length);
        if (result == KESTA_OK) return text;
        free(text);
        /* The probe answers with a bound; a longer text says here how much it needs. */
        if (result != KESTA_BUFFER_TOO_SMALL) return NULL;
    }
}

static int failed(const char* what, int code) {
    char* text = message_text(code);
    if (code == KESTA_NOT_BOUND) {
        fprintf(stderr, "enrol: %s: the token library is not installed (%d)\n", what, code);
    } else {
        fprintf(stderr, "enrol: %s: %s (%d)\n", what, text ? text : "no message text", code);
    }
    free(text);
    return EXIT_FAILURE;
}

static int out_of_memory(void) {
    fputs("enrol: out of memory\n", stderr);
    return EXIT_FAILURE;
}

/* The serial number of the key that is present; to be freed. NULL after telling what failed. */
static char* serial_number(void) {
    unsigned int length = 0;
    int code = GetPrintNumber(NULL, &length);
    if (code != KESTA_OK) {
        failed("looking for a key", code);
        return NULL;
    }
    length += 1; /* this length does not count the NUL */
    char* serial = calloc(length, 1);
    if (serial == NULL) {
        out_of_memory();
        return NULL;
    }
    code = GetPrintNumber(serial, &length);
    if (code != KESTA_OK) {
        failed("reading the key's serial number", code);
        free(serial);
        return NULL;
    }
    return serial;
}

/* Several requests come as one text, joined by "||". */
static void print_requests(const char* requests) {
    const char* end;
    while ((end = strstr(requests, "||")) != NULL) {
        printf("%.*s\n", (int)(end - requests), requests);
        requests = end + 2;
    }
    printf("%s\n", requests);
}

static int make_requests(const char* serial, const char* information) {
    int length = 0;
    /* The probe makes the requests; the second call fetches these very ones. */
    int code = GenerateCertRequest(serial, information, NULL, &length);
    if (code != KESTA_OK) return failed("making the requests", code);

    char* requests = malloc((size_t)length);
    if (requests == NULL) return out_of_memory();
    code = GenerateCertRequest(serial, information, requests, &length);
    if (code == KESTA_OK) {
        print_requests(requests);
    } else {
        failed("fetching the requests", code);
    }
    free(requests);
    return code == KESTA_OK ? EXIT_SUCCESS : EXIT_FAILURE;
}

/* A text file, without the line break at its end; to be freed. NULL after telling what failed. */
static char* read_file(const char* path) {
    enum { LIMIT = 65536 };
    char* text = calloc(LIMIT + 1, 1);
    FILE* file = fopen(path, "rb");
    if (text == NULL || file == NULL) {
        fprintf(stderr, "enrol: cannot read %s: %s\n", path, strerror(errno));
        free(text);
        text = NULL;
    } else if (fread(text, 1, LIMIT, file) == LIMIT || ferror(file)) {
        fprintf(stderr, "enrol: cannot read %s, or it is longer than a key or certificate\n", path);
        free(text);
        text = NULL;
    } else {
        size_t length = strlen(text);
        while (length > 0 && strchr("\r\n", text[length - 1]) != NULL) text[--length] = '\0';
    }
    if (file != NULL) fclose(file);
    return text;
}

static int import_signing(const char* serial, const char* path) {
    char* certificate = read_file(path);
    if (certificate == NULL) return EXIT_FAILURE;
    int code = ImportX509Cert(serial, certificate);
    free(certificate);
    if (code != KESTA_OK) return failed("importing the signing certificate", code);
    puts("signing certificate imported");
    return EXIT_SUCCESS;
}

static int import_encryption(const char* serial, const char* key_path, const char* path) {
    char* key = read_file(key_path);
    char* certificate = read_file(path);
    int code = KESTA_BAD_ARGUMENT;
    if (key != NULL && certificate != NULL) {
        code = ImportEncX509Cert(serial, certificate, key);
        if (code == KESTA_OK) {
            puts("encryption key and certificate imported");
        } else {
            failed("importing the encryption key and its certificate", code);
        }
    }
    free(certificate);
    free(key);
    return code == KESTA_OK ? EXIT_SUCCESS : EXIT_FAILURE;
}

int main(int argc, char** argv) {
    int importing = argc > 1 && strcmp(argv[1], "--import") == 0;
    if (argc == 2 && strcmp(argv[1], "--help") == 0) return usage(stdout);
    if (importing ? argc != 3 && argc != 5 : argc > 2) return usage(stderr);
    if (!importing && argc == 2 && argv[1][0] == '-') return usage(stderr);

    int code = Initialize();
    if (code != KESTA_OK) return failed("loading the token library", code);
    char* serial = serial_number();
    if (serial == NULL) return EXIT_FAILURE;

    int status;
    if (importing) {
        status = import_signing(serial, argv[2]);
        if (status == EXIT_SUCCESS && argc == 5) {
            status = import_encryption(serial, argv[3], argv[4]);
        }
    } else {
        status = make_requests(serial, argc == 2 ? argv[1] : DEFAULT_INFORMATION);
    }
    free(serial);
    Finalize();
    return status;
}

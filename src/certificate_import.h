// What an authority returned, on its way into the key: certificates, escrowed keys, bundles of
// both. Each function stores its result as the last error.
#ifndef KESTA_CERTIFICATE_IMPORT_H
#define KESTA_CERTIFICATE_IMPORT_H

#include "token_call.h"

namespace kesta {

// A signing certificate, without its commas and line breaks.
int ImportCertificate(const Token& token, const char* szSN, const char* strP7);

// An escrowed key and then its certificate. Only commas are removed.
int ImportEncryption(const Token& token, const char* szSN, const char* strP7,
                     const char* strPriKey);

// A bundle's sections, or one certificate.
int ImportBundle(const Token& token, const char* szSN, const char* strP7);

}  // namespace kesta

#endif

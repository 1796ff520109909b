// Certificates as texts, and what a person wants to know of one.
#ifndef UKEY_CERTIFICATE_TEXT_H
#define UKEY_CERTIFICATE_TEXT_H

#include <optional>
#include <string>

#include "output.h"

namespace ukey {

struct CertificateFacts {
    std::string subject;
    std::string issuer;
    std::string serialNumber;  // hexadecimal
    std::string notBefore;     // 2025-01-31 12:00:00 UTC
    std::string notAfter;
    long daysLeft = 0;  // negative: expired
};

// The first certificate of an X.509 or PKCS#7 text; nothing when there is none to be read.
std::optional<CertificateFacts> ReadFacts(const std::string& text);

Json ToJson(const CertificateFacts& facts);
Rows ToRows(const CertificateFacts& facts);
// "2026-01-31, 71 days left", red when over.
std::string Expiry(const CertificateFacts& facts);

// What the key takes: one line of Base64. DER is encoded, PEM loses its armour and line breaks, any
// other text stays as it is without the blanks at its end.
std::string OneLine(const std::string& content);

// Base64 between lines "-----BEGIN label-----" and "-----END label-----".
std::string Armoured(const std::string& base64, const std::string& label);

}  // namespace ukey

#endif

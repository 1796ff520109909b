// Certificates as texts, and what a person wants to know of one.
#ifndef KIT_CERTIFICATE_H
#define KIT_CERTIFICATE_H

#include <optional>
#include <string>
#include <string_view>

#include "kit/output.h"

namespace kit {

struct CertificateFacts {
    std::string subject;  // as in RFC 4514, UTF-8
    std::string issuer;
    std::string serialNumber;  // hexadecimal
    std::string notBefore;     // 2025-01-31T12:00:00Z
    std::string notAfter;
    long daysLeft = 0;  // negative: expired
};

// A certificate in DER; nothing when it cannot be read.
std::optional<CertificateFacts> ReadDer(std::string_view der);
// The first certificate of an X.509 or PKCS#7 text; nothing when there is none to be read.
std::optional<CertificateFacts> ReadFacts(const std::string& text);

Json ToJson(const CertificateFacts& facts);
Rows ToRows(const CertificateFacts& facts);
// "2026-01-31, 71 days left", red when over.
std::string Expiry(const CertificateFacts& facts);

// What the key takes: one line of Base64. DER is encoded, PEM loses its armour and line breaks, any
// other text stays as it is without the blanks at its end.
std::string OneLine(const std::string& content);

std::string ToBase64(std::string_view bytes);
// Empty when it is not Base64.
std::string FromBase64(const std::string& text);

// Base64 between lines "-----BEGIN label-----" and "-----END label-----".
std::string Armoured(const std::string& base64, const std::string& label);

}  // namespace kit

#endif

// Certificates: reading what an authority sent, and telling what is in them.
#ifndef SOFTKEY_CRYPTO_CERTIFICATE_H
#define SOFTKEY_CRYPTO_CERTIFICATE_H

#include <string>
#include <string_view>
#include <vector>

#include "softkey/crypto/openssl_types.h"
#include "softkey/store/records.h"

namespace softkey {

// What the buffer of GetCertInfo holds as Base64, with its NUL.
constexpr std::size_t kMaxCertificateSize = (kesta::limits::kCertificateBuffer - 1) / 4 * 3;

// All certificates of a text: Base64 of DER X.509 or PKCS#7, or PEM of either, several blocks
// allowed. kCertificateMalformed when any of it cannot be read, or holds no certificate.
std::vector<X509Ptr> ParseCertificates(std::string_view text);

// The certificate that was stored. kStateDamaged.
X509Ptr StoredCertificate(const Bytes& der);

Bytes CertificateDer(X509* certificate);
bool BelongsTogether(const X509* certificate, const Bytes& publicKey);

// The subject as RFC 2253 writes it, in UTF-8: the last part of the name first.
std::string SubjectText(const X509* certificate);

// Lines of name=value, each ended by LF: type, algorithm, serial, notBefore, notAfter,
// fingerprint (SHA-256), subject, issuer.
std::string InformationBlock(const X509* certificate, Role role, Algorithm algorithm);

}  // namespace softkey

#endif

// What a key holds, as shown to people and to programs.
#ifndef SOFTKEY_ADMIN_VIEW_H
#define SOFTKEY_ADMIN_VIEW_H

#include <string>

#include "softkey/admin/session.h"

namespace softkey::admin {

const char* NameOf(Role role);
const char* NameOf(Algorithm algorithm);
const char* NameOf(Button button);

struct CertificateView {
    bool readable = false;
    std::string subject;  // as in RFC 2253, UTF-8
    std::string issuer;
    std::string serial;     // hexadecimal
    std::string notBefore;  // ISO 8601, UTC
    std::string notAfter;
};

CertificateView ViewCertificate(const Bytes& der);

// The key without its contents, as it stands in every JSON answer that names a key.
Json KeyJson(const KeyRecord& key);
// With pairs, certificates and the names of its data objects. Nothing secret is in it.
Json KeyWithContentsJson(Store& store, const KeyRecord& key);
std::string KeyWithContentsText(Store& store, const KeyRecord& key);

}  // namespace softkey::admin

#endif

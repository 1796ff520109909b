#include "softkey/crypto/certificate.h"

#include <array>
#include <ctime>
#include <iomanip>
#include <sstream>

#include "softkey/crypto/base64.h"
#include "softkey/crypto/der.h"
#include "softkey/crypto/key_pair.h"
#include "softkey/crypto/openssl_errors.h"
#include "softkey/result.h"

namespace softkey {
namespace {

X509Ptr ReadX509(const Bytes& der) {
    const unsigned char* at = der.data();
    X509Ptr certificate(d2i_X509(nullptr, &at, static_cast<long>(der.size())));
    if (certificate && !IsDer(der)) certificate.reset();
    return certificate;
}

// The certificates of a PKCS#7 message; empty when it is none, or when one of them is not DER.
std::vector<X509Ptr> ReadPkcs7(const Bytes& der) {
    std::vector<X509Ptr> certificates;
    const unsigned char* at = der.data();
    const Pkcs7Ptr message(d2i_PKCS7(nullptr, &at, static_cast<long>(der.size())));
    if (!message || at != der.data() + der.size()) return certificates;
    if (!PKCS7_type_is_signed(message.get()) || message->d.sign == nullptr) return certificates;
    STACK_OF(X509)* const stack = message->d.sign->cert;
    for (int i = 0; i < sk_X509_num(stack); ++i) {
        X509* const certificate = sk_X509_value(stack, i);
        Require(X509_up_ref(certificate) == 1, "a certificate");
        X509Ptr owned(certificate);  // before there may be no memory for its place
        certificates.push_back(std::move(owned));
        if (!IsDer(CertificateDer(certificate))) return {};
    }
    return certificates;
}

std::string Drain(const BioPtr& bio) {
    char* data = nullptr;
    const long length = BIO_get_mem_data(bio.get(), &data);
    return {data, static_cast<std::size_t>(length)};
}

std::string NameText(const X509_NAME* name) {
    const auto bio = Made(BioPtr(BIO_new(BIO_s_mem())), "a name");
    const unsigned long flags = XN_FLAG_RFC2253 & ~static_cast<unsigned long>(ASN1_STRFLGS_ESC_MSB);
    Require(X509_NAME_print_ex(bio.get(), name, 0, flags) >= 0, "a name");
    return Drain(bio);
}

std::string HexText(const std::uint8_t* bytes, std::size_t size) {
    static constexpr char kDigits[] = "0123456789ABCDEF";
    std::string text;
    for (std::size_t i = 0; i < size; ++i) {
        text += kDigits[bytes[i] >> 4];
        text += kDigits[bytes[i] & 0x0F];
    }
    return text;
}

std::string TimeText(const ASN1_TIME* time) {
    std::tm parts{};
    if (ASN1_TIME_to_tm(time, &parts) != 1) throw Failure(kCertificateMalformed, "a time");
    std::ostringstream text;
    text << std::put_time(&parts, "%Y-%m-%dT%H:%M:%SZ");
    return text.str();
}

std::string SerialText(const X509* certificate) {
    const ASN1_INTEGER* const number = X509_get0_serialNumber(certificate);
    return HexText(ASN1_STRING_get0_data(number),
                   static_cast<std::size_t>(ASN1_STRING_length(number)));
}

}  // namespace

std::vector<X509Ptr> ParseCertificates(std::string_view text) {
    std::vector<X509Ptr> all;
    const std::optional<std::vector<Bytes>> blocks = FromText(text);
    if (!blocks) throw Failure(kCertificateMalformed, "neither Base64 nor PEM");
    for (const Bytes& der : *blocks) {
        if (X509Ptr certificate = ReadX509(der)) {
            all.push_back(std::move(certificate));
            continue;
        }
        std::vector<X509Ptr> several = ReadPkcs7(der);
        ForgetErrors();
        if (several.empty()) throw Failure(kCertificateMalformed, "neither X.509 nor PKCS#7");
        for (X509Ptr& certificate : several) all.push_back(std::move(certificate));
    }
    return all;
}

X509Ptr StoredCertificate(const Bytes& der) {
    X509Ptr certificate = ReadX509(der);
    if (certificate) return certificate;
    ForgetErrors();
    throw Failure(kStateDamaged, "a stored certificate");
}

Bytes CertificateDer(X509* certificate) {
    return Encoded([certificate](auto der) { return i2d_X509(certificate, der); },
                   "writing a certificate back");
}

namespace {

Bytes EncodedKeyOf(const X509* certificate) {
    const X509_PUBKEY* const key = X509_get_X509_PUBKEY(certificate);
    return Encoded([key](auto der) { return i2d_X509_PUBKEY(key, der); }, "a certified key");
}

}  // namespace

bool BelongsTogether(const X509* certificate, const Bytes& publicKey) {
    // As a rule it stands in the certificate as it does in the request. To read it may fail for
    // lack of memory, and OpenSSL keeps to itself why.
    if (EncodedKeyOf(certificate) == publicKey) return true;
    const PKeyPtr stored = ParsePublicKey(publicKey);
    const bool same = stored && EVP_PKEY_eq(X509_get0_pubkey(certificate), stored.get()) == 1;
    ForgetErrors();
    return same;
}

std::string SubjectText(const X509* certificate) {
    return NameText(X509_get_subject_name(certificate));
}

std::string InformationBlock(const X509* certificate, Role role, Algorithm algorithm) {
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned int size{};
    Require(X509_digest(certificate, EVP_sha256(), digest.data(), &size) == 1, "a fingerprint");
    std::string block;
    block += std::string("type=") + (role == Role::kSigning ? "sign" : "encryption") + "\n";
    block += std::string("algorithm=") + (algorithm == Algorithm::kRsa ? "RSA" : "SM2") + "\n";
    block += "serial=" + SerialText(certificate) + "\n";
    block += "notBefore=" + TimeText(X509_get0_notBefore(certificate)) + "\n";
    block += "notAfter=" + TimeText(X509_get0_notAfter(certificate)) + "\n";
    block += "fingerprint=" + HexText(digest.data(), size) + "\n";
    block += "subject=" + SubjectText(certificate) + "\n";
    block += "issuer=" + NameText(X509_get_issuer_name(certificate)) + "\n";
    return block;
}

}  // namespace softkey

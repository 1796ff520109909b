#include "kit/certificate.h"

#include <openssl/asn1.h>
#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/evp.h>
#include <openssl/pkcs7.h>
#include <openssl/x509.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <memory>
#include <new>

#include "kit/memory.h"
#include "kit/release.h"

namespace kit {
namespace {

using Certificate = std::unique_ptr<X509, Release<X509_free>>;
using Bio = std::unique_ptr<BIO, Release<BIO_free>>;

struct Allocation {
    void operator()(char* text) const { OPENSSL_free(text); }
};

constexpr std::string_view kBegin = "-----BEGIN ";

// True when the outermost DER length is exactly the content's: a text cannot be mistaken for it.
bool IsDer(const std::string& content) {
    const auto byte = [&content](std::size_t at) {
        return static_cast<std::size_t>(static_cast<unsigned char>(content[at]));
    };
    if (content.size() < 2 || byte(0) != 0x30) return false;
    if (byte(1) < 0x80) return content.size() == 2 + byte(1);
    const std::size_t octets = byte(1) & 0x7FU;
    if (octets == 0 || octets > 4 || content.size() < 2 + octets) return false;
    std::size_t length = 0;
    for (std::size_t i = 0; i < octets; ++i) length = (length << 8U) | byte(2 + i);
    return content.size() == 2 + octets + length;
}

std::string WithoutAny(std::string text, std::string_view unwanted) {
    text.erase(
        std::remove_if(text.begin(), text.end(),
                       [unwanted](char c) { return unwanted.find(c) != std::string_view::npos; }),
        text.end());
    return text;
}

std::string WithoutArmour(const std::string& content, std::size_t begin) {
    const std::size_t start = content.find('\n', begin);
    const std::size_t end = content.find("-----END ", begin);
    if (start == std::string::npos || end == std::string::npos || end < start) return content;
    return WithoutAny(content.substr(start, end - start), " \t\r\n");
}

Certificate FromDer(std::string_view der) {
    const auto* at = reinterpret_cast<const unsigned char*>(der.data());
    return Certificate(d2i_X509(nullptr, &at, static_cast<long>(der.size())));
}

Certificate FromPkcs7(std::string_view der) {
    const auto* at = reinterpret_cast<const unsigned char*>(der.data());
    const std::unique_ptr<PKCS7, Release<PKCS7_free>> container(
        d2i_PKCS7(nullptr, &at, static_cast<long>(der.size())));
    if (!container || PKCS7_type_is_signed(container.get()) == 0) return nullptr;
    const STACK_OF(X509)* const all = container->d.sign->cert;
    if (all == nullptr || sk_X509_num(all) == 0) return nullptr;
    return Certificate(X509_dup(sk_X509_value(all, 0)));
}

std::string NameText(const X509_NAME* name) {
    const Bio memory(BIO_new(BIO_s_mem()));
    // The rules of RFC 2253, which RFC 4514 kept; other alphabets stay readable, as UTF-8.
    constexpr unsigned long kFlags =
        XN_FLAG_RFC2253 & ~static_cast<unsigned long>(ASN1_STRFLGS_ESC_MSB);
    if (!memory || X509_NAME_print_ex(memory.get(), name, 0, kFlags) < 0) return {};
    char* text = nullptr;
    const long length = BIO_get_mem_data(memory.get(), &text);
    return std::string(text, static_cast<std::size_t>(length));
}

std::string TimeText(const ASN1_TIME* time) {
    std::tm parts{};
    if (ASN1_TIME_to_tm(time, &parts) != 1) return "?";
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts);
    return text;
}

std::string SerialText(const X509* certificate) {
    const std::unique_ptr<BIGNUM, Release<BN_free>> number(
        ASN1_INTEGER_to_BN(X509_get0_serialNumber(certificate), nullptr));
    char* const text = number ? BN_bn2hex(number.get()) : nullptr;
    if (text == nullptr) throw std::bad_alloc();
    const std::unique_ptr<char, Allocation> owned(text);
    return text;
}

std::optional<CertificateFacts> FactsOf(const X509* certificate) {
    RequireMemory();  // where there was none OpenSSL finds a certificate malformed
    if (certificate == nullptr) return std::nullopt;
    CertificateFacts facts;
    facts.subject = NameText(X509_get_subject_name(certificate));
    facts.issuer = NameText(X509_get_issuer_name(certificate));
    facts.serialNumber = SerialText(certificate);
    facts.notBefore = TimeText(X509_get0_notBefore(certificate));
    facts.notAfter = TimeText(X509_get0_notAfter(certificate));
    int days = 0;
    int seconds = 0;
    if (ASN1_TIME_diff(&days, &seconds, nullptr, X509_get0_notAfter(certificate)) == 1) {
        // A certificate that ended an hour ago has no day left, but is over.
        facts.daysLeft = days == 0 && seconds < 0 ? -1 : days;
    }
    RequireMemory();
    return facts;
}

}  // namespace

std::string ToBase64(std::string_view bytes) {
    std::string text(4 * ((bytes.size() + 2) / 3) + 1, '\0');
    const int length = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()),
                                       reinterpret_cast<const unsigned char*>(bytes.data()),
                                       static_cast<int>(bytes.size()));
    text.resize(static_cast<std::size_t>(length));
    return text;
}

std::string FromBase64(const std::string& text) {
    if (text.empty() || text.size() % 4 != 0) return {};
    std::string bytes(text.size() / 4 * 3, '\0');
    const int length = EVP_DecodeBlock(reinterpret_cast<unsigned char*>(bytes.data()),
                                       reinterpret_cast<const unsigned char*>(text.data()),
                                       static_cast<int>(text.size()));
    if (length < 0) return {};
    for (std::size_t i = text.size(); i > text.size() - 2 && text[i - 1] == '='; --i) {
        bytes.pop_back();
    }
    return bytes;
}

std::optional<CertificateFacts> ReadDer(std::string_view der) {
    return FactsOf(FromDer(der).get());
}

std::optional<CertificateFacts> ReadFacts(const std::string& text) {
    const std::string der = FromBase64(OneLine(text));
    const Certificate certificate = FromDer(der);
    return certificate ? FactsOf(certificate.get()) : FactsOf(FromPkcs7(der).get());
}

Json ToJson(const CertificateFacts& facts) {
    return {{"subject", facts.subject},           {"issuer", facts.issuer},
            {"serialNumber", facts.serialNumber}, {"notBefore", facts.notBefore},
            {"notAfter", facts.notAfter},         {"daysLeft", facts.daysLeft}};
}

std::string Expiry(const CertificateFacts& facts) {
    const std::string day = facts.notAfter.substr(0, 10);
    if (facts.daysLeft < 0)
        return Paint(STDOUT_FILENO, Colour::kRed, Fill(_("{1}, expired"), {day}));
    const std::string text =
        Fill(facts.daysLeft == 1 ? _("{1}, {2} day left") : _("{1}, {2} days left"),
             {day, std::to_string(facts.daysLeft)});
    return Paint(STDOUT_FILENO, facts.daysLeft < 30 ? Colour::kYellow : Colour::kNone, text);
}

Rows ToRows(const CertificateFacts& facts) {
    return {{_("Subject"), Printable(facts.subject)},
            {_("Issuer"), Printable(facts.issuer)},
            {_("Serial number"), facts.serialNumber},
            {_("Valid from"), facts.notBefore.substr(0, 10)},
            {_("Valid until"), Expiry(facts)}};
}

std::string OneLine(const std::string& content) {
    if (IsDer(content)) return ToBase64(content);
    const std::size_t begin = content.find(kBegin);
    if (begin != std::string::npos) return WithoutArmour(content, begin);
    return WithoutAny(Trimmed(content), "\r\n");
}

std::string Armoured(const std::string& base64, const std::string& label) {
    std::string text = "-----BEGIN " + label + "-----\n";
    for (std::size_t at = 0; at < base64.size(); at += 64) text += base64.substr(at, 64) + "\n";
    return text + "-----END " + label + "-----\n";
}

}  // namespace kit

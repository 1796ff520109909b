#include "softkey/crypto/issuing.h"

#include <openssl/x509v3.h>

#include "softkey/crypto/certificate.h"
#include "softkey/crypto/key_pair.h"
#include "softkey/crypto/request.h"
#include "softkey/result.h"

namespace softkey {
namespace {

using ExtensionPtr = std::unique_ptr<X509_EXTENSION, Releaser<X509_EXTENSION_free>>;

void SetNumber(X509* certificate) {
    const BignumPtr number(BN_new());
    Require(number && BN_rand(number.get(), 64, BN_RAND_TOP_ONE, BN_RAND_BOTTOM_ANY) == 1 &&
                BN_to_ASN1_INTEGER(number.get(), X509_get_serialNumber(certificate)) != nullptr,
            "a serial number");
}

void SetUsage(X509* certificate, Role role) {
    const char* const usage = role == Role::kSigning ? "critical,digitalSignature,nonRepudiation"
                                                     : "critical,keyEncipherment,dataEncipherment";
    const ExtensionPtr extension(X509V3_EXT_conf_nid(nullptr, nullptr, NID_key_usage, usage));
    Require(extension && X509_add_ext(certificate, extension.get(), -1) == 1, "a usage");
}

void Sign(X509* certificate, EVP_PKEY* authority) {
    const MdCtxPtr ctx(EVP_MD_CTX_new());
    EVP_PKEY_CTX* keyCtx = nullptr;
    Require(ctx &&
                EVP_DigestSignInit_ex(ctx.get(), &keyCtx, "SM3", nullptr, nullptr, authority,
                                      nullptr) == 1 &&
                EVP_PKEY_CTX_set1_id(keyCtx, kSm2Identity.data(), kSm2Identity.size()) == 1 &&
                X509_sign_ctx(certificate, ctx.get()) > 0,
            "signing a certificate");
}

Bytes Issue(EVP_PKEY* pair, Role role, const std::string& serial, EVP_PKEY* authority,
            const Validity& validity) {
    const auto certificate = Made(X509Ptr(X509_new()), "making a certificate");
    X509* const raw = certificate.get();
    Require(X509_set_version(raw, X509_VERSION_3) == 1 && X509_set_pubkey(raw, pair) == 1 &&
                ASN1_TIME_set(X509_getm_notBefore(raw), validity.notBefore) != nullptr &&
                ASN1_TIME_set(X509_getm_notAfter(raw), validity.notAfter) != nullptr,
            "filling a certificate");
    SetNumber(raw);
    SetCommonName(X509_get_subject_name(raw), serial);
    SetCommonName(X509_get_issuer_name(raw), "Software key");
    SetUsage(raw, role);
    Sign(raw, authority);
    return CertificateDer(raw);
}

}  // namespace

std::vector<PairRecord> CertifiedPairs(const std::string& serial, const MasterKey& master,
                                       const Validity& validity) {
    const PKeyPtr authority = GeneratePair(Algorithm::kSm2);
    std::vector<PairRecord> records;
    for (const Role role : {Role::kSigning, Role::kEncryption}) {
        const PKeyPtr pair = GeneratePair(Algorithm::kSm2);
        records.push_back(ToRecord(pair.get(), role, serial, master));
        records.back().certificate = Issue(pair.get(), role, serial, authority.get(), validity);
    }
    return records;
}

}  // namespace softkey

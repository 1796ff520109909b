// OpenSSL as certificate authority and as judge of what the key makes.
#ifndef FLOW_AUTHORITY_H
#define FLOW_AUTHORITY_H

#include <openssl/evp.h>
#include <openssl/x509.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace flow {

struct OpensslFree {
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
    void operator()(EVP_PKEY_CTX* context) const { EVP_PKEY_CTX_free(context); }
    void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
    void operator()(X509* certificate) const { X509_free(certificate); }
    void operator()(X509_REQ* request) const { X509_REQ_free(request); }
    void operator()(ASN1_OCTET_STRING* text) const { ASN1_OCTET_STRING_free(text); }
    void operator()(BIO* memory) const { BIO_free(memory); }
};
template <typename T>
using Owned = std::unique_ptr<T, OpensslFree>;

// What make returns. Where KESTA_FLOW_NOTES names a folder it is kept there, and a later run of the
// same test in another process gets it back without making it: what a replay needs to be the same.
std::string Noted(const std::function<std::string()>& make);

std::string ToBase64(const std::string& bytes);
std::string FromBase64(const std::string& text);  // throws for what is not Base64

Owned<EVP_PKEY> NewSm2Pair();
std::string PrivatePem(EVP_PKEY* pair);

// A request as it comes from the key: Base64 of DER. Throws when it cannot be read.
class Request {
public:
    explicit Request(const std::string& base64);
    EVP_PKEY* PublicKey() const { return X509_REQ_get0_pubkey(request_.get()); }
    // Signed by the key in it, SM2 with the default identity.
    bool IsSignedByItsKey() const;

private:
    Owned<X509_REQ> request_;
};

// A certificate: Base64 of DER. Throws when it cannot be read.
class Certificate {
public:
    explicit Certificate(const std::string& base64);
    bool IsFor(const EVP_PKEY* key) const;
    EVP_PKEY* PublicKey() const { return X509_get0_pubkey(certificate_.get()); }
    // Signatures are Base64 of DER.
    bool Verifies(const std::string& text, const std::string& signature, const char* digest) const;
    bool VerifiesDigest(const std::string& digest, const std::string& signature) const;
    // Base64 of the cipher text's DER.
    std::string Encrypt(const std::string& text) const;

private:
    std::string EncryptAnew(const std::string& text) const;

    Owned<X509> certificate_;
};

class Authority {
public:
    Authority();
    // Base64 of DER, one line.
    std::string Issue(EVP_PKEY* subjectKey, const std::string& commonName) const;

private:
    std::string IssueAnew(EVP_PKEY* subjectKey, const std::string& commonName) const;

    Owned<EVP_PKEY> key_;
};

std::string PemOf(const std::string& certificateBase64);
std::vector<std::string> Split(const std::string& text, const std::string& separator);

}  // namespace flow

#endif

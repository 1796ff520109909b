#include "authority.h"

#include <openssl/core_names.h>
#include <openssl/err.h>
#include <openssl/params.h>
#include <openssl/pem.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace flow {
namespace {

char identity[] = "1234567812345678";
constexpr std::size_t kIdentityLength = sizeof identity - 1;

void Require(bool success, const char* what) {
    if (success) return;
    char text[256];
    ERR_error_string_n(ERR_get_error(), text, sizeof text);
    throw std::runtime_error(std::string(what) + ": " + text);
}

const unsigned char* Bytes(const std::string& text) {
    return reinterpret_cast<const unsigned char*>(text.data());
}

bool IsSm2(const EVP_PKEY* key) {
    return EVP_PKEY_is_a(key, "SM2") == 1;
}

// SM2 hashes the signer's identity in front of the text; other algorithms have none.
std::vector<OSSL_PARAM> Identity(const EVP_PKEY* key) {
    std::vector<OSSL_PARAM> parameters;
    if (IsSm2(key)) {
        parameters.push_back(
            OSSL_PARAM_construct_octet_string(OSSL_PKEY_PARAM_DIST_ID, identity, kIdentityLength));
    }
    parameters.push_back(OSSL_PARAM_construct_end());
    return parameters;
}

ASN1_OCTET_STRING* IdentityText() {
    Owned<ASN1_OCTET_STRING> text(ASN1_OCTET_STRING_new());
    ASN1_OCTET_STRING_set(text.get(), reinterpret_cast<unsigned char*>(identity),
                          static_cast<int>(kIdentityLength));
    return text.release();
}

}  // namespace

namespace {

// Where the next note stands: each process has a row of its own.
std::string NextNote(const std::string& folder) {
    static pid_t process = getpid();
    static std::string row;
    static int count = 0;
    if (process != getpid()) {
        process = getpid();
        row += std::to_string(count) + ".";
        count = 0;
    }
    return folder + "/" + row + std::to_string(++count);
}

}  // namespace

std::string Noted(const std::function<std::string()>& make) {
    const char* const folder = std::getenv("KESTA_FLOW_NOTES");
    if (folder == nullptr) return make();
    const std::string path = NextNote(folder);
    std::ifstream before(path, std::ios::binary);
    if (before) return {std::istreambuf_iterator<char>(before), std::istreambuf_iterator<char>()};
    const std::string made = make();
    std::ofstream after(path, std::ios::binary);
    after << made;
    Require(bool(after.flush()), "writing a note");
    return made;
}

std::string ToBase64(const std::string& bytes) {
    std::string text(4 * ((bytes.size() + 2) / 3) + 1, '\0');
    const int length = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()), Bytes(bytes),
                                       static_cast<int>(bytes.size()));
    text.resize(static_cast<std::size_t>(length));
    return text;
}

std::string FromBase64(const std::string& text) {
    std::string bytes(3 * (text.size() / 4) + 1, '\0');
    const int length = EVP_DecodeBlock(reinterpret_cast<unsigned char*>(bytes.data()), Bytes(text),
                                       static_cast<int>(text.size()));
    if (length < 0) throw std::runtime_error("not Base64: " + text);
    std::size_t padding = 0;
    while (padding < 2 && padding < text.size() && text[text.size() - 1 - padding] == '=') {
        ++padding;
    }
    bytes.resize(static_cast<std::size_t>(length) - padding);
    return bytes;
}

Owned<EVP_PKEY> NewSm2Pair() {
    const std::string pem = Noted([] {
        const Owned<EVP_PKEY> pair(EVP_PKEY_Q_keygen(nullptr, nullptr, "SM2"));
        Require(pair != nullptr, "making an SM2 pair");
        return PrivatePem(pair.get());
    });
    const Owned<BIO> memory(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
    Owned<EVP_PKEY> pair(PEM_read_bio_PrivateKey(memory.get(), nullptr, nullptr, nullptr));
    Require(pair != nullptr, "reading an SM2 pair");
    return pair;
}

std::string PrivatePem(EVP_PKEY* pair) {
    const Owned<BIO> memory(BIO_new(BIO_s_mem()));
    Require(
        PEM_write_bio_PrivateKey(memory.get(), pair, nullptr, nullptr, 0, nullptr, nullptr) == 1,
        "writing a private key");
    char* text = nullptr;
    const long length = BIO_get_mem_data(memory.get(), &text);
    return std::string(text, static_cast<std::size_t>(length));
}

Request::Request(const std::string& base64) {
    const std::string der = FromBase64(base64);
    const unsigned char* at = Bytes(der);
    request_.reset(d2i_X509_REQ(nullptr, &at, static_cast<long>(der.size())));
    Require(request_ && at == Bytes(der) + der.size(), "reading a request");
    if (IsSm2(PublicKey())) X509_REQ_set0_distinguishing_id(request_.get(), IdentityText());
}

bool Request::IsSignedByItsKey() const {
    return X509_REQ_verify(request_.get(), PublicKey()) == 1;
}

Certificate::Certificate(const std::string& base64) {
    const std::string der = FromBase64(base64);
    const unsigned char* at = Bytes(der);
    certificate_.reset(d2i_X509(nullptr, &at, static_cast<long>(der.size())));
    Require(certificate_ && at == Bytes(der) + der.size(), "reading a certificate");
}

bool Certificate::IsFor(const EVP_PKEY* key) const {
    return EVP_PKEY_eq(PublicKey(), key) == 1;
}

bool Certificate::Verifies(const std::string& text, const std::string& signature,
                           const char* digest) const {
    const Owned<EVP_MD_CTX> context(EVP_MD_CTX_new());
    const std::vector<OSSL_PARAM> parameters = Identity(PublicKey());
    Require(EVP_DigestVerifyInit_ex(context.get(), nullptr, digest, nullptr, nullptr, PublicKey(),
                                    parameters.data()) == 1,
            "preparing to verify");
    const std::string der = FromBase64(signature);
    return EVP_DigestVerify(context.get(), Bytes(der), der.size(), Bytes(text), text.size()) == 1;
}

bool Certificate::VerifiesDigest(const std::string& digest, const std::string& signature) const {
    const Owned<EVP_PKEY_CTX> context(EVP_PKEY_CTX_new_from_pkey(nullptr, PublicKey(), nullptr));
    Require(EVP_PKEY_verify_init(context.get()) == 1, "preparing to verify");
    const std::string der = FromBase64(signature);
    return EVP_PKEY_verify(context.get(), Bytes(der), der.size(), Bytes(digest), digest.size()) ==
           1;
}

std::string Certificate::Encrypt(const std::string& text) const {
    return Noted([&] { return EncryptAnew(text); });
}

std::string Certificate::EncryptAnew(const std::string& text) const {
    const Owned<EVP_PKEY_CTX> context(EVP_PKEY_CTX_new_from_pkey(nullptr, PublicKey(), nullptr));
    std::size_t length = 0;
    Require(EVP_PKEY_encrypt_init(context.get()) == 1 &&
                EVP_PKEY_encrypt(context.get(), nullptr, &length, Bytes(text), text.size()) == 1,
            "preparing to encrypt");
    std::string cipher(length, '\0');
    Require(EVP_PKEY_encrypt(context.get(), reinterpret_cast<unsigned char*>(cipher.data()),
                             &length, Bytes(text), text.size()) == 1,
            "encrypting");
    cipher.resize(length);
    return ToBase64(cipher);
}

Authority::Authority() : key_(NewSm2Pair()) {}

std::string Authority::Issue(EVP_PKEY* subjectKey, const std::string& commonName) const {
    return Noted([&] { return IssueAnew(subjectKey, commonName); });
}

std::string Authority::IssueAnew(EVP_PKEY* subjectKey, const std::string& commonName) const {
    const Owned<X509> certificate(X509_new());
    X509* const raw = certificate.get();
    X509_set_version(raw, X509_VERSION_3);
    static long serial = 0;
    ASN1_INTEGER_set(X509_get_serialNumber(raw), ++serial);
    X509_gmtime_adj(X509_getm_notBefore(raw), -60);
    X509_gmtime_adj(X509_getm_notAfter(raw), 24L * 3600);
    X509_NAME_add_entry_by_txt(X509_get_subject_name(raw), "CN", MBSTRING_UTF8, Bytes(commonName),
                               -1, -1, 0);
    X509_NAME_add_entry_by_txt(X509_get_issuer_name(raw), "CN", MBSTRING_UTF8,
                               reinterpret_cast<const unsigned char*>("Flow CA"), -1, -1, 0);
    X509_set_pubkey(raw, subjectKey);

    const Owned<EVP_MD_CTX> context(EVP_MD_CTX_new());
    const std::vector<OSSL_PARAM> parameters = Identity(key_.get());
    Require(EVP_DigestSignInit_ex(context.get(), nullptr, "SM3", nullptr, nullptr, key_.get(),
                                  parameters.data()) == 1 &&
                X509_sign_ctx(raw, context.get()) > 0,
            "signing a certificate");
    unsigned char* der = nullptr;
    const int length = i2d_X509(raw, &der);
    Require(length > 0, "writing a certificate");
    const std::string bytes(reinterpret_cast<char*>(der), static_cast<std::size_t>(length));
    OPENSSL_free(der);
    return ToBase64(bytes);
}

std::string PemOf(const std::string& certificateBase64) {
    std::string pem = "-----BEGIN CERTIFICATE-----\n";
    for (std::size_t at = 0; at < certificateBase64.size(); at += 64) {
        pem += certificateBase64.substr(at, 64) + "\n";
    }
    return pem + "-----END CERTIFICATE-----\n";
}

std::vector<std::string> Split(const std::string& text, const std::string& separator) {
    std::vector<std::string> parts;
    std::size_t start = 0;
    for (std::size_t at = text.find(separator); at != std::string::npos;
         at = text.find(separator, start)) {
        parts.push_back(text.substr(start, at - start));
        start = at + separator.size();
    }
    parts.push_back(text.substr(start));
    return parts;
}

}  // namespace flow

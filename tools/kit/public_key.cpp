#include "kit/public_key.h"

#include <openssl/evp.h>
#include <openssl/x509.h>

#include "kit/certificate.h"
#include "kit/release.h"

namespace kit {
namespace {

using Context = std::unique_ptr<EVP_PKEY_CTX, Release<EVP_PKEY_CTX_free>>;
using DigestContext = std::unique_ptr<EVP_MD_CTX, Release<EVP_MD_CTX_free>>;

constexpr std::string_view kIdentity = "1234567812345678";

const unsigned char* Bytes(std::string_view text) {
    return reinterpret_cast<const unsigned char*>(text.data());
}

}  // namespace

struct PublicKey::Key {
    std::unique_ptr<EVP_PKEY, Release<EVP_PKEY_free>> pkey;

    bool Sm2() const { return EVP_PKEY_is_a(pkey.get(), "SM2") == 1; }
};

PublicKey::PublicKey(const std::string& certificate) : key_(std::make_unique<Key>()) {
    const std::string der = FromBase64(OneLine(certificate));
    const auto* at = Bytes(der);
    const std::unique_ptr<X509, Release<X509_free>> parsed(
        d2i_X509(nullptr, &at, static_cast<long>(der.size())));
    if (parsed) key_->pkey.reset(X509_get_pubkey(parsed.get()));
}

PublicKey::~PublicKey() = default;

bool PublicKey::Verifies(std::string_view text, const std::string& signature) const {
    EVP_PKEY* const pkey = key_->pkey.get();
    if (pkey == nullptr) return false;
    const std::string der = FromBase64(signature);
    const Context context(EVP_PKEY_CTX_new(pkey, nullptr));
    const DigestContext digest(EVP_MD_CTX_new());
    if (!context || !digest) return false;
    const bool sm2 = key_->Sm2();
    if (sm2 && EVP_PKEY_CTX_set1_id(context.get(), kIdentity.data(), kIdentity.size()) != 1) {
        return false;
    }
    EVP_MD_CTX_set_pkey_ctx(digest.get(), context.get());
    const EVP_MD* const hash = sm2 ? EVP_sm3() : EVP_sha256();
    return EVP_DigestVerifyInit(digest.get(), nullptr, hash, nullptr, pkey) == 1 &&
           EVP_DigestVerify(digest.get(), Bytes(der), der.size(), Bytes(text), text.size()) == 1;
}

std::string PublicKey::Encrypted(std::string_view text) const {
    if (!key_->pkey) return {};
    const Context context(EVP_PKEY_CTX_new(key_->pkey.get(), nullptr));
    std::size_t length = 0;
    if (!context || EVP_PKEY_encrypt_init(context.get()) != 1 ||
        EVP_PKEY_encrypt(context.get(), nullptr, &length, Bytes(text), text.size()) != 1) {
        return {};
    }
    std::string cipher(length, '\0');
    if (EVP_PKEY_encrypt(context.get(), reinterpret_cast<unsigned char*>(cipher.data()), &length,
                         Bytes(text), text.size()) != 1) {
        return {};
    }
    cipher.resize(length);
    return ToBase64(cipher);
}

}  // namespace kit

#define OPENSSL_SUPPRESS_DEPRECATED
#include "softkey/crypto/rsa_key.h"

#include <openssl/rsa.h>

#include "softkey/crypto/openssl_errors.h"
#include "softkey/result.h"

namespace softkey {
namespace {

using RsaPtr = std::unique_ptr<RSA, Releaser<RSA_free>>;

constexpr const char* kWhat = N_("an RSA key");

const RSA_METHOD* OwnMethod() {
    // What fails is tried again by the next call.
    static const RSA_METHOD* const method = Made(RSA_meth_dup(RSA_PKCS1_OpenSSL()), kWhat);
    return method;
}

PKeyPtr PairOf(RsaPtr rsa) {
    PKeyPtr pair(EVP_PKEY_new());
    Require(pair && RSA_set_method(rsa.get(), OwnMethod()) == 1, kWhat);
    // What is kept for the next signature would be copies of the primes on the ordinary heap.
    RSA_clear_flags(rsa.get(), RSA_FLAG_CACHE_PRIVATE);
    Require(EVP_PKEY_assign_RSA(pair.get(), rsa.get()) == 1, kWhat);
    static_cast<void>(rsa.release());
    return pair;
}

RsaPtr FromPkcs8(const SecretBytes& der) {
    const unsigned char* at = der.data();
    const Pkcs8Ptr pkcs8(d2i_PKCS8_PRIV_KEY_INFO(nullptr, &at, static_cast<long>(der.size())));
    const unsigned char* inside = nullptr;
    int size{};
    if (!pkcs8) return {};
    Require(PKCS8_pkey_get0(nullptr, &inside, &size, nullptr, pkcs8.get()) == 1, kWhat);
    return RsaPtr(d2i_RSAPrivateKey(nullptr, &inside, size));
}

}  // namespace

PKeyPtr GenerateRsaPair(int bits) {
    PrepareSecureHeap();
    RsaPtr rsa(RSA_new());
    const BignumPtr exponent(BN_new());
    Require(rsa && exponent && BN_set_word(exponent.get(), RSA_F4) == 1 &&
                RSA_generate_key_ex(rsa.get(), bits, exponent.get(), nullptr) == 1,
            kWhat);
    return PairOf(std::move(rsa));
}

SecretBytes RsaNumbersOf(const EVP_PKEY* pair) {
    const RSA* const rsa = EVP_PKEY_get0_RSA(pair);
    const int size = i2d_RSAPrivateKey(rsa, nullptr);
    SecretBytes der(static_cast<std::size_t>(size));
    unsigned char* at = der.data();
    Require(i2d_RSAPrivateKey(rsa, &at) == size, kWhat);
    return der;
}

PKeyPtr ReadRsaPair(const SecretBytes& der) {
    const unsigned char* at = der.data();
    RsaPtr rsa(d2i_RSAPrivateKey(nullptr, &at, static_cast<long>(der.size())));
    if (!rsa) rsa = FromPkcs8(der);
    ForgetErrors();
    return rsa ? PairOf(std::move(rsa)) : nullptr;
}

}  // namespace softkey

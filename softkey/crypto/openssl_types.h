// Owning pointers for the OpenSSL objects that the software key uses.
#ifndef SOFTKEY_CRYPTO_OPENSSL_TYPES_H
#define SOFTKEY_CRYPTO_OPENSSL_TYPES_H

#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/evp.h>
#include <openssl/param_build.h>
#include <openssl/params.h>
#include <openssl/pkcs7.h>
#include <openssl/x509.h>

#include <memory>

#include "softkey/crypto/openssl_errors.h"

namespace softkey {

template <auto function>
struct Releaser {
    template <typename T>
    void operator()(T* object) const {
        function(object);
    }
};

using BioPtr = std::unique_ptr<BIO, Releaser<BIO_free_all>>;
using BignumPtr = std::unique_ptr<BIGNUM, Releaser<BN_clear_free>>;
using CipherPtr = std::unique_ptr<EVP_CIPHER, Releaser<EVP_CIPHER_free>>;
using CipherCtxPtr = std::unique_ptr<EVP_CIPHER_CTX, Releaser<EVP_CIPHER_CTX_free>>;
using MdCtxPtr = std::unique_ptr<EVP_MD_CTX, Releaser<EVP_MD_CTX_free>>;
using PKeyPtr = std::unique_ptr<EVP_PKEY, Releaser<EVP_PKEY_free>>;
using PKeyCtxPtr = std::unique_ptr<EVP_PKEY_CTX, Releaser<EVP_PKEY_CTX_free>>;
using ParamBuilderPtr = std::unique_ptr<OSSL_PARAM_BLD, Releaser<OSSL_PARAM_BLD_free>>;
using ParamsPtr = std::unique_ptr<OSSL_PARAM, Releaser<OSSL_PARAM_free>>;
using Pkcs7Ptr = std::unique_ptr<PKCS7, Releaser<PKCS7_free>>;
using Pkcs8Ptr = std::unique_ptr<PKCS8_PRIV_KEY_INFO, Releaser<PKCS8_PRIV_KEY_INFO_free>>;
using X509Ptr = std::unique_ptr<X509, Releaser<X509_free>>;
using X509NamePtr = std::unique_ptr<X509_NAME, Releaser<X509_NAME_free>>;
using X509ReqPtr = std::unique_ptr<X509_REQ, Releaser<X509_REQ_free>>;

// What OpenSSL made. Throws as Require does when it made nothing.
template <typename Pointer>
Pointer Made(Pointer pointer, const char* what) {
    Require(pointer != nullptr, what);
    return pointer;
}

// What OpenSSL allocates for its caller.
struct AllocationReleaser {
    void operator()(void* block) const { OPENSSL_free(block); }
};
template <typename T>
using AllocatedPtr = std::unique_ptr<T, AllocationReleaser>;

}  // namespace softkey

#endif

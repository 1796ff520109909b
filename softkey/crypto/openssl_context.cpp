#include "softkey/crypto/openssl_context.h"

#include <openssl/crypto.h>
#include <openssl/decoder.h>
#include <openssl/encoder.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/kdf.h>
#include <openssl/rand.h>

#include <algorithm>
#include <atomic>
#include <initializer_list>
#include <iterator>

namespace softkey {
namespace {

std::atomic<bool> suspected{false};
// One that is left is kept: what a call opened before may still use it.
std::atomic<OSSL_LIB_CTX*> own{nullptr};

template <auto fetch, auto release>
bool Has(OSSL_LIB_CTX* context, std::initializer_list<const char*> names,
         const char* properties = nullptr) {
    for (const char* const name : names) {
        auto* const method = fetch(context, name, properties);
        if (method == nullptr) return false;
        release(method);
    }
    return true;
}

// The generators of random numbers are lost like a method: both stand on one.
bool Draws(OSSL_LIB_CTX* context) {
    unsigned char drawn{};
    return RAND_priv_bytes_ex(context, &drawn, sizeof drawn, 0) == 1;
}

// All that the calls have OpenSSL do.
bool IsWhole(OSSL_LIB_CTX* context) {
    return Draws(context) && Has<EVP_MD_fetch, EVP_MD_free>(context, {"SHA1", "SHA2-256", "SM3"}) &&
           Has<EVP_CIPHER_fetch, EVP_CIPHER_free>(
               context, {"AES-256-CTR", "AES-256-ECB", "AES-256-GCM", "SM4-ECB"}) &&
           Has<EVP_MAC_fetch, EVP_MAC_free>(context, {"HMAC"}) &&
           Has<EVP_KDF_fetch, EVP_KDF_free>(context, {"SCRYPT", "PBKDF2", "X963KDF"}) &&
           Has<EVP_RAND_fetch, EVP_RAND_free>(context, {"CTR-DRBG", "SEED-SRC"}) &&
           Has<EVP_KEYMGMT_fetch, EVP_KEYMGMT_free>(context, {"SM2", "RSA"}) &&
           Has<EVP_SIGNATURE_fetch, EVP_SIGNATURE_free>(context, {"SM2", "RSA"}) &&
           Has<EVP_ASYM_CIPHER_fetch, EVP_ASYM_CIPHER_free>(context, {"SM2", "RSA"}) &&
           Has<OSSL_DECODER_fetch, OSSL_DECODER_free>(context, {"SM2", "RSA"},
                                                      "input=der,structure=SubjectPublicKeyInfo") &&
           Has<OSSL_ENCODER_fetch, OSSL_ENCODER_free>(context, {"SM2", "RSA"},
                                                      "output=der,structure=SubjectPublicKeyInfo");
}

void LeaveWhatIsNotWhole() {
    // Twice: to look needs memory too, and one look that lacks it shows nothing.
    if (!suspected.exchange(false) || IsWhole(own) || IsWhole(own)) return;
    OSSL_LIB_CTX* const fresh = OSSL_LIB_CTX_new();
    if (fresh != nullptr && IsWhole(fresh)) {
        own = fresh;
    } else {  // memory is still lacking: the next call sees again
        OSSL_LIB_CTX_free(fresh);
        suspected = true;
    }
    ERR_clear_error();
}

}  // namespace

Code SuspectOpenssl(Code code) noexcept {
    constexpr Code kOfOpenssl[] = {kNoMemory,          kCryptoFailed,     kCertificateMalformed,
                                   kEnvelopeMalformed, kEnvelopeMismatch, kCipherMalformed,
                                   kStateDamaged};
    if (std::find(std::begin(kOfOpenssl), std::end(kOfOpenssl), code) == std::end(kOfOpenssl)) {
        return code;
    }
    const bool whole = IsWhole(own);
    ERR_clear_error();
    if (whole) return code;
    suspected = true;
    return kNoMemory;
}

const OSSL_LIB_CTX* OpensslInUse() noexcept {
    return own;
}

WholeOpenssl::WholeOpenssl() noexcept {
    LeaveWhatIsNotWhole();
    OSSL_LIB_CTX* const context = own;
    if (context != nullptr) before_ = OSSL_LIB_CTX_set0_default(context);
}

WholeOpenssl::~WholeOpenssl() {
    if (before_ != nullptr) OSSL_LIB_CTX_set0_default(before_);
}

}  // namespace softkey

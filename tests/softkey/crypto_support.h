// What the tests of the software key's cryptography share, all within one process.
#ifndef TESTS_SOFTKEY_CRYPTO_SUPPORT_H
#define TESTS_SOFTKEY_CRYPTO_SUPPORT_H

#include <gtest/gtest.h>
#include <openssl/pem.h>

#include "sm2_support.h"
#include "softkey/crypto/key_pair.h"
#include "softkey/result.h"

inline softkey::Bytes operator+(softkey::Bytes left, const softkey::Bytes& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

inline softkey::Bytes ToBytes(const softkey::SecretBytes& secret) {
    return {secret.data(), secret.data() + secret.size()};
}

// What the work fails with: code and detail, as "23301 the PIN is wrong"; "done" when it does not.
template <typename Work>
std::string FailureOf(Work work) {
    try {
        work();
        return "done";
    } catch (const softkey::Failure& failure) {
        return std::to_string(failure.code()) + " " + failure.detail();
    }
}
template <typename Work>
int CodeOf(Work work) {
    const std::string failure = FailureOf(work);
    return failure == "done" ? softkey::kOk : std::stoi(failure);
}

// Pairs that need not be fresh for each test.
inline EVP_PKEY* Sm2Pair() {
    static const auto* const pair =
        new softkey::PKeyPtr(softkey::GeneratePair(softkey::Algorithm::kSm2));
    return pair->get();
}
inline EVP_PKEY* RsaPair() {
    static const auto* const pair =
        new softkey::PKeyPtr(softkey::GeneratePair(softkey::Algorithm::kRsa));
    return pair->get();
}
inline softkey::PKeyPtr PublicHalfOf(const EVP_PKEY* pair) {
    return softkey::ParsePublicKey(softkey::PublicKeyOf(pair));
}

// A text sealed to the public half, as anyone does it.
inline softkey::Bytes EncryptedTo(EVP_PKEY* pair, const softkey::Bytes& text) {
    const softkey::PKeyCtxPtr ctx(EVP_PKEY_CTX_new_from_pkey(nullptr, pair, nullptr));
    softkey::Bytes cipher(600);
    std::size_t length = cipher.size();
    EXPECT_EQ(EVP_PKEY_encrypt_init(ctx.get()), 1);
    EXPECT_EQ(EVP_PKEY_encrypt(ctx.get(), cipher.data(), &length, text.data(), text.size()), 1);
    cipher.resize(length);
    return cipher;
}

// Encrypted when there is a passphrase.
inline std::string PemOf(EVP_PKEY* pair, const char* passphrase = nullptr) {
    const softkey::BioPtr bio(BIO_new(BIO_s_mem()));
    const EVP_CIPHER* const cipher = passphrase != nullptr ? EVP_aes_256_cbc() : nullptr;
    PEM_write_bio_PrivateKey(bio.get(), pair, cipher, nullptr, 0, nullptr,
                             const_cast<char*>(passphrase));
    char* text = nullptr;
    const long size = BIO_get_mem_data(bio.get(), &text);
    return {text, static_cast<std::size_t>(size)};
}

#endif

// SM2 pairs, signatures and cipher texts as the standards' examples and other implementations write
// them: plain numbers.
#ifndef TESTS_SOFTKEY_SM2_SUPPORT_H
#define TESTS_SOFTKEY_SM2_SUPPORT_H

#include <openssl/core_names.h>
#include <openssl/param_build.h>

#include <stdexcept>
#include <string>

#include "der_tree.h"
#include "softkey/crypto/key_pair.h"

inline softkey::Bytes FromHexText(const std::string& text) {
    softkey::Bytes bytes;
    for (std::size_t i = 0; i + 1 < text.size(); i += 2) {
        bytes.push_back(static_cast<std::uint8_t>(std::stoul(text.substr(i, 2), nullptr, 16)));
    }
    return bytes;
}
inline std::string ToHex(const softkey::Bytes& bytes) {
    std::string text;
    for (const std::uint8_t byte : bytes) {
        text += "0123456789abcdef"[byte >> 4];
        text += "0123456789abcdef"[byte & 15];
    }
    return text;
}
inline softkey::Bytes Part(const softkey::Bytes& bytes, std::size_t from, std::size_t size) {
    const auto begin = bytes.begin() + static_cast<std::ptrdiff_t>(from);
    return softkey::Bytes(begin, begin + static_cast<std::ptrdiff_t>(size));
}

// A pair of its private number and its point, 04 || x || y.
inline softkey::PKeyPtr PairOf(const softkey::Bytes& number, const softkey::Bytes& point) {
    using softkey::Releaser;
    const std::unique_ptr<OSSL_PARAM_BLD, Releaser<OSSL_PARAM_BLD_free>> builder(
        OSSL_PARAM_BLD_new());
    const softkey::BignumPtr value(
        BN_bin2bn(number.data(), static_cast<int>(number.size()), nullptr));
    OSSL_PARAM_BLD_push_utf8_string(builder.get(), OSSL_PKEY_PARAM_GROUP_NAME, "SM2", 0);
    OSSL_PARAM_BLD_push_octet_string(builder.get(), OSSL_PKEY_PARAM_PUB_KEY, point.data(),
                                     point.size());
    OSSL_PARAM_BLD_push_BN(builder.get(), OSSL_PKEY_PARAM_PRIV_KEY, value.get());
    const std::unique_ptr<OSSL_PARAM, Releaser<OSSL_PARAM_free>> params(
        OSSL_PARAM_BLD_to_param(builder.get()));
    const softkey::PKeyCtxPtr ctx(EVP_PKEY_CTX_new_from_name(nullptr, "SM2", nullptr));
    EVP_PKEY* pair = nullptr;
    if (EVP_PKEY_fromdata_init(ctx.get()) != 1 ||
        EVP_PKEY_fromdata(ctx.get(), &pair, EVP_PKEY_KEYPAIR, params.get()) != 1) {
        throw std::runtime_error("OpenSSL takes no such pair");
    }
    return softkey::PKeyPtr(pair);
}

inline softkey::Bytes NumberOf(const EVP_PKEY* pair) {
    BIGNUM* number = nullptr;
    EVP_PKEY_get_bn_param(pair, OSSL_PKEY_PARAM_PRIV_KEY, &number);
    const softkey::BignumPtr owner(number);
    softkey::Bytes bytes(32);
    BN_bn2binpad(number, bytes.data(), 32);
    return bytes;
}
inline softkey::Bytes PointOf(const EVP_PKEY* pair) {
    softkey::Bytes point(65);
    EVP_PKEY_get_octet_string_param(pair, OSSL_PKEY_PARAM_PUB_KEY, point.data(), 65, nullptr);
    return point;
}

// The elements of a SEQUENCE one behind the other, numbers with 32 bytes.
inline softkey::Bytes RawOf(const DerNode& sequence) {
    softkey::Bytes raw;
    for (const DerNode& child : sequence.children) {
        softkey::Bytes part = child.content;
        if (child.tag == V_ASN1_INTEGER) {
            if (part.size() > 32) part.erase(part.begin());
            part.insert(part.begin(), 32 - part.size(), 0);
        }
        raw.insert(raw.end(), part.begin(), part.end());
    }
    return raw;
}
inline softkey::Bytes SignatureOf(const softkey::Bytes& raw) {
    return DerSequence({DerInteger(Part(raw, 0, 32)), DerInteger(Part(raw, 32, 32))});
}
inline softkey::Bytes CipherOf(const softkey::Bytes& raw) {
    return DerSequence({DerInteger(Part(raw, 0, 32)), DerInteger(Part(raw, 32, 32)),
                        DerOctets(Part(raw, 64, 32)), DerOctets(Part(raw, 96, raw.size() - 96))});
}

#endif

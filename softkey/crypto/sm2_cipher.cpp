#include "softkey/crypto/sm2_cipher.h"

#include <openssl/asn1t.h>
#include <openssl/crypto.h>
#include <openssl/objects.h>

#include "softkey/crypto/der.h"
#include "softkey/crypto/openssl_errors.h"
#include "softkey/result.h"

namespace softkey {

// OpenSSL's macros for ASN.1 types name them by plain identifiers.
struct CipherAsn1 {
    ASN1_INTEGER* x;
    ASN1_INTEGER* y;
    ASN1_OCTET_STRING* hash;
    ASN1_OCTET_STRING* text;
};

// clang-format off
ASN1_SEQUENCE(CipherAsn1) = {
    ASN1_SIMPLE(CipherAsn1, x, ASN1_INTEGER),
    ASN1_SIMPLE(CipherAsn1, y, ASN1_INTEGER),
    ASN1_SIMPLE(CipherAsn1, hash, ASN1_OCTET_STRING),
    ASN1_SIMPLE(CipherAsn1, text, ASN1_OCTET_STRING)
} static_ASN1_SEQUENCE_END(CipherAsn1)
IMPLEMENT_STATIC_ASN1_ALLOC_FUNCTIONS(CipherAsn1)

namespace {
    // clang-format on

    constexpr std::size_t kHashSize = 32;

    using AsnPtr = std::unique_ptr<CipherAsn1, Releaser<CipherAsn1_free>>;

    constexpr const char* kWhat = N_("an SM2 cipher text");

    Bytes BytesOf(const ASN1_STRING* string) {
        const unsigned char* const data = ASN1_STRING_get0_data(string);
        return {data, data + ASN1_STRING_length(string)};
    }

    // False when the coordinate does not fit.
    bool PutCoordinate(const ASN1_INTEGER* coordinate, std::uint8_t* place) {
        const auto number = Made(BignumPtr(ASN1_INTEGER_to_BN(coordinate, nullptr)), kWhat);
        return !BN_is_negative(number.get()) && BN_bn2binpad(number.get(), place, kSm2NumberSize) ==
                                                    static_cast<int>(kSm2NumberSize);
    }

    std::optional<Sm2Cipher> FromDer(const Bytes& bytes) {
        const unsigned char* at = bytes.data();
        const AsnPtr parts(reinterpret_cast<CipherAsn1*>(ASN1_item_d2i(
            nullptr, &at, static_cast<long>(bytes.size()), ASN1_ITEM_rptr(CipherAsn1))));
        if (!parts || !IsDer(bytes)) return std::nullopt;
        Sm2Cipher cipher{bytes, Bytes(kSm2PointSize, kUncompressed), BytesOf(parts->hash),
                         BytesOf(parts->text)};
        if (!PutCoordinate(parts->x, cipher.point.data() + 1) ||
            !PutCoordinate(parts->y, cipher.point.data() + 1 + kSm2NumberSize)) {
            return std::nullopt;
        }
        return cipher;
    }

    void SetCoordinate(ASN1_INTEGER * coordinate, const std::uint8_t* bytes) {
        const BignumPtr number(BN_bin2bn(bytes, kSm2NumberSize, nullptr));
        Require(number && BN_to_ASN1_INTEGER(number.get(), coordinate) != nullptr, kWhat);
    }

    Bytes ToDer(const Sm2Cipher& cipher) {
        const auto parts = Made(AsnPtr(CipherAsn1_new()), kWhat);
        SetCoordinate(parts->x, cipher.point.data() + 1);
        SetCoordinate(parts->y, cipher.point.data() + 1 + kSm2NumberSize);
        Require(ASN1_OCTET_STRING_set(parts->hash, cipher.hash.data(),
                                      static_cast<int>(cipher.hash.size())) == 1 &&
                    ASN1_OCTET_STRING_set(parts->text, cipher.text.data(),
                                          static_cast<int>(cipher.text.size())) == 1,
                kWhat);
        return Encoded(
            [&parts](auto der) {
                return ASN1_item_i2d(reinterpret_cast<const ASN1_VALUE*>(parts.get()), der,
                                     ASN1_ITEM_rptr(CipherAsn1));
            },
            kWhat);
    }

    std::optional<Sm2Cipher> FromParts(const Bytes& bytes) {
        if (bytes.size() < kSm2PointSize + kHashSize) return std::nullopt;
        const auto hash = bytes.begin() + kSm2PointSize;
        const auto text = hash + kHashSize;
        Sm2Cipher cipher{{}, {bytes.begin(), hash}, {hash, text}, {text, bytes.end()}};
        cipher.der = ToDer(cipher);
        return cipher;
    }

    // Null when the bytes are no point: both coordinates lie below the prime, and it is on the
    // curve.
    PointPtr PointFrom(const EC_GROUP* group, const Bytes& bytes) {
        auto point = Made(PointPtr(EC_POINT_new(group)), kWhat);
        if (EC_POINT_oct2point(group, point.get(), bytes.data(), bytes.size(), nullptr) != 1) {
            point.reset();
        }
        return point;
    }

}  // namespace

GroupPtr Sm2Group() {
    return Made(GroupPtr(EC_GROUP_new_by_curve_name(NID_sm2)), "the SM2 curve");
}

bool IsSm2PrivateNumber(const BIGNUM* number) {
    const GroupPtr group = Sm2Group();
    const BignumPtr least(BN_dup(EC_GROUP_get0_order(group.get())));
    Require(least && BN_sub_word(least.get(), 1) == 1, "the SM2 curve");
    return !BN_is_negative(number) && !BN_is_zero(number) && BN_cmp(number, least.get()) < 0;
}

BignumPtr ToSm2Number(const std::uint8_t* bytes) {
    BignumPtr number(BN_secure_new());
    Require(number && BN_bin2bn(bytes, kSm2NumberSize, number.get()) != nullptr,
            "a private number");
    return number;
}

std::optional<Sm2Cipher> ReadSm2Cipher(const Bytes& bytes) {
    if (bytes.empty()) return std::nullopt;
    std::optional<Sm2Cipher> cipher =
        bytes.front() == kUncompressed ? FromParts(bytes) : FromDer(bytes);
    if (cipher && (cipher->hash.size() != kHashSize ||
                   PointFrom(Sm2Group().get(), cipher->point) == nullptr)) {
        cipher.reset();
    }
    ForgetErrors();
    return cipher;
}

bool IsCipherOfNothing(const Sm2Cipher& cipher, const SecretBytes& number) {
    const GroupPtr group = Sm2Group();
    const PointPtr point = PointFrom(group.get(), cipher.point);
    const BignumPtr scalar = ToSm2Number(number.data());
    SecretBytes common(kSm2PointSize);
    SecretBytes hash(kHashSize);
    Require(point &&
                EC_POINT_mul(group.get(), point.get(), nullptr, point.get(), scalar.get(),
                             nullptr) == 1 &&
                EC_POINT_point2oct(group.get(), point.get(), POINT_CONVERSION_UNCOMPRESSED,
                                   common.data(), common.size(), nullptr) == common.size() &&
                EVP_Digest(common.data() + 1, common.size() - 1, hash.data(), nullptr, EVP_sm3(),
                           nullptr) == 1,
            kWhat);
    return CRYPTO_memcmp(hash.data(), cipher.hash.data(), kHashSize) == 0;
}

}  // namespace softkey

#ifndef TESTS_SOFTKEY_EXAMPLE_PAIR_H
#define TESTS_SOFTKEY_EXAMPLE_PAIR_H

// The key pair of the published SM2 examples (recommended curve), and cipher texts for it.
#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <string>

#include "sm2_support.h"
#include "softkey/crypto/decryption.h"
#include "softkey/crypto/der.h"
#include "softkey/crypto/sm2_cipher.h"

namespace softkey {

inline Bytes Hex(const std::string& text) {
    return FromHexText(text);
}
inline Bytes operator+(Bytes left, const Bytes& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

inline const Bytes kPrivate =
    Hex("3945208F7B2144B13F36E38AC6D39F95889393692860B51A42FB81EF4DF7C5B8");
inline const Bytes kPublicX =
    Hex("09F9DF311E5421A150DD7D161E4BC5C672179FAD1833FC076BB08FF356F35020");
inline const Bytes kPublicY =
    Hex("CCEA490CE26775A52DC6EA718CC1AA600AED05FBF35E084A6632F6072DA9AD13");
inline const Bytes kRandom =
    Hex("59276E27D506861A16680F3AD9C02DCCEF3CC1FA3CDBE4CE6D54B80DEAC1BC21");
inline const Bytes kOrder = Hex("FFFFFFFEFFFFFFFFFFFFFFFFFFFFFFFF7203DF6B21C6052B53BBF40939D54123");
inline const Bytes kPrime = Hex("FFFFFFFEFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFF00000000FFFFFFFFFFFFFFFF");

inline PKeyPtr ExamplePair() {
    return PairOf(kPrivate, Bytes{4} + kPublicX + kPublicY);
}

inline const Bytes kCipherX =
    Hex("04EBFC718E8D1798620432268E77FEB6415E2EDE0E073C0F4F640ECD2E149A73");
inline const Bytes kCipherY =
    Hex("E858F9D81E5430A57B36DAAB8F950A3C64E6EE6A63094D99283AFF767E124DF0");
inline const Bytes kCipherHash =
    Hex("59983C18F809E262923C53AEC295D30383B54E39D609D160AFCB1908D0BD8766");
inline const Bytes kCipherText = Hex("21886CA989CA9C7D58087307CA93092D651EFA");

inline Bytes CipherOf(const Bytes& x, const Bytes& y, const Bytes& hash, const Bytes& text) {
    return DerSequence({DerInteger(x), DerInteger(y), DerOctets(hash), DerOctets(text)});
}
inline const Bytes kCipher = CipherOf(kCipherX, kCipherY, kCipherHash, kCipherText);

// The cipher text of a text of at most 32 bytes for the example pair, with this point of the curve:
// who knows the private number needs not know how the point came about.
inline Bytes SealedWith(const Bytes& x, const Bytes& y, const std::string& text) {
    const GroupPtr group = Sm2Group();
    const PointPtr point(EC_POINT_new(group.get()));
    const BignumPtr bigX(BN_bin2bn(x.data(), 32, nullptr));
    const BignumPtr bigY(BN_bin2bn(y.data(), 32, nullptr));
    const BignumPtr number(BN_bin2bn(kPrivate.data(), 32, nullptr));
    EXPECT_EQ(
        EC_POINT_set_affine_coordinates(group.get(), point.get(), bigX.get(), bigY.get(), nullptr),
        1);
    Bytes common(65);
    EC_POINT_mul(group.get(), point.get(), nullptr, point.get(), number.get(), nullptr);
    EC_POINT_point2oct(group.get(), point.get(), POINT_CONVERSION_UNCOMPRESSED, common.data(), 65,
                       nullptr);
    const auto sm3 = [](const Bytes& bytes) {
        Bytes digest(32);
        EVP_Digest(bytes.data(), bytes.size(), digest.data(), nullptr, EVP_sm3(), nullptr);
        return digest;
    };
    common.erase(common.begin());
    Bytes sealed = sm3(common + Bytes{0, 0, 0, 1});
    sealed.resize(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        sealed[i] = static_cast<std::uint8_t>(sealed[i] ^ static_cast<std::uint8_t>(text[i]));
    }
    const Bytes plain(text.begin(), text.end());
    const Bytes x2(common.begin(), common.begin() + 32);
    const Bytes y2(common.begin() + 32, common.end());
    return CipherOf(x, y, sm3(x2 + plain + y2), sealed);
}

inline std::string Opened(const Bytes& cipher) {
    const auto plain = Decrypt(ExamplePair().get(), cipher);
    return plain ? std::string(plain->data(), plain->data() + plain->size()) : "refused";
}

inline Bytes Parts(const Bytes& cipher) {
    return Bytes{4} + RawOf(DerNode::Parse(cipher));
}

}  // namespace softkey

#endif

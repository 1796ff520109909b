// The worked examples of the published SM2, SM3 and SM4 standards (recommended curve, recommended
// identity), through the software key's own code.
// The random numbers of a signature can be fixed in no other way.
#define OPENSSL_SUPPRESS_DEPRECATED
#include <openssl/evp.h>
#include <openssl/rand.h>

#include "example_pair.h"
#include "softkey/crypto/envelope.h"
#include "softkey/crypto/key_pair.h"
#include "softkey/crypto/request.h"
#include "softkey/crypto/signature.h"

using namespace softkey;

namespace {

// The examples fix the number that is random elsewhere: while this lives, it is what OpenSSL draws.
class FixedRandom {
public:
    FixedRandom() : saved_(RAND_get_rand_method()) { RAND_set_rand_method(&method_); }
    ~FixedRandom() { RAND_set_rand_method(saved_); }

private:
    static int Draw(unsigned char* bytes, int size) {
        for (int i = 0; i < size; ++i) bytes[i] = kRandom[static_cast<std::size_t>(i) % 32];
        return 1;
    }
    static inline const RAND_METHOD method_{nullptr, Draw, nullptr, nullptr, Draw, nullptr};
    const RAND_METHOD* saved_;
};

const Bytes kSignature = DerSequence(
    {DerInteger(Hex("F5A03B0648D2C4630EEAC513E1BB81A15944DA3827D5B74143AC7EACEEE720B3")),
     DerInteger(Hex("B1B6AA29DF212FD8763182BC0D421CA1BB9038FD1F7F42D4840B69C485BBC1AA"))});

TEST(StandardExample, of_a_signature_with_the_recommended_identity) {
    const FixedRandom fixed;
    EXPECT_EQ(SignText(ExamplePair().get(), 3, "message digest"), kSignature);
}

TEST(StandardExample, of_a_signature_over_the_digest) {
    const FixedRandom fixed;
    const Bytes e = Hex("F0B43E94BA45ACCAACE692ED534382EB17E6AB5A19CE7B31F4486FDFC0D28640");
    EXPECT_EQ(SignDigest(ExamplePair().get(), 3, e), kSignature);
}

TEST(Taken, a_cipher_text_as_its_parts_one_behind_the_other) {
    EXPECT_EQ(Opened(Parts(kCipher)), "encryption standard");
    EXPECT_EQ(Opened(RawOf(DerNode::Parse(kCipher))), "refused") << "the point without its 04";
}

TEST(Taken, the_cipher_text_of_the_empty_text) {
    const Bytes cipher = SealedWith(kPublicX, kPublicY, "");
    EXPECT_EQ(Opened(cipher), "");
    EXPECT_EQ(Opened(Parts(cipher)), "");
    Bytes other = cipher;
    other[other.size() - 3] ^= 1;  // the hash
    EXPECT_EQ(Opened(other), "refused");
    EXPECT_EQ(Opened(SealedWith(kPublicX, kPublicY, "x")), "x");
}

TEST(Taken, an_envelope_whose_SM4_key_is_sealed_in_parts) {
    const PKeyPtr temporary = GeneratePair(Algorithm::kSm2);
    DerNode envelope = DerNode::Parse(SealEnvelope(temporary.get(), ExamplePair().get()));
    const Bytes sealed = envelope.children.at(1).Encode();
    envelope.children.at(1) = DerNode{V_ASN1_OCTET_STRING, Parts(sealed)};
    EXPECT_NE(OpenEnvelope(envelope.Encode(), temporary.get()), nullptr);
    envelope.children.at(1) = DerNode{V_ASN1_OCTET_STRING, sealed};
    EXPECT_THROW(OpenEnvelope(envelope.Encode(), temporary.get()), Failure);
}

TEST(StandardExample, of_a_decryption_with_its_key_derivation) {
    const auto plain = Decrypt(ExamplePair().get(), kCipher);
    ASSERT_TRUE(plain);
    EXPECT_EQ(std::string(plain->data(), plain->data() + plain->size()), "encryption standard");
}

TEST(StandardExample, of_a_block_under_SM4) {
    // The example's key seals a private number made of the example's block, twice.
    const Bytes key = Hex("0123456789ABCDEFFEDCBA9876543210");
    const Bytes sealed = Hex("681EDF34D206965E86B3E94F536E4246");
    const PKeyPtr pair = GeneratePair(Algorithm::kSm2);
    DerNode envelope = DerNode::Parse(SealEnvelope(ExamplePair().get(), ExamplePair().get()));
    const PKeyCtxPtr ctx(EVP_PKEY_CTX_new_from_pkey(nullptr, ExamplePair().get(), nullptr));
    Bytes cipher(200);
    std::size_t length = cipher.size();
    ASSERT_EQ(EVP_PKEY_encrypt_init(ctx.get()), 1);
    ASSERT_EQ(EVP_PKEY_encrypt(ctx.get(), cipher.data(), &length, key.data(), key.size()), 1);
    cipher.resize(length);
    envelope.children.at(1) = DerNode::Parse(cipher);
    envelope.children.at(3).content = Bytes{0} + sealed + sealed;
    // It opens, and the number is the expected one: its point is not that of the example pair.
    try {
        OpenEnvelope(envelope.Encode(), ExamplePair().get());
        FAIL() << "the pair of another number opened";
    } catch (const Failure& failure) {
        EXPECT_EQ(failure.detail(), "its private key does not belong to its public key");
    }
    const EC_GROUP* group = EC_GROUP_new_by_curve_name(NID_sm2);
    const Bytes number = key + key;
    BignumPtr value(BN_bin2bn(number.data(), 32, nullptr));
    EC_POINT* point = EC_POINT_new(group);
    Bytes octets(65);
    EC_POINT_mul(group, point, value.get(), nullptr, nullptr, nullptr);
    EC_POINT_point2oct(group, point, POINT_CONVERSION_UNCOMPRESSED, octets.data(), 65, nullptr);
    envelope.children.at(2).content = Bytes{0} + octets;
    EXPECT_NE(OpenEnvelope(envelope.Encode(), ExamplePair().get()), nullptr);
    EC_POINT_free(point);
    EC_GROUP_free(const_cast<EC_GROUP*>(group));
}

TEST(StandardExample, of_a_digest_by_the_SM3_that_the_key_uses) {
    const auto digest = [](const std::string& text) {
        Bytes bytes(32);
        EVP_Digest(text.data(), text.size(), bytes.data(), nullptr,
                   EVP_get_digestbyname(DigestName(Algorithm::kSm2, 0)), nullptr);
        return bytes;
    };
    EXPECT_EQ(digest("abc"),
              Hex("66C7F0F462EEEDD9D1F2D46BDC10E4E24167C4875CF2F7A2297DA02B8F4BA8E0"));
    std::string sixteen;
    for (int i = 0; i < 16; ++i) sixteen += "abcd";
    EXPECT_EQ(digest(sixteen),
              Hex("DEBE9FF92275B8A138604889C18E5A4D6FDB70E5387E5765293DCBA39C0C5732"));
}

}  // namespace

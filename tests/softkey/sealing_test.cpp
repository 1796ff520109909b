// Envelopes, field by field, within this process.
#include <openssl/err.h>

#include <array>

#include "crypto_support.h"
#include "softkey/crypto/base64.h"
#include "softkey/crypto/decryption.h"
#include "softkey/crypto/envelope.h"
#include "softkey/crypto/request.h"
#include "softkey/crypto/sm2_cipher.h"

using namespace softkey;

namespace {

// An envelope of the pair in which one field is another one's.
class Envelopes : public testing::Test {
protected:
    const PKeyPtr pair_ = GeneratePair(Algorithm::kSm2);
    DerNode envelope_ = DerNode::Parse(SealEnvelope(Sm2Pair(), pair_.get()));

    std::string Opening() const {
        return FailureOf([this] {
            const PKeyPtr opened = OpenEnvelope(envelope_.Encode(), Sm2Pair());
            EXPECT_EQ(NumberOf(opened.get()), NumberOf(pair_.get()));
            EXPECT_EQ(PointOf(opened.get()), PointOf(pair_.get()));
        });
    }
    Bytes Key() const {
        return ToBytes(Decrypt(Sm2Pair(), envelope_.children.at(1).Encode()).value());
    }
    // SM4 of OpenSSL's own, whole blocks.
    Bytes Sealed(const Bytes& plain) const {
        const CipherCtxPtr ctx(EVP_CIPHER_CTX_new());
        Bytes out(plain.size() + 16);
        int size = 0;
        EVP_EncryptInit_ex(ctx.get(), EVP_sm4_ecb(), nullptr, Key().data(), nullptr);
        EVP_CIPHER_CTX_set_padding(ctx.get(), 0);
        EVP_EncryptUpdate(ctx.get(), out.data(), &size, plain.data(),
                          static_cast<int>(plain.size()));
        out.resize(plain.size());
        return out;
    }
    void SetNumber(const Bytes& plain) {
        envelope_.children.at(3).content = Bytes{0} + Sealed(plain);
    }
};

const std::string kMalformed = std::to_string(kEnvelopeMalformed) + " ";
const std::string kMismatch = std::to_string(kEnvelopeMismatch) + " ";

TEST_F(Envelopes, open_with_the_pair_they_are_sealed_to) {
    EXPECT_EQ(Opening(), "done");
    const Bytes der = envelope_.Encode();
    EXPECT_EQ(FailureOf([&] { OpenEnvelope(der, pair_.get()); }),
              kMismatch + "sealed to another key");
}

TEST_F(Envelopes, hold_a_number_of_32_bytes_or_of_64_that_begins_with_zeros) {
    const Bytes number = NumberOf(pair_.get());
    SetNumber(number);
    EXPECT_EQ(Opening(), "done");
    SetNumber(Bytes(32) + number);
    EXPECT_EQ(Opening(), "done");
    for (const std::size_t at : {0U, 31U}) {
        Bytes lead(32);
        lead[at] = 1;
        SetNumber(lead + number);
        EXPECT_EQ(Opening(), kMismatch + "its private number is too long") << at;
    }
    for (const std::size_t size : {0U, 16U, 34U, 48U, 80U, 96U, 128U}) {
        envelope_.children.at(3).content = Bytes(1 + size, 0);
        EXPECT_EQ(Opening(), kMalformed + "its private number has neither 32 nor 64 bytes") << size;
    }
    SetNumber(Bytes(32));
    EXPECT_EQ(Opening(), kMismatch + "its private key does not belong to its public key");
}

TEST_F(Envelopes, hold_an_uncompressed_point) {
    const Bytes point = PointOf(pair_.get());
    for (const Bytes& other : {Bytes(point.begin(), point.end() - 1), point + Bytes{0},
                               Bytes{6} + Bytes(point.begin() + 1, point.end()), Bytes{4}}) {
        envelope_.children.at(2).content = Bytes{0} + other;
        EXPECT_EQ(Opening(), kMalformed + "its public key is no point") << ToHex(other);
    }
    envelope_.children.at(2).content = Bytes{0} + PointOf(Sm2Pair());
    EXPECT_EQ(Opening(), kMismatch + "its private key does not belong to its public key");
}

TEST_F(Envelopes, hold_a_key_of_16_bytes) {
    for (const std::size_t size : {15U, 17U, 32U}) {
        Bytes key = Key();
        key.resize(size);
        DerNode changed = envelope_;
        changed.children.at(1) = DerNode::Parse(EncryptedTo(Sm2Pair(), key));
        EXPECT_EQ(FailureOf([&] { OpenEnvelope(changed.Encode(), Sm2Pair()); }),
                  kMismatch + "sealed to another key")
            << size;
    }
    envelope_.children.at(1) = DerNode{V_ASN1_OCTET_STRING, {}};
    EXPECT_EQ(Opening(), kMalformed + "its SM4 key is no SM2 cipher text");
    envelope_.children.at(1) = DerNode{V_ASN1_INTEGER, {4}};
    EXPECT_EQ(Opening(), kMalformed + "its SM4 key is no SM2 cipher text");
}

TEST_F(Envelopes, name_sm4_with_or_without_its_mode) {
    const Bytes sm4 = FromHexText("2A811CCF550168");
    const Bytes null{V_ASN1_NULL, 0};
    const std::vector<std::pair<Bytes, std::string>> cases = {
        {DerOf(V_ASN1_OBJECT, sm4), "done"},
        {DerOf(V_ASN1_OBJECT, sm4 + Bytes{1}), "done"},
        {DerOf(V_ASN1_OBJECT, sm4 + Bytes{1}) + null, "done"},
        {DerOf(V_ASN1_OBJECT, sm4 + Bytes{1}) + DerOctets(Bytes(16, 7)),
         kMalformed + "SM4 in ECB mode takes no parameters"},
        {DerOf(V_ASN1_OBJECT, sm4 + Bytes{2}), kMalformed + "its algorithm is not SM4"},
        {DerOf(V_ASN1_OBJECT, {sm4.begin(), sm4.end() - 1}),
         kMalformed + "its algorithm is not SM4"}};
    for (const auto& [algorithm, outcome] : cases) {
        envelope_.children.at(0) = DerNode::Parse(DerSequence({algorithm}));
        EXPECT_EQ(Opening(), outcome) << ToHex(algorithm);
    }
}

TEST_F(Envelopes, are_written_in_one_form) {
    const Bytes der = envelope_.Encode();
    EXPECT_EQ(envelope_.children.at(0).Encode(), FromHexText("300A06082A811CCF55016801"));
    EXPECT_EQ(envelope_.children.at(2).content, Bytes{0} + PointOf(pair_.get()));
    EXPECT_EQ(envelope_.children.at(3).content, Bytes{0} + Sealed(NumberOf(pair_.get())));
    const DerNode other = DerNode::Parse(SealEnvelope(Sm2Pair(), pair_.get()));
    EXPECT_NE(ToBytes(Decrypt(Sm2Pair(), other.children.at(1).Encode()).value()), Key())
        << "each has a key of its own";
    EXPECT_EQ(CodeOf([&] { OpenEnvelope(der + Bytes{0}, Sm2Pair()); }), kEnvelopeMalformed);
}

TEST_F(Envelopes, have_no_unused_bits_whatever_their_number_ends_in) {
    for (int i = 0; i < 12; ++i) {
        const Bytes der = SealEnvelope(Sm2Pair(), pair_.get());
        EXPECT_EQ(der[der.size() - 34], 33);
        EXPECT_EQ(der[der.size() - 33], 0);
    }
}

TEST_F(Envelopes, are_sealed_to_a_request_or_a_public_key) {
    const std::string pair = PemOf(pair_.get());
    const std::string request = MakeRequest(Sm2Pair(), 0, "KS7");
    const std::string other = MakeRequest(pair_.get(), 0, "KS7");
    const auto armoured = [](const std::string& text) {
        return "-----BEGIN X-----" + text + "-----END X-----";
    };
    const std::string key = armoured(ToBase64(PublicKeyOf(Sm2Pair())));
    const std::string garbage = armoured("AAAA");
    for (const std::string& to : {request, armoured(request), key, other + ";" + request,
                                  garbage + armoured(request), garbage + key}) {
        const PKeyPtr opened = OpenEnvelope(*FromBase64(SealEnvelopeText(to, pair)), Sm2Pair());
        EXPECT_EQ(NumberOf(opened.get()), NumberOf(pair_.get())) << to;
        EXPECT_EQ(ERR_peek_error(), 0U) << to;
    }
    const std::string badArgument = std::to_string(kBadArgument) + " ";
    const std::vector<std::array<std::string, 3>> cases = {
        {"nonsense!", pair, "the recipient is neither a certificate request nor a public key"},
        {request + ";", pair, "the recipient is neither a certificate request nor a public key"},
        {garbage, pair, "the recipient is neither a certificate request nor a public key"},
        {request, "nonsense", "the pair to seal is no unencrypted private key in PEM"},
        {request, PemOf(pair_.get(), "secret"),
         "the pair to seal is no unencrypted private key in PEM"},
        {request, PemOf(pair_.get(), "~"), "the pair to seal is no unencrypted private key in PEM"},
        {MakeRequest(RsaPair(), 0, "KS7"), pair, "the recipient is not SM2"},
        {request, PemOf(RsaPair()), "the pair to seal is not SM2"}};
    for (const auto& [to, sealed, words] : cases) {
        EXPECT_EQ(FailureOf([&, &a = to, &b = sealed] { SealEnvelopeText(a, b); }),
                  badArgument + words);
    }
}

TEST_F(Envelopes, are_made_of_no_pair_that_could_not_sign) {
    const BignumPtr number(BN_dup(EC_GROUP_get0_order(Sm2Group().get())));
    BN_sub_word(number.get(), 1);
    Bytes bytes(32);
    BN_bn2binpad(number.get(), bytes.data(), 32);
    const PKeyPtr pair = PairOf(bytes, PointOf(Sm2Pair()));
    EXPECT_EQ(
        FailureOf([&] { SealEnvelope(Sm2Pair(), pair.get()); }),
        std::to_string(kBadArgument) + " the private half of the pair to seal is out of range");
}

}  // namespace

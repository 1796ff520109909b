// The worked examples of the published SM2, SM3 and SM4 standards (recommended curve, recommended
// identity), and what must be refused, through the software key's own code.
// The random numbers of a signature can be fixed in no other way.
#define OPENSSL_SUPPRESS_DEPRECATED
#include <openssl/evp.h>
#include <openssl/rand.h>

#include "sm2_support.h"
#include "softkey/crypto/base64.h"
#include "softkey/crypto/certificate.h"
#include "softkey/crypto/decryption.h"
#include "softkey/crypto/der.h"
#include "softkey/crypto/envelope.h"
#include "softkey/crypto/key_pair.h"
#include "softkey/crypto/request.h"
#include "softkey/crypto/signature.h"
#include "token_fixture.h"

using namespace softkey;

namespace {

Bytes Hex(const std::string& text) {
    return FromHexText(text);
}
Bytes operator+(Bytes left, const Bytes& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

const Bytes kPrivate = Hex("3945208F7B2144B13F36E38AC6D39F95889393692860B51A42FB81EF4DF7C5B8");
const Bytes kPublicX = Hex("09F9DF311E5421A150DD7D161E4BC5C672179FAD1833FC076BB08FF356F35020");
const Bytes kPublicY = Hex("CCEA490CE26775A52DC6EA718CC1AA600AED05FBF35E084A6632F6072DA9AD13");
const Bytes kRandom = Hex("59276E27D506861A16680F3AD9C02DCCEF3CC1FA3CDBE4CE6D54B80DEAC1BC21");
const Bytes kOrder = Hex("FFFFFFFEFFFFFFFFFFFFFFFFFFFFFFFF7203DF6B21C6052B53BBF40939D54123");
const Bytes kPrime = Hex("FFFFFFFEFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFF00000000FFFFFFFFFFFFFFFF");

PKeyPtr ExamplePair() {
    return PairOf(kPrivate, Bytes{4} + kPublicX + kPublicY);
}

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

// ---- The examples -------------------------------------------------------------------------------

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

const Bytes kCipherX = Hex("04EBFC718E8D1798620432268E77FEB6415E2EDE0E073C0F4F640ECD2E149A73");
const Bytes kCipherY = Hex("E858F9D81E5430A57B36DAAB8F950A3C64E6EE6A63094D99283AFF767E124DF0");
const Bytes kCipherHash = Hex("59983C18F809E262923C53AEC295D30383B54E39D609D160AFCB1908D0BD8766");
const Bytes kCipherText = Hex("21886CA989CA9C7D58087307CA93092D651EFA");

Bytes CipherOf(const Bytes& x, const Bytes& y, const Bytes& hash, const Bytes& text) {
    return DerSequence({DerInteger(x), DerInteger(y), DerOctets(hash), DerOctets(text)});
}
const Bytes kCipher = CipherOf(kCipherX, kCipherY, kCipherHash, kCipherText);

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

// ---- What must be refused
// ------------------------------------------------------------------------

using Cases = std::vector<std::pair<std::string, Bytes>>;

// Each element of the tree in turn, changed in each of these ways.
Cases EachElement(const Bytes& der, const std::vector<DerChange>& changes) {
    Cases cases;
    DerNode root = DerNode::Parse(der);
    std::vector<DerNode*> nodes;
    root.Collect(nodes);
    for (std::size_t i = 0; i < nodes.size(); ++i) {
        for (const DerChange change : changes) {
            nodes[i]->change = change;
            const Bytes changed = root.Encode();
            nodes[i]->change = DerChange::kNone;
            if (changed != der) {
                cases.emplace_back("element " + std::to_string(i) + " " + NameOf(change), changed);
            }
        }
    }
    return cases;
}

const std::vector<DerChange> kNotDer = {DerChange::kLengthTooLong, DerChange::kLengthTooShort,
                                        DerChange::kLongForm, DerChange::kIndefinite};
const std::vector<DerChange> kAny = {DerChange::kLengthTooLong, DerChange::kLengthTooShort,
                                     DerChange::kLongForm,      DerChange::kIndefinite,
                                     DerChange::kOtherTag,      DerChange::kRemoved,
                                     DerChange::kDoubled,       DerChange::kEmptied};

// Whole, each passes; cut or with a byte behind it, none does.
template <class Accepts>
void ExpectRefused(const Bytes& good, Cases cases, const Accepts& accepts) {
    ASSERT_TRUE(accepts(good));
    cases.emplace_back("a byte behind it", good + Bytes{0});
    cases.emplace_back("itself behind it", good + good);
    cases.emplace_back("nothing", Bytes{});
    for (std::size_t size = 1; size < good.size(); size += 1 + good.size() / 16) {
        cases.emplace_back("cut to " + std::to_string(size),
                           Bytes(good.data(), good.data() + size));
    }
    for (const auto& [name, bytes] : cases) EXPECT_FALSE(accepts(bytes)) << name;
    std::cout << cases.size() << " cases\n";
}

TEST(Refused, cipher_texts) {
    const PKeyPtr pair = ExamplePair();
    Cases cases = EachElement(kCipher, kAny);
    const Bytes zero(32, 0);
    Bytes other = kCipherHash;
    other[0] ^= 1;
    const auto add = [&cases](const char* name, const Bytes& bytes) {
        cases.emplace_back(name, bytes);
    };
    add("not on the curve", CipherOf(kCipherX, kCipherX, kCipherHash, kCipherText));
    add("the point (0, 0)", CipherOf(zero, zero, kCipherHash, kCipherText));
    add("x is the prime", CipherOf(kPrime, kCipherY, kCipherHash, kCipherText));
    add("x above the prime", CipherOf(Bytes(32, 0xFF), kCipherY, kCipherHash, kCipherText));
    add("x of 33 bytes", CipherOf(Bytes{1} + kCipherX, kCipherY, kCipherHash, kCipherText));
    add("y is zero", CipherOf(kCipherX, zero, kCipherHash, kCipherText));
    add("another point of the curve", CipherOf(kPublicX, kPublicY, kCipherHash, kCipherText));
    add("another hash", CipherOf(kCipherX, kCipherY, other, kCipherText));
    add("hash of 31 bytes", CipherOf(kCipherX, kCipherY, Bytes(31, 1), kCipherText));
    add("hash of 33 bytes", CipherOf(kCipherX, kCipherY, kCipherHash + Bytes{0}, kCipherText));
    add("a longer text", CipherOf(kCipherX, kCipherY, kCipherHash, kCipherText + Bytes{0}));
    for (std::size_t i = 0; i < kCipherText.size(); ++i) {
        Bytes text = kCipherText;
        text[i] ^= 0x80;
        cases.emplace_back("a bit of byte " + std::to_string(i),
                           CipherOf(kCipherX, kCipherY, kCipherHash, text));
    }
    ExpectRefused(kCipher, cases,
                  [&pair](const Bytes& cipher) { return Decrypt(pair.get(), cipher).has_value(); });
}

TEST(Refused, envelopes) {
    const PKeyPtr temporary = GeneratePair(Algorithm::kSm2);
    const Bytes good = SealEnvelope(temporary.get(), ExamplePair().get());
    Cases cases = EachElement(good, kAny);
    const auto with = [&good, &cases](const char* name, std::size_t child, const Bytes& content) {
        DerNode envelope = DerNode::Parse(good);
        envelope.children.at(child).content = content;
        cases.emplace_back(name, envelope.Encode());
    };
    with("another pair's point", 2, Bytes{0, 4} + kCipherX + kCipherY);
    with("not on the curve", 2, Bytes{0, 4} + kPublicX + kPublicX);
    with("a compressed point", 2, Bytes{0, 3} + kPublicX);
    with("the point at infinity", 2, Bytes{0, 0});
    with("a number of 31 bytes", 3, Bytes(32, 0));
    with("a number of 64 bytes that is too long", 3, Bytes{0} + Bytes(64, 7));
    with("unused bits", 3, Bytes{1} + Bytes(32, 6));
    ExpectRefused(good, cases, [&temporary](const Bytes& envelope) {
        try {
            return OpenEnvelope(envelope, temporary.get()) != nullptr;
        } catch (const Failure& failure) {
            EXPECT_TRUE(failure.code() == kEnvelopeMalformed || failure.code() == kEnvelopeMismatch)
                << failure.code();
            return false;
        }
    });
}

class RefusedText : public TokenTest {};

TEST_F(RefusedText, certificates) {
    CreateKey();
    MakeAuthority();
    const auto good = FromBase64(Issue(Request(1, 2, 3).text));
    ASSERT_TRUE(good);
    ExpectRefused(*good, EachElement(*good, kNotDer), [](const Bytes& certificate) {
        try {
            return ParseCertificates(ToBase64(certificate)).size() == 1;
        } catch (const Failure& failure) {
            EXPECT_EQ(failure.code(), kCertificateMalformed);
            return false;
        }
    });
}

TEST_F(RefusedText, requests_to_seal_to) {
    CreateKey();
    const auto good = FromBase64(Request(3, 2, 3).text);
    ASSERT_TRUE(good);
    Succeed("openssl genpkey -algorithm SM2 -out enc.key");
    const std::string pair = Read("enc.key");
    Cases cases = EachElement(*good, kNotDer);
    for (const char* curve : {"P-256", "secp256k1"}) {
        const std::string request =
            Succeed(std::string("openssl req -new -newkey ec -pkeyopt ec_paramgen_curve:") + curve +
                    " -nodes -keyout other.key -subj /CN=x -outform DER 2>log | openssl base64 -A");
        cases.emplace_back(std::string("of the curve ") + curve, *FromBase64(request));
    }
    ExpectRefused(*good, cases, [&pair](const Bytes& request) {
        try {
            return !SealEnvelopeText(ToBase64(request), pair).empty();
        } catch (const Failure& failure) {
            EXPECT_EQ(failure.code(), kBadArgument);
            return false;
        }
    });
}

}  // namespace

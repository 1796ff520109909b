// What must be refused: cipher texts, envelopes, certificates, requests and private numbers.
#include "example_pair.h"
#include "softkey/crypto/base64.h"
#include "softkey/crypto/certificate.h"
#include "softkey/crypto/envelope.h"
#include "softkey/crypto/key_pair.h"
#include "softkey/crypto/request.h"
#include "token_fixture.h"

using namespace softkey;

namespace {

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

template <class Work>
Code CodeOf(Work work) {
    try {
        work();
        return kOk;
    } catch (const Failure& failure) {
        return failure.code();
    }
}

// An envelope made by hand, with whatever number.
Bytes SealedBy(EVP_PKEY* recipient, const Bytes& number, const Bytes& point) {
    const Bytes key(16, 7);
    const PKeyCtxPtr ctx(EVP_PKEY_CTX_new_from_pkey(nullptr, recipient, nullptr));
    Bytes cipher(200);
    std::size_t length = cipher.size();
    EXPECT_EQ(EVP_PKEY_encrypt_init(ctx.get()), 1);
    EXPECT_EQ(EVP_PKEY_encrypt(ctx.get(), cipher.data(), &length, key.data(), key.size()), 1);
    cipher.resize(length);
    Bytes sealed(32);
    int size = 0;
    const CipherCtxPtr sm4(EVP_CIPHER_CTX_new());
    EXPECT_EQ(EVP_EncryptInit_ex(sm4.get(), EVP_sm4_ecb(), nullptr, key.data(), nullptr), 1);
    EXPECT_EQ(EVP_EncryptUpdate(sm4.get(), sealed.data(), &size, number.data(), 32), 1);
    DerNode envelope = DerNode::Parse(SealEnvelope(recipient, ExamplePair().get()));
    envelope.children.at(1) = DerNode::Parse(cipher);
    envelope.children.at(2).content = Bytes{0} + point;
    envelope.children.at(3).content = Bytes{0} + sealed;
    return envelope.Encode();
}

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

const Bytes kBaseX = Hex("32C4AE2C1F1981195F9904466A39C9948FE30BBFF2660BE1715A4589334C74C7");
const Bytes kBaseY = Hex("BC3736A2F4F6779C59BDCEE36B692153D0A9877CC62A474002DF32E52139F0A0");

// The cipher text with the point's numbers written as these bytes.
Bytes WithNumbers(const Bytes& cipher, const Bytes& x, const Bytes& y) {
    DerNode node = DerNode::Parse(cipher);
    node.children.at(0).content = x;
    node.children.at(1).content = y;
    return node.Encode();
}

Bytes Sum(const Bytes& left, const Bytes& right) {
    const BignumPtr sum(BN_bin2bn(left.data(), 32, nullptr));
    const BignumPtr more(BN_bin2bn(right.data(), 32, nullptr));
    BN_add(sum.get(), sum.get(), more.get());
    Bytes bytes(32);
    EXPECT_EQ(BN_bn2binpad(sum.get(), bytes.data(), 32), 32);
    return bytes;
}

// So small that the prime can be added to it and 32 bytes still hold it; y has its highest bit set.
std::pair<Bytes, Bytes> PointWithSmallX() {
    const GroupPtr group = Sm2Group();
    const PointPtr point(EC_POINT_new(group.get()));
    for (std::uint8_t low = 1;; ++low) {
        Bytes octets(33);
        octets[0] = 2;
        octets[32] = low;
        Bytes whole(65);
        if (EC_POINT_oct2point(group.get(), point.get(), octets.data(), 33, nullptr) != 1) continue;
        EC_POINT_point2oct(group.get(), point.get(), POINT_CONVERSION_UNCOMPRESSED, whole.data(),
                           65, nullptr);
        if (whole[33] >= 0x80) return {Part(whole, 1, 32), Part(whole, 33, 32)};
    }
}

// A text of one byte that the cipher text shows as it is.
Bytes UnderNoMask() {
    const GroupPtr group = Sm2Group();
    const PointPtr point(EC_POINT_dup(EC_GROUP_get0_generator(group.get()), group.get()));
    for (;;) {
        Bytes octets(65);
        EC_POINT_point2oct(group.get(), point.get(), POINT_CONVERSION_UNCOMPRESSED, octets.data(),
                           65, nullptr);
        const Bytes cipher = SealedWith(Part(octets, 1, 32), Part(octets, 33, 32), "x");
        if (cipher.back() == 'x') return cipher;
        EC_POINT_dbl(group.get(), point.get(), point.get(), nullptr);
    }
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
    const Bytes sealed = SealedWith(kBaseX, kBaseY, "text");
    add("y without its sign", WithNumbers(sealed, kBaseX, kBaseY));
    add("x with a zero too many", WithNumbers(sealed, Bytes{0} + kBaseX, Bytes{0} + kBaseY));
    const auto [x, y] = PointWithSmallX();
    add("x above the prime, on the curve",
        WithNumbers(SealedWith(x, y, "text"), Bytes{0} + Sum(x, kPrime), Bytes{0} + y));
    add("a mask of zeros", UnderNoMask());
    add("the parts, cut behind the hash's first half",
        Bytes{4} + kCipherX + kCipherY + Bytes(kCipherHash.begin(), kCipherHash.begin() + 16));
    add("the parts, compressed", Bytes{2} + kCipherX + kCipherHash + kCipherText);
    add("the parts, not on the curve", Bytes{4} + kCipherX + kCipherX + kCipherHash + kCipherText);
    add("the parts, a byte behind", Parts(kCipher) + Bytes{0});
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

// The number whose signatures would divide by zero, its neighbours, and what is no number at all.
TEST(Refused, private_numbers_out_of_range) {
    const PKeyPtr temporary = GeneratePair(Algorithm::kSm2);
    const GroupPtr group = Sm2Group();
    const PointPtr point(EC_POINT_new(group.get()));
    for (const auto& [less, allowed] : std::vector<std::pair<unsigned long, bool>>{
             {0, false}, {1, false}, {2, true}, {3, true}}) {
        const BignumPtr number(BN_bin2bn(kOrder.data(), 32, nullptr));
        BN_sub_word(number.get(), less);
        EXPECT_EQ(IsSm2PrivateNumber(number.get()), allowed) << "the order less " << less;
        if (less == 0) continue;  // its point is none
        Bytes bytes(32), octets(65);
        BN_bn2binpad(number.get(), bytes.data(), 32);
        EC_POINT_mul(group.get(), point.get(), number.get(), nullptr, nullptr, nullptr);
        EC_POINT_point2oct(group.get(), point.get(), POINT_CONVERSION_UNCOMPRESSED, octets.data(),
                           65, nullptr);
        const PKeyPtr pair = PairOf(bytes, octets);
        EXPECT_EQ(CodeOf([&] { SealEnvelope(temporary.get(), pair.get()); }),
                  allowed ? kOk : kBadArgument);
        EXPECT_EQ(CodeOf([&] {
                      OpenEnvelope(SealedBy(temporary.get(), bytes, octets), temporary.get());
                  }),
                  allowed ? kOk : kEnvelopeMismatch)
            << "the order less " << less;
    }
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

// It would come back as damage: what is stored is read as DER.
TEST_F(RefusedText, certificates_within_pkcs7) {
    CreateKey();
    Issue(Request(1, 2, 3).text);
    const std::string pkcs7 =
        Succeed("openssl crl2pkcs7 -nocrl -certfile issue.pem -outform DER | openssl base64 -A");
    DerNode message = DerNode::Parse(*FromBase64(pkcs7));
    DerNode& certificate = message.children.at(1).children.at(0).children.at(3).children.at(0);
    ASSERT_EQ(ParseCertificates(ToBase64(message.Encode())).size(), 1U);
    certificate.children.at(0).children.at(1).change = DerChange::kLongForm;  // its number
    EXPECT_EQ(CodeOf([&] { ParseCertificates(ToBase64(message.Encode())); }),
              kCertificateMalformed);
}

TEST(Refused, what_nests_four_hundred_thousand_deep) {
    Bytes nested;
    for (std::uint32_t size = 0; size < 2000000; size += 5) {  // the innermost first
        const Bytes head{static_cast<std::uint8_t>(size), static_cast<std::uint8_t>(size >> 8),
                         static_cast<std::uint8_t>(size >> 16), 0x83, 0x30};
        nested.insert(nested.end(), head.begin(), head.end());
    }
    std::reverse(nested.begin(), nested.end());
    EXPECT_FALSE(IsDer(nested));
}

TEST(Refused, base64_that_is_not_as_it_is_written) {
    for (const char* text : {"AA", "AAA", "AA=", "AA=A", "A===", "====", "AB==", "AAB=", "AA==AA==",
                             "AAAA=", "AA-A", "AAAA\nA", "=AAA", "\xFF\xFF\xFF\xFF"}) {
        EXPECT_FALSE(FromBase64(text)) << text;
    }
    EXPECT_EQ(*FromBase64(""), Bytes());
    EXPECT_EQ(*FromBase64(" A\tA\r\n= = "), Bytes{0});
    EXPECT_EQ(FromBase64("AAEC")->size(), 3U);
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

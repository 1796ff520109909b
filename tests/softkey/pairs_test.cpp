// Pairs: how they are kept, what they open and sign, within this process.
#define OPENSSL_SUPPRESS_DEPRECATED
#include <openssl/err.h>
#include <openssl/rsa.h>

#include "crypto_support.h"
#include "softkey/crypto/base64.h"
#include "softkey/crypto/decryption.h"
#include "softkey/crypto/der.h"
#include "softkey/crypto/rsa_key.h"
#include "softkey/crypto/signature.h"

using namespace softkey;

namespace {

constexpr const char* kSerial = "KS7";

// The record with another secret under its wrapping, as an earlier version or damage leaves it.
Code CodeOfOpening(PairRecord record, const Bytes& secret, const MasterKey& master,
                   Bytes* number = nullptr) {
    std::string context =
        std::string("pair/") + kSerial + "/" + std::to_string(static_cast<int>(record.role)) + "/";
    context.append(record.publicKey.begin(), record.publicKey.end());
    const Bytes wrapped = Wrap(master, secret.data(), secret.size(), context);
    return CodeOf([&] {
               const PKeyPtr pair = OpenPrivate(record, wrapped, kSerial, master);
               if (number != nullptr) *number = ToBytes(Sm2NumberOf(pair.get()));
           }) == kOk
               ? kOk
               : kStateDamaged;
}

TEST(Pairs, come_back_as_they_were_kept) {
    const MasterKey master = MasterKey::Random();
    for (EVP_PKEY* const pair : {Sm2Pair(), RsaPair()}) {
        const PairRecord record = ToRecord(pair, Role::kSigning, kSerial, master);
        EXPECT_EQ(record.role, Role::kSigning);
        EXPECT_EQ(record.algorithm, AlgorithmOf(pair));
        EXPECT_EQ(record.publicKey, PublicKeyOf(pair));
        const PKeyPtr opened = OpenPrivate(record, record.wrappedPrivate, kSerial, master);
        EXPECT_EQ(PublicKeyOf(opened.get()), record.publicKey);
        const Bytes cipher = EncryptedTo(pair, {'h', 'i'});
        EXPECT_EQ(ToBytes(Decrypt(opened.get(), cipher).value()), (Bytes{'h', 'i'}));
    }
    EXPECT_EQ(EVP_PKEY_get_bits(RsaPair()), 2048);
    EXPECT_NE(PublicKeyOf(GeneratePair(Algorithm::kSm2).get()), PublicKeyOf(Sm2Pair()));
}

TEST(Pairs, open_for_their_own_place_alone) {
    const MasterKey master = MasterKey::Random();
    const PairRecord record = ToRecord(Sm2Pair(), Role::kSigning, kSerial, master);
    const auto code = [&](const PairRecord& asked, const char* serial, const MasterKey& key) {
        return CodeOf([&] { OpenPrivate(asked, record.wrappedPrivate, serial, key); });
    };
    EXPECT_EQ(code(record, kSerial, master), kOk);
    EXPECT_EQ(code(record, "KS8", master), kStateDamaged);
    EXPECT_EQ(code(record, kSerial, MasterKey::Random()), kStateDamaged);
    PairRecord other = record;
    other.role = Role::kEncryption;
    EXPECT_EQ(code(other, kSerial, master), kStateDamaged);
    other = record;
    other.publicKey = PublicKeyOf(RsaPair());
    EXPECT_EQ(code(other, kSerial, master), kStateDamaged);
    const MasterKey next = MasterKey::Random();
    const Bytes anew = WrapAnew(record, record.wrappedPrivate, kSerial, master, next);
    EXPECT_EQ(CodeOf([&] { OpenPrivate(record, anew, kSerial, next); }), kOk);
    EXPECT_EQ(CodeOf([&] { OpenPrivate(record, anew, kSerial, master); }), kStateDamaged);
}

// Earlier versions kept PKCS#8; damage may leave anything.
TEST(Pairs, of_sm2_are_found_in_what_an_earlier_version_kept) {
    const MasterKey master = MasterKey::Random();
    PairRecord record = ToRecord(Sm2Pair(), Role::kSigning, kSerial, master);
    const Bytes number = NumberOf(Sm2Pair());
    const Bytes before{0x02, 0x01, 0x01, 0x04, 0x20};
    const Bytes order =
        FromHexText("FFFFFFFEFFFFFFFFFFFFFFFFFFFFFFFF7203DF6B21C6052B53BBF40939D54123");
    const std::vector<std::pair<Bytes, Code>> cases = {
        {number, kOk},
        {before + number, kOk},
        {Bytes(40, 7) + before + number, kOk},
        {Bytes(40, 7) + before + number + Bytes(70, 7), kOk},
        {before + Bytes(number.begin(), number.end() - 1), kStateDamaged},
        {Bytes(31, 7), kStateDamaged},
        {Bytes(33, 7), kStateDamaged},
        {Bytes(200, 7), kStateDamaged},
        {before, kStateDamaged},
        {Bytes(32, 0), kStateDamaged},
        {order, kStateDamaged}};
    for (const auto& [secret, code] : cases) {
        Bytes found = number;
        EXPECT_EQ(CodeOfOpening(record, secret, master, &found), code) << ToHex(secret);
        EXPECT_EQ(found, number) << ToHex(secret);
    }
    record.publicKey.erase(record.publicKey.begin(), record.publicKey.end() - 65);
    EXPECT_EQ(CodeOfOpening(record, number, master), kOk) << "the point alone";
    record.publicKey.erase(record.publicKey.begin());
    EXPECT_EQ(CodeOfOpening(record, number, master), kStateDamaged) << "less than the point";
}

TEST(Pairs, of_rsa_are_read_from_both_forms) {
    const auto size = [](const Bytes& der) {
        const PKeyPtr pair = ReadRsaPair(SecretBytes(der.data(), der.size()));
        return pair ? EVP_PKEY_get_bits(pair.get()) : 0;
    };
    const Bytes pkcs1 = ToBytes(RsaNumbersOf(RsaPair()));
    EXPECT_EQ(size(pkcs1), 2048);
    const Bytes head = FromHexText("020100300D06092A864886F70D0101010500");
    const Bytes pkcs8 = DerSequence({head, DerOctets(pkcs1)});
    EXPECT_EQ(size(pkcs8), 2048);
    EXPECT_EQ(size(DerSequence({head, DerOctets({1, 2, 3})})), 0);
    EXPECT_EQ(size(Bytes(200, 7)), 0);
    EXPECT_EQ(size({}), 0);
    const MasterKey master = MasterKey::Random();
    const PairRecord record = ToRecord(RsaPair(), Role::kSigning, kSerial, master);
    EXPECT_EQ(CodeOfOpening(record, Bytes(200, 7), master), kStateDamaged);
    const PKeyPtr read = ReadRsaPair(SecretBytes(pkcs1.data(), pkcs1.size()));
    EXPECT_EQ(RSA_test_flags(EVP_PKEY_get0_RSA(read.get()), RSA_FLAG_CACHE_PRIVATE), 0)
        << "what is kept for the next signature strays from the secure heap";
    EXPECT_NE(RSA_get_method(EVP_PKEY_get0_RSA(read.get())), RSA_PKCS1_OpenSSL())
        << "what OpenSSL's provider would sign with is a copy";
}

TEST(Pairs, without_a_private_half_or_of_another_kind_are_named) {
    EXPECT_EQ(FailureOf([] { Sm2NumberOf(PublicHalfOf(Sm2Pair()).get()); }),
              std::to_string(kBadArgument) + " a pair without a private half");
    const PKeyPtr curve(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256"));
    EXPECT_EQ(FailureOf([&] { AlgorithmOf(curve.get()); }),
              std::to_string(kNotSupported) + " neither an RSA nor an SM2 key");
    const Bytes key = PublicKeyOf(Sm2Pair());
    EXPECT_NE(ParsePublicKey(key), nullptr);
    EXPECT_EQ(ParsePublicKey(key + Bytes{0}), nullptr);
    EXPECT_EQ(ParsePublicKey({key.begin(), key.end() - 1}), nullptr);
    EXPECT_EQ(ParsePublicKey({}), nullptr);
    const BignumPtr zero(BN_new());
    EXPECT_EQ(CodeOf([&] { MakeSm2Pair(zero.get(), PointOf(Sm2Pair())); }), kCryptoFailed);
}

TEST(SmallNumbers, are_numbers_too) {
    const BignumPtr five(BN_new());
    BN_set_word(five.get(), 5);
    Bytes expected(32);
    expected[31] = 5;
    const PKeyPtr pair = MakeSm2Pair(five.get(), PointOf(Sm2Pair()));
    EXPECT_EQ(ToBytes(Sm2NumberOf(pair.get())), expected);
}

// ---- Cipher texts -------------------------------------------------------------------------------

TEST(CipherTexts, of_rsa_have_the_length_of_the_modulus) {
    const Bytes cipher = EncryptedTo(RsaPair(), {'h', 'i'});
    EXPECT_EQ(ToBytes(Decrypt(RsaPair(), cipher).value()), (Bytes{'h', 'i'}));
    EXPECT_EQ(Decrypt(RsaPair(), EncryptedTo(RsaPair(), {})).value().size(), 0U);
    EXPECT_FALSE(Decrypt(RsaPair(), {cipher.begin(), cipher.end() - 1}));
    EXPECT_FALSE(Decrypt(RsaPair(), cipher + Bytes{0}));
    EXPECT_FALSE(Decrypt(RsaPair(), Bytes{0} + cipher));
    EXPECT_FALSE(Decrypt(RsaPair(), {}));
    EXPECT_FALSE(Decrypt(RsaPair(), Bytes(256, 7)));
}

// Each level is a SEQUENCE that holds the next; the innermost is empty.
Bytes Nested(int levels) {
    Bytes der{0x30, 0x00};
    for (int i = 0; i < levels; ++i) der = DerSequence({der});
    return der;
}

TEST(Der, is_one_element_nested_no_deeper_than_64) {
    EXPECT_TRUE(IsDer({0x30, 0x00}));
    EXPECT_TRUE(IsDer(Nested(64)));
    EXPECT_FALSE(IsDer(Nested(65)));
    EXPECT_FALSE(IsDer({}));
    EXPECT_FALSE(IsDer({0x30}));
    EXPECT_FALSE(IsDer({0x30, 0x00, 0x00}));
    EXPECT_FALSE(IsDer({0x30, 0x80, 0x00, 0x00})) << "of indefinite length";
    EXPECT_FALSE(IsDer({0x30, 0x04, 0x30, 0x80, 0x00, 0x00})) << "the same inside";
    EXPECT_FALSE(IsDer({0x30, 0x81, 0x00})) << "a length that is not short";
    EXPECT_FALSE(IsDer({0x30, 0x02, 0x02, 0x01})) << "claims more than there is";
}

// ---- Signatures ---------------------------------------------------------------------------------

bool Verifies(EVP_PKEY* pair, const char* digest, const std::string& text, const Bytes& signature) {
    const MdCtxPtr ctx(EVP_MD_CTX_new());
    EVP_PKEY_CTX* key = nullptr;
    EVP_DigestVerifyInit_ex(ctx.get(), &key, digest, nullptr, nullptr, pair, nullptr);
    if (EVP_PKEY_is_a(pair, "SM2")) EVP_PKEY_CTX_set1_id(key, "1234567812345678", 16);
    EVP_DigestVerifyUpdate(ctx.get(), text.data(), text.size());
    const bool verifies = EVP_DigestVerifyFinal(ctx.get(), signature.data(), signature.size()) == 1;
    ERR_clear_error();
    return verifies;
}

Bytes DigestOf(const char* name, const std::string& text) {
    Bytes digest(EVP_MAX_MD_SIZE);
    unsigned size = 0;
    EVP_Digest(text.data(), text.size(), digest.data(), &size, EVP_get_digestbyname(name), nullptr);
    digest.resize(size);
    return digest;
}

TEST(Signatures, verify_under_the_digest_that_their_number_names) {
    for (const std::int64_t hash : {0, 1, 2, 3}) {
        EXPECT_TRUE(Verifies(Sm2Pair(), "SM3", "text", SignText(Sm2Pair(), hash, "text")));
    }
    EXPECT_FALSE(Verifies(Sm2Pair(), "SM3", "texts", SignText(Sm2Pair(), 0, "text")));
    const std::pair<std::int64_t, const char*> hashes[] = {
        {0, "SHA256"}, {1, "SHA1"}, {2, "SHA256"}};
    for (const auto& [hash, name] : hashes) {
        EXPECT_TRUE(Verifies(RsaPair(), name, "text", SignText(RsaPair(), hash, "text"))) << name;
        EXPECT_TRUE(
            Verifies(RsaPair(), name, "text", SignDigest(RsaPair(), hash, DigestOf(name, "text"))))
            << name;
    }
    for (EVP_PKEY* const pair : {Sm2Pair(), RsaPair()}) {
        EXPECT_EQ(CodeOf([&] { SignText(pair, 4, "text"); }), kBadArgument);
        EXPECT_EQ(CodeOf([&] { SignText(pair, -1, "text"); }), kBadArgument);
    }
}

TEST(Signatures, of_one_signer_are_many_and_end_where_they_end) {
    const Signer signer(Sm2Pair());
    for (int i = 0; i < 16; ++i) {
        const Bytes signature = signer.OverText(0, "text");
        EXPECT_TRUE(IsDer(signature));
        EXPECT_TRUE(Verifies(Sm2Pair(), "SM3", "text", signature));
        EXPECT_TRUE(IsDer(signer.OverDigest(0, Bytes(32, 7))));
    }
    EXPECT_EQ(SignText(RsaPair(), 2, "text").size(), 256U);
}

TEST(Digests, are_hexadecimal_or_base64_of_their_own_length) {
    Bytes digest = DigestOf("SHA256", "text");
    digest[0] = 0x09;
    digest[1] = 0xAF;
    const std::string hex = ToHex(digest);
    std::string upper = hex;
    for (char& digit : upper) digit = static_cast<char>(std::toupper(digit));
    const std::string base64 = ToBase64(digest);
    const auto parsed = [](const std::string& text, DigestText writing) {
        return ParseDigest(text, writing, Algorithm::kSm2, 0);
    };
    const auto refused = [](const std::string& text, DigestText writing, Algorithm algorithm,
                            std::int64_t hash) {
        return FailureOf([&] { ParseDigest(text, writing, algorithm, hash); });
    };
    for (const std::string& text : {hex, upper}) {
        EXPECT_EQ(parsed(text, DigestText::kEither), digest);
        EXPECT_EQ(parsed(text, DigestText::kHex), digest);
    }
    EXPECT_EQ(parsed(base64, DigestText::kEither), digest);
    EXPECT_EQ(parsed(base64, DigestText::kBase64), digest);
    const std::string words = " bytes, as hexadecimal or Base64";
    const std::string wrong = std::to_string(kBadArgument) + " the digest must be ";
    EXPECT_EQ(refused(hex, DigestText::kBase64, Algorithm::kSm2, 0), wrong + "32" + words);
    EXPECT_EQ(refused(base64, DigestText::kHex, Algorithm::kSm2, 0), wrong + "32" + words);
    for (const std::string& text :
         {std::string(), hex.substr(1), hex.substr(2), hex + "0", hex + "00", "g" + hex.substr(1),
          hex.substr(1) + "/", ToBase64(Bytes(31, 7)), ToBase64(Bytes(33, 7))}) {
        for (const DigestText writing :
             {DigestText::kEither, DigestText::kHex, DigestText::kBase64}) {
            EXPECT_EQ(refused(text, writing, Algorithm::kSm2, 0), wrong + "32" + words) << text;
        }
    }
    const Bytes sha1 = DigestOf("SHA1", "text");
    EXPECT_EQ(ParseDigest(ToHex(sha1), DigestText::kEither, Algorithm::kRsa, 1), sha1);
    EXPECT_EQ(ParseDigest(ToBase64(sha1), DigestText::kEither, Algorithm::kRsa, 1), sha1);
    EXPECT_EQ(refused(hex, DigestText::kEither, Algorithm::kRsa, 1), wrong + "20" + words);
    EXPECT_EQ(ParseDigest(hex, DigestText::kEither, Algorithm::kRsa, 2), digest);
}

}  // namespace

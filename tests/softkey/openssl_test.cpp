// What the software key leaves behind in OpenSSL: no notes, no memory; and what it makes of an
// OpenSSL that lacked some.
#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/rand.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <thread>

#include "crypto_support.h"
#include "openssl_memory.h"
#include "softkey/crypto/base64.h"
#include "softkey/crypto/certificate.h"
#include "softkey/crypto/decryption.h"
#include "softkey/crypto/der.h"
#include "softkey/crypto/envelope.h"
#include "softkey/crypto/issuing.h"
#include "softkey/crypto/openssl_context.h"
#include "softkey/crypto/request.h"
#include "softkey/crypto/rsa_key.h"
#include "softkey/crypto/signature.h"
#include "softkey/crypto/sm2_cipher.h"

using namespace softkey;

namespace {

using Work = std::function<void()>;

SecretBytes Secret(const Bytes& bytes) {
    return {bytes.data(), bytes.size()};
}

// Over a key whose point is not on the curve.
X509Ptr PointlessCertificate() {
    const PairRecord pair = CertifiedPairs("A", MasterKey::Random(), {0, 9}).at(0);
    Bytes der = pair.certificate;
    const auto key =
        std::search(der.begin(), der.end(), pair.publicKey.begin(), pair.publicKey.end());
    key[static_cast<std::ptrdiff_t>(pair.publicKey.size()) - 1] ^= 1;
    return StoredCertificate(der);
}

// Each is refused, for a reason that OpenSSL notes.
std::vector<std::pair<const char*, Work>> Refusals() {
    const Bytes cut{0x30, 0x05, 0x02};
    const std::string text = ToBase64(cut);
    const std::string block = "-----BEGIN X-----AAAA-----END X-----";
    const std::shared_ptr<X509> pointless(PointlessCertificate());
    return {
        {"DER", [=] { IsDer(cut); }},
        {"PEM", [=] { FromText(block); }},
        {"certificates", [=] { ParseCertificates(text); }},
        {"a stored certificate", [=] { StoredCertificate(cut); }},
        {"a certified key that is no point",
         [=] { BelongsTogether(pointless.get(), PublicKeyOf(Sm2Pair())); }},
        {"a public key", [=] { ParsePublicKey(cut); }},
        {"an SM2 cipher text", [=] { Decrypt(Sm2Pair(), cut); }},
        {"a point", [=] { ReadSm2Cipher(Bytes(110, 4)); }},
        {"an RSA cipher text", [=] { Decrypt(RsaPair(), Bytes(256, 255)); }},
        {"an RSA pair", [=] { ReadRsaPair(Secret(cut)); }},
        {"an envelope", [=] { OpenEnvelope(cut, Sm2Pair()); }},
        {"a recipient", [=] { SealEnvelopeText(block, ""); }},
        {"a pair to seal", [=] { SealEnvelopeText(ToBase64(PublicKeyOf(Sm2Pair())), "nonsense"); }},
        {"a digest", [=] { ParseDigest("xx", DigestText::kHex, Algorithm::kSm2, 0); }}};
}

TEST(Openssl, keeps_no_note_of_what_was_refused) {
    for (const auto& [name, work] : Refusals()) {
        ERR_clear_error();
        CodeOf(work);
        EXPECT_EQ(ERR_peek_error(), 0U) << name;
    }
}

TEST(Openssl, that_lacked_memory_is_told_apart) {
    for (const bool first : {true, false}) {
        ERR_clear_error();
        if (first) ERR_raise(ERR_LIB_EC, EC_R_INVALID_ENCODING);
        ERR_raise(ERR_LIB_EC, ERR_R_MALLOC_FAILURE);
        if (!first) ERR_raise(ERR_LIB_EC, EC_R_INVALID_ENCODING);
        EXPECT_EQ(CodeOf([] { ForgetErrors(); }), kNoMemory);
        EXPECT_EQ(ERR_peek_error(), 0U);
    }
    const std::pair<int, int> kTold[] = {{ERR_LIB_EVP, EVP_R_INITIALIZATION_ERROR},
                                         {ERR_LIB_EVP, EVP_R_NOT_ABLE_TO_COPY_CTX},
                                         {ERR_LIB_SM2, ERR_R_INTERNAL_ERROR}};
    for (const auto& [library, reason] : kTold) {
        ERR_raise(library, reason);
        EXPECT_EQ(CodeOf([] { ForgetErrors(); }), kNoMemory) << reason;
    }
    ERR_raise(ERR_LIB_EC, EC_R_INVALID_ENCODING);
    EXPECT_EQ(CodeOf([] { ForgetErrors(); }), kOk);
    EXPECT_EQ(ERR_peek_error(), 0U);
}

TEST(Openssl, that_fails_is_told_with_what_it_was_to_do) {
    EXPECT_EQ(FailureOf([] { Require(true, "a thing"); }), "done");
    ERR_raise(ERR_LIB_EC, EC_R_INVALID_ENCODING);
    EXPECT_EQ(FailureOf([] { Require(false, "a thing"); }),
              std::to_string(kCryptoFailed) + " a thing");
    EXPECT_EQ(ERR_peek_error(), 0U);
    ERR_raise(ERR_LIB_EC, ERR_R_MALLOC_FAILURE);
    EXPECT_EQ(CodeOf([] { Require(false, "a thing"); }), kNoMemory);
    int made = 7;
    EXPECT_EQ(Made(&made, "a thing"), &made);
    EXPECT_EQ(CodeOf([] { Made(static_cast<int*>(nullptr), "a thing"); }), kCryptoFailed);
}

bool HasHmac() {
    EVP_MAC* const method = EVP_MAC_fetch(nullptr, "HMAC", nullptr);
    EVP_MAC_free(method);
    return method != nullptr;
}

bool Draws() {
    unsigned char drawn{};
    return RAND_bytes(&drawn, 1) == 1;
}

// Gives the process a context that has the one and lost the other for good: its first use found no
// memory.
void Lose(bool (*kept)(), bool (*lost)()) {
    for (long failing = 1; failing < 2000; ++failing) {
        OSSL_LIB_CTX_set0_default(OSSL_LIB_CTX_new());
        kept();
        g_memory.failing = failing;
        lost();
        g_memory.failing = 0;
        const bool gone = !lost();
        ERR_clear_error();
        if (gone) return;
    }
    _exit(3);
}

// Whether a call has again what was lost, after one that ended so. Ends the process, whose context
// it was.
[[noreturn]] void LoseAfter(Code code, bool (*kept)(), bool (*lost)()) {
    Lose(kept, lost);
    if (SuspectOpenssl(code) != (code == kPinWrong ? kPinWrong : kNoMemory)) _exit(4);
    if (ERR_peek_error() != 0) _exit(5);
    bool again = false;
    {
        const WholeOpenssl whole;
        if (ERR_peek_error() != 0) _exit(6);
        again = lost();
    }
    _exit(lost() ? 2 : again ? 1 : 0);
}

TEST(Openssl, that_lost_a_method_is_left_when_a_call_failed_for_it) {
    for (const Code code : {kNoMemory, kCryptoFailed, kCertificateMalformed, kEnvelopeMalformed,
                            kEnvelopeMismatch, kCipherMalformed, kStateDamaged}) {
        EXPECT_EQ(SuspectOpenssl(code), code) << "nothing is lost";
        EXPECT_EXIT(LoseAfter(code, Draws, HasHmac), testing::ExitedWithCode(1), "");
    }
    EXPECT_EXIT(LoseAfter(kNoMemory, HasHmac, Draws), testing::ExitedWithCode(1), "");
    EXPECT_EXIT(LoseAfter(kPinWrong, Draws, HasHmac), testing::ExitedWithCode(0), "");
}

// Memory for the next context comes back bit by bit. What is made in vain goes again; OpenSSL
// itself keeps some of it once random numbers have been drawn.
[[noreturn]] void LeaveWithLittleMemory() {
    Lose(Draws, HasHmac);
    SuspectOpenssl(kNoMemory);
    g_memory.all = true;
    for (long failing = 1000; OpensslInUse() == nullptr; failing += failing / 8) {
        const long blocks = g_memory.blocks;
        g_memory.failing = failing;
        { const WholeOpenssl whole; }
        g_memory.failing = 0;
        if (ERR_peek_error() != 0) _exit(4);
        if (failing < 6000 && g_memory.blocks > blocks + 8) _exit(5);
        if (failing > 100000) _exit(6);
    }
    _exit(SuspectOpenssl(kCryptoFailed) == kCryptoFailed ? 1 : 0);
}

TEST(Openssl, that_lost_a_method_is_left_once_there_is_memory_for_a_whole_one) {
    EXPECT_EXIT(LeaveWithLittleMemory(), testing::ExitedWithCode(1), "");
}

// A look in a new thread makes the thread's random generators.
TEST(Openssl, that_lacked_memory_for_one_look_is_kept) {
    const auto lacking = [](const Work& work) {
        long left = 0;
        std::thread([&] {
            g_memory.failing = 1;
            work();
            left = g_memory.failing;
            g_memory.failing = 0;
        }).join();
        return left;
    };
    EXPECT_EQ(SuspectOpenssl(kCryptoFailed), kCryptoFailed);
    EXPECT_EQ(lacking([] { EXPECT_EQ(SuspectOpenssl(kCryptoFailed), kNoMemory); }), 0);
    EXPECT_EQ(lacking([] { const WholeOpenssl whole; }), 0) << "looks twice";
    EXPECT_EQ(OpensslInUse(), nullptr);
    EXPECT_EQ(lacking([] { const WholeOpenssl whole; }), 1) << "looks no more";
}

// OpenSSL does not always say that it was memory that lacked.
TEST(Openssl, that_has_no_memory_to_take_a_pair_apart_is_no_fault_of_the_pair) {
    Sm2NumberOf(Sm2Pair());  // what is made once
    int code = kNoMemory;
    long failing = 0;
    while (code == kNoMemory || code == kCryptoFailed) {
        g_memory.failing = ++failing;
        code = CodeOf([] { Sm2NumberOf(Sm2Pair()); });
        g_memory.failing = 0;
    }
    EXPECT_EQ(code, kOk) << failing;
    EXPECT_GT(failing, 3);
    ERR_clear_error();
}

// What OpenSSL made in part is not handed out: a request without its signature, say.
TEST(Openssl, that_has_no_memory_makes_nothing_or_all_of_it) {
    const std::size_t size = FromBase64(MakeRequest(RsaPair(), 0, "A"))->size();
    long failing = 0;
    bool failed = true;
    while (failed) {
        std::size_t made = size;
        g_memory.failing = ++failing;
        const int code = CodeOf([&] { made = FromBase64(MakeRequest(RsaPair(), 0, "A"))->size(); });
        failed = g_memory.failing == 0;
        g_memory.failing = 0;
        EXPECT_GT(made + 8, size) << failing;
        EXPECT_TRUE(code == kOk || code == kNoMemory || code == kCryptoFailed) << code;
        ERR_clear_error();
    }
    EXPECT_GT(failing, 50);
}

TEST(Openssl, that_has_no_memory_for_what_it_signs_makes_no_certificate) {
    const MasterKey master = MasterKey::Random();
    const auto make = [&] { return CertifiedPairs("A", master, {0, 9}).at(0).certificate; };
    const X509Ptr certificate = StoredCertificate(make());
    const int size = i2d_re_X509_tbs(certificate.get(), nullptr);
    g_memory.missing = static_cast<std::size_t>(size);
    EXPECT_EQ(CodeOf(make), kNoMemory);
    g_memory.missing = 0;
    EXPECT_EQ(CodeOf(make), kOk);
}

TEST(Openssl, that_writes_is_asked_for_the_size) {
    int size = -1;
    const auto write = [&size](unsigned char** der) {
        *der = static_cast<unsigned char*>(OPENSSL_zalloc(1));
        return size++;
    };
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(CodeOf([&] { Encoded(write, "it"); }), kCryptoFailed) << i;
    }
    EXPECT_EQ(Encoded(write, "it"), Bytes{0});
}

TEST(Openssl, keeps_no_memory_of_what_was_done) {
    ASSERT_TRUE(g_memory.counted);
    const MasterKey master = MasterKey::Random();
    std::vector<std::pair<const char*, Work>> all = Refusals();
    const Bytes cipher = EncryptedTo(Sm2Pair(), {1});
    const Bytes envelope = SealEnvelope(Sm2Pair(), Sm2Pair());
    const PairRecord pair = CertifiedPairs("A", master, {0, 9}).at(0);
    const std::string certificate = ToBase64(pair.certificate);
    const std::string request = MakeRequest(Sm2Pair(), 0, "A");
    const std::string pem = PemOf(Sm2Pair());
    const Bytes rsa = ToBytes(RsaNumbersOf(RsaPair()));
    const std::vector<std::pair<const char*, Work>> good = {
        {"PEM, taken", [&] { FromText("-----BEGIN X-----QQ==-----END X-----"); }},
        {"certificates, taken", [&] { ParseCertificates(certificate); }},
        {"a certificate's text",
         [&] {
             const X509Ptr read = StoredCertificate(pair.certificate);
             InformationBlock(read.get(), Role::kSigning, Algorithm::kSm2);
             CertificateDer(read.get());
             BelongsTogether(read.get(), pair.publicKey);
         }},
        {"own certificates",
         [&] {
             CertifiedPairs("A", master, {0, 9});
         }},
        {"a decryption", [&] { Decrypt(Sm2Pair(), cipher); }},
        {"an envelope, opened", [&] { OpenEnvelope(envelope, Sm2Pair()); }},
        {"an envelope, sealed", [&] { SealEnvelopeText(request, pem); }},
        {"a pair, opened", [&] { OpenPrivate(pair, pair.wrappedPrivate, "A", master); }},
        {"an RSA pair, read", [&] { ReadRsaPair(Secret(rsa)); }},
        {"a signature", [&] { SignText(Sm2Pair(), 0, "text"); }}};
    all.insert(all.end(), good.begin(), good.end());
    for (const auto& [name, work] : all) CodeOf(work);  // what is made once
    constexpr long kTimes = 4;
    const auto settle = [] {
        // The places of notes keep the room that a note once needed.
        for (int i = 0; i < ERR_NUM_ERRORS; ++i) {
            ERR_raise_data(ERR_LIB_EC, EC_R_INVALID_ENCODING, "note %d", i);
        }
        ERR_clear_error();
        return g_memory.blocks;
    };
    for (const auto& [name, work] : all) {
        const long blocks = settle();
        const std::size_t secure = CRYPTO_secure_used();
        for (int i = 0; i < kTimes; ++i) CodeOf(work);
        EXPECT_LT(settle(), blocks + kTimes) << name;
        EXPECT_EQ(CRYPTO_secure_used(), secure) << name;
    }
}

}  // namespace

// Certificates as they come in, the software key's own, and requests: within this process.
#include <openssl/err.h>
#include <openssl/x509v3.h>

#include "crypto_support.h"
#include "softkey/crypto/base64.h"
#include "softkey/crypto/certificate.h"
#include "softkey/crypto/der.h"
#include "softkey/crypto/issuing.h"
#include "softkey/crypto/request.h"

using namespace softkey;

namespace {

void AddName(X509_NAME* name, const char* field, int type, const std::string& text) {
    X509_NAME_add_entry_by_txt(name, field, type,
                               reinterpret_cast<const unsigned char*>(text.data()),
                               static_cast<int>(text.size()), -1, 0);
}

// Over this pair's public half, and signed by it.
X509Ptr Certificate(EVP_PKEY* pair) {
    X509Ptr certificate(X509_new());
    X509* const raw = certificate.get();
    X509_set_version(raw, X509_VERSION_3);
    const Bytes serial{0x0A, 0x00, 0xFF, 0x10};
    const BignumPtr number(BN_bin2bn(serial.data(), 4, nullptr));
    BN_to_ASN1_INTEGER(number.get(), X509_get_serialNumber(raw));
    ASN1_TIME_set_string(X509_getm_notBefore(raw), "20240102030405Z");
    ASN1_TIME_set_string(X509_getm_notAfter(raw), "20501231235958Z");
    AddName(X509_get_subject_name(raw), "C", MBSTRING_UTF8, "CN");
    AddName(X509_get_subject_name(raw), "CN", MBSTRING_UTF8, "银行, 9");
    AddName(X509_get_issuer_name(raw), "O", MBSTRING_UTF8, "Authority");
    X509_set_pubkey(raw, pair);
    X509_sign(raw, pair, EVP_get_digestbyname(EVP_PKEY_is_a(pair, "SM2") ? "SM3" : "SHA256"));
    return certificate;
}

const Bytes& Der() {
    static const auto* const der = new Bytes(CertificateDer(Certificate(Sm2Pair()).get()));
    return *der;
}

std::size_t Parsed(const Bytes& der) {
    return ParseCertificates(ToBase64(der)).size();
}

// A PKCS#7 message of this type that holds these certificates.
Bytes Pkcs7(const std::vector<Bytes>& certificates, int type = NID_pkcs7_signed) {
    const Pkcs7Ptr message(PKCS7_new());
    PKCS7_set_type(message.get(), type);
    if (type == NID_pkcs7_signed) PKCS7_content_new(message.get(), NID_pkcs7_data);
    for (const Bytes& der : certificates) {
        PKCS7_add_certificate(message.get(), StoredCertificate(der).get());
    }
    return Encoded([&](unsigned char** der) { return i2d_PKCS7(message.get(), der); }, "PKCS#7");
}

TEST(Certificates, tell_what_is_in_them) {
    const X509Ptr certificate = Certificate(Sm2Pair());
    Bytes digest(32);
    const Bytes own = CertificateDer(certificate.get());
    EVP_Digest(own.data(), own.size(), digest.data(), nullptr, EVP_sha256(), nullptr);
    std::string fingerprint = ToHex(digest);
    for (char& digit : fingerprint) digit = static_cast<char>(std::toupper(digit));
    const std::string rest =
        "serial=0A00FF10\nnotBefore=2024-01-02T03:04:05Z\nnotAfter=2050-12-31T23:59:58Z\n"
        "fingerprint=" +
        fingerprint + "\nsubject=CN=银行\\, 9,C=CN\nissuer=O=Authority\n";
    EXPECT_EQ(InformationBlock(certificate.get(), Role::kSigning, Algorithm::kSm2),
              "type=sign\nalgorithm=SM2\n" + rest);
    EXPECT_EQ(InformationBlock(certificate.get(), Role::kEncryption, Algorithm::kRsa),
              "type=encryption\nalgorithm=RSA\n" + rest);
}

TEST(Certificates, may_have_a_subject_of_nothing) {
    const X509Ptr empty = Certificate(Sm2Pair());
    const X509NamePtr nobody(X509_NAME_new());
    X509_set_subject_name(empty.get(), nobody.get());
    EXPECT_EQ(SubjectText(empty.get()), "");
}

TEST(Certificates, come_alone_or_several_in_one_text) {
    EXPECT_EQ(Parsed(Der()), 1U);
    EXPECT_EQ(Parsed(Pkcs7({Der()})), 1U);
    const Bytes other = CertificateDer(Certificate(RsaPair()).get());
    const auto both = ParseCertificates(ToBase64(Pkcs7({other, Der()})));
    ASSERT_EQ(both.size(), 2U);
    EXPECT_EQ(CertificateDer(both[0].get()), other);
    EXPECT_EQ(CertificateDer(both[1].get()), Der());
    const std::string pem = "-----BEGIN X-----" + ToBase64(Der()) + "-----END X-----";
    const std::string more = "-----BEGIN Y-----" + ToBase64(Pkcs7({other})) + "-----END Y-----";
    EXPECT_EQ(ParseCertificates(pem + more + pem).size(), 3U);
    EXPECT_EQ(CertificateDer(StoredCertificate(Der()).get()), Der());
}

TEST(Certificates, that_cannot_be_read_are_refused) {
    DerNode inner = DerNode::Parse(Pkcs7({Der()}));
    inner.children.at(1).children.at(0).children.at(3).children.at(0).children.at(0).change =
        DerChange::kLongForm;
    const std::vector<std::pair<const char*, Bytes>> cases = {
        {"nothing", {}},
        {"a byte behind it", Der() + Bytes{0}},
        {"cut", {Der().begin(), Der().end() - 1}},
        {"PKCS#7 with a byte behind it", Pkcs7({Der()}) + Bytes{0}},
        {"PKCS#7 without a certificate", Pkcs7({})},
        {"PKCS#7 of data", Pkcs7({}, NID_pkcs7_data)},
        {"PKCS#7 without content", FromHexText("300B06092A864886F70D010702")},
        {"PKCS#7 with a certificate that is no DER", inner.Encode()},
        {"a key", PublicKeyOf(Sm2Pair())}};
    for (const auto& [name, der] : cases) {
        EXPECT_EQ(CodeOf([&, &bytes = der] { Parsed(bytes); }), kCertificateMalformed) << name;
        EXPECT_EQ(CodeOf([&, &bytes = der] { StoredCertificate(bytes); }), kStateDamaged) << name;
    }
    EXPECT_EQ(CodeOf([] { ParseCertificates("no Base64!"); }), kCertificateMalformed);
}

TEST(Certificates, belong_to_one_pair) {
    const X509Ptr certificate = Certificate(Sm2Pair());
    EXPECT_TRUE(BelongsTogether(certificate.get(), PublicKeyOf(Sm2Pair())));
    EXPECT_FALSE(
        BelongsTogether(certificate.get(), PublicKeyOf(GeneratePair(Algorithm::kSm2).get())));
    EXPECT_FALSE(BelongsTogether(certificate.get(), PublicKeyOf(RsaPair())));
    EXPECT_FALSE(BelongsTogether(certificate.get(), {}));
    EXPECT_TRUE(BelongsTogether(Certificate(RsaPair()).get(), PublicKeyOf(RsaPair())));
}

// The authority's public half is forgotten: nobody can check the signature.
TEST(OwnCertificates, are_what_a_key_that_is_made_with_them_needs) {
    const MasterKey master = MasterKey::Random();
    const std::vector<PairRecord> pairs = CertifiedPairs("KS7", master, {1000000000, 2000000000});
    ASSERT_EQ(pairs.size(), 2U);
    const unsigned usages[] = {KU_DIGITAL_SIGNATURE | KU_NON_REPUDIATION,
                               KU_KEY_ENCIPHERMENT | KU_DATA_ENCIPHERMENT};
    const char* const types[] = {"type=sign\n", "type=encryption\n"};
    for (std::size_t i = 0; i < 2; ++i) {
        const PairRecord& pair = pairs[i];
        EXPECT_EQ(pair.role, i == 0 ? Role::kSigning : Role::kEncryption);
        EXPECT_EQ(pair.algorithm, Algorithm::kSm2);
        const X509Ptr certificate = StoredCertificate(pair.certificate);
        EXPECT_TRUE(BelongsTogether(certificate.get(), pair.publicKey));
        const PKeyPtr opened = OpenPrivate(pair, pair.wrappedPrivate, "KS7", master);
        EXPECT_EQ(PublicKeyOf(opened.get()), pair.publicKey);
        EXPECT_EQ(X509_get_version(certificate.get()), X509_VERSION_3);
        EXPECT_EQ(X509_get_key_usage(certificate.get()), usages[i]);
        EXPECT_EQ(X509_get_ext_count(certificate.get()), 1);
        EXPECT_EQ(X509_EXTENSION_get_critical(X509_get_ext(certificate.get(), 0)), 1);
        EXPECT_EQ(X509_get_signature_nid(certificate.get()), NID_SM2_with_SM3);
        const ASN1_BIT_STRING* signature = nullptr;
        X509_get0_signature(&signature, nullptr, certificate.get());
        EXPECT_GE(ASN1_STRING_length(signature), 68);
        const BignumPtr number(
            ASN1_INTEGER_to_BN(X509_get0_serialNumber(certificate.get()), nullptr));
        EXPECT_EQ(BN_num_bits(number.get()), 64);
        const std::string block = InformationBlock(certificate.get(), pair.role, pair.algorithm);
        for (const char* line :
             {types[i], "notBefore=2001-09-09T01:46:40Z\n", "notAfter=2033-05-18T03:33:20Z\n",
              "subject=CN=KS7\n", "issuer=CN=Software key\n"}) {
            EXPECT_NE(block.find(line), std::string::npos) << line << block;
        }
    }
    EXPECT_NE(pairs[0].publicKey, pairs[1].publicKey);
}

X509ReqPtr RequestOf(const std::string& text) {
    const Bytes der = *FromBase64(text);
    const unsigned char* at = der.data();
    X509ReqPtr request(d2i_X509_REQ(nullptr, &at, static_cast<long>(der.size())));
    EXPECT_EQ(at, der.data() + der.size());
    return request;
}

TEST(Requests, are_signed_by_their_own_pair) {
    const X509ReqPtr sm2 = RequestOf(MakeRequest(Sm2Pair(), 3, "KS 7"));
    const X509ReqPtr rsa = RequestOf(MakeRequest(RsaPair(), 2, "KS 7"));
    for (const X509ReqPtr* request : {&sm2, &rsa}) {
        EXPECT_EQ(X509_REQ_get_version(request->get()), X509_REQ_VERSION_1);
        char name[64] = {};
        X509_NAME_oneline(X509_REQ_get_subject_name(request->get()), name, sizeof name);
        EXPECT_STREQ(name, "/CN=KS 7");
    }
    EXPECT_EQ(EVP_PKEY_eq(X509_REQ_get0_pubkey(sm2.get()), Sm2Pair()), 1);
    EXPECT_EQ(EVP_PKEY_eq(X509_REQ_get0_pubkey(rsa.get()), RsaPair()), 1);
    EXPECT_EQ(X509_REQ_get_signature_nid(sm2.get()), NID_SM2_with_SM3);
    EXPECT_EQ(X509_REQ_get_signature_nid(rsa.get()), NID_sha256WithRSAEncryption);
    EXPECT_EQ(X509_REQ_verify(rsa.get(), RsaPair()), 1);
    EXPECT_NE(X509_REQ_verify(sm2.get(), Sm2Pair()), 1) << "without its identity";
    ERR_clear_error();
    ASN1_OCTET_STRING* const identity = ASN1_OCTET_STRING_new();
    ASN1_OCTET_STRING_set(identity, reinterpret_cast<const unsigned char*>("1234567812345678"), 16);
    X509_REQ_set0_distinguishing_id(sm2.get(), identity);
    EXPECT_EQ(X509_REQ_verify(sm2.get(), Sm2Pair()), 1);
}

TEST(Requests, use_the_digest_that_their_number_names) {
    const std::vector<std::tuple<Algorithm, std::int64_t, std::string>> cases = {
        {Algorithm::kSm2, 0, "SM3"},   {Algorithm::kSm2, 1, "SM3"},    {Algorithm::kSm2, 2, "SM3"},
        {Algorithm::kSm2, 3, "SM3"},   {Algorithm::kRsa, 0, "SHA256"}, {Algorithm::kRsa, 1, "SHA1"},
        {Algorithm::kRsa, 2, "SHA256"}};
    for (const auto& [algorithm, hash, name] : cases) EXPECT_EQ(DigestName(algorithm, hash), name);
    EXPECT_EQ(FailureOf([] { DigestName(Algorithm::kRsa, 3); }),
              std::to_string(kNotSupported) + " RSA with SM3");
    for (const Algorithm algorithm : {Algorithm::kSm2, Algorithm::kRsa}) {
        EXPECT_EQ(CodeOf([&] { DigestName(algorithm, -1); }), kBadArgument);
        EXPECT_EQ(CodeOf([&] { DigestName(algorithm, 4); }), kBadArgument);
    }
}

}  // namespace

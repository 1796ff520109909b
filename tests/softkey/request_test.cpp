// Certificate requests, judged by the openssl command.
#include "softkey/store/pairs.h"
#include "token_fixture.h"

using namespace softkey;

namespace {

class RequestTest : public TokenTest {
protected:
    RequestTest() { CreateKey(); }

    // The identity is an option of SM2 alone.
    std::string Judge(const std::string& request, bool sm2 = true) {
        Write("request.csr", Pem("CERTIFICATE REQUEST", request));
        return Succeed(std::string("openssl req -in request.csr -verify -noout -text") +
                       (sm2 ? " -vfyopt distid:1234567812345678" : ""));
    }
};

void ExpectOneLineOfBase64(const std::string& text) {
    EXPECT_FALSE(text.empty());
    EXPECT_EQ(text.size() % 4, 0U);
    EXPECT_EQ(text.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz"
                                     "0123456789+/="),
              std::string::npos);
}

TEST_F(RequestTest, an_sm2_signing_request_is_verified_by_openssl) {
    const Result request = Request(1, 2, 3);
    ASSERT_EQ(request.code, kOk);
    ExpectOneLineOfBase64(request.text);
    const std::string text = Judge(request.text);
    EXPECT_NE(text.find("verify OK"), std::string::npos) << text;
    EXPECT_NE(text.find("Signature Algorithm: SM2-with-SM3"), std::string::npos) << text;
    EXPECT_NE(text.find("ASN1 OID: SM2"), std::string::npos) << text;
}

TEST_F(RequestTest, openssl_refuses_an_sm2_request_under_another_identity) {
    Write("request.csr", Pem("CERTIFICATE REQUEST", Request(1, 2, 3).text));
    int status = 0;
    const std::string output = Shell(
        "openssl req -in request.csr -verify -vfyopt distid:8765432187654321 -noout", &status);
    EXPECT_NE(output.find("failure"), std::string::npos) << output;
}

TEST_F(RequestTest, the_subject_is_the_serial_number) {
    Judge(Request(1, 2, 3).text);
    EXPECT_EQ(Succeed("openssl req -in request.csr -noout -subject"),
              std::string("subject=CN = ") + kSerial + "\n");
}

TEST_F(RequestTest, an_encryption_request_is_verified_by_openssl) {
    const std::string text = Judge(Request(3, 2, 3).text);
    EXPECT_NE(text.find("verify OK"), std::string::npos) << text;
}

TEST_F(RequestTest, an_rsa_request_has_2048_bits_and_sha256) {
    const std::string text = Judge(Request(1, 1, 2).text, false);
    EXPECT_NE(text.find("verify OK"), std::string::npos) << text;
    EXPECT_NE(text.find("2048 bit"), std::string::npos) << text;
    EXPECT_NE(text.find("sha256WithRSAEncryption"), std::string::npos) << text;
}

TEST_F(RequestTest, an_rsa_request_with_hash_1_uses_sha1) {
    Write("request.csr", Pem("CERTIFICATE REQUEST", Request(1, 1, 1).text));
    const std::string text = Succeed("openssl req -in request.csr -noout -text");
    EXPECT_NE(text.find("sha1WithRSAEncryption"), std::string::npos) << text;
}

TEST_F(RequestTest, sm2_always_uses_sm3) {
    for (const std::uint32_t hash : {0U, 1U, 2U}) {
        const std::string text = Judge(Request(1, 2, hash).text);
        EXPECT_NE(text.find("SM2-with-SM3"), std::string::npos) << hash;
    }
}

TEST_F(RequestTest, two_requests_have_two_keys) {
    EXPECT_NE(Request(1, 2, 3).text, Request(1, 2, 3).text);
    EXPECT_EQ(PairTable(*OpenStore()).Of(kSerial).size(), 2U);
}

TEST_F(RequestTest, rsa_for_encryption_is_not_supported) {
    EXPECT_EQ(Request(3, 1, 2).code, kNotSupported);
    EXPECT_EQ(Request(1, 1, 3).code, kNotSupported);  // RSA with SM3
}

TEST_F(RequestTest, numbers_without_a_meaning_are_refused_before_the_pin_is_asked) {
    SetPin("wrong-pin");
    EXPECT_EQ(Request(0, 2, 3).code, kBadArgument);
    EXPECT_EQ(Request(2, 2, 3).code, kBadArgument);
    EXPECT_EQ(Request(1, 0, 3).code, kBadArgument);
    EXPECT_EQ(Request(1, 3, 3).code, kBadArgument);
    EXPECT_EQ(Request(1, 2, 4).code, kBadArgument);
    EXPECT_EQ(Request(1, 2, static_cast<std::uint32_t>(-7)).code, kBadArgument);
    EXPECT_EQ(TriesLeft(), kMaxTries);
}

TEST_F(RequestTest, a_missing_place_for_the_request_is_refused) {
    std::string serial = kSerial;
    KestaRequestRecord record{1, 2, 3, 0, {}};
    char* text = nullptr;
    EXPECT_EQ(token.GMCreatePKCS10(serial.data(), 1, 2, 3, nullptr, nullptr, 0), kBadArgument);
    EXPECT_EQ(token.GMCreatePKCS10Ex(serial.data(), &record, nullptr, 1, nullptr, 0), kBadArgument);
    EXPECT_EQ(token.GMCreatePKCS10Ex(serial.data(), nullptr, &text, 1, nullptr, 0), kBadArgument);
}

TEST_F(RequestTest, a_paired_record_answers_a_signing_and_an_encryption_request) {
    const Result both = PairedRequest();
    ASSERT_EQ(both.code, kOk);
    const std::size_t middle = both.text.find(';');
    ASSERT_NE(middle, std::string::npos);
    EXPECT_EQ(both.text.find(';', middle + 1), std::string::npos);
    Judge(both.text.substr(0, middle));
    Judge(both.text.substr(middle + 1));
    const auto pairs = PairTable(*OpenStore()).Of(kSerial);
    ASSERT_EQ(pairs.size(), 2U);
    EXPECT_EQ(pairs[1].role, Role::kSigning);
    EXPECT_EQ(pairs[0].role, Role::kTemporary);
}

TEST_F(RequestTest, a_record_that_is_not_paired_answers_one_request) {
    std::string serial = kSerial;
    KestaRequestRecord record{1, 2, 3, 0, {}};
    char* text = nullptr;
    ASSERT_EQ(token.GMCreatePKCS10Ex(serial.data(), &record, &text, 1, nullptr, 0), kOk);
    const std::unique_ptr<char[]> owner(text);
    Judge(text);
}

TEST_F(RequestTest, a_key_that_was_not_unlocked_asks_for_its_pin) {
    SetPin("000000");
    EXPECT_EQ(Request(1, 2, 3).code, kPinWrong);
    EXPECT_EQ(TriesLeft(), kMaxTries - 1);
    EXPECT_TRUE(PairTable(*OpenStore()).Of(kSerial).empty());
}

TEST_F(RequestTest, the_newest_eight_pairs_wait_for_their_certificates) {
    const Result oldest = Request(1, 2, 3);
    for (int i = 0; i < 8; ++i) ASSERT_EQ(Request(1, 2, 3).code, kOk);
    EXPECT_EQ(PairTable(*OpenStore()).Of(kSerial).size(), 8U);
    EXPECT_EQ(WriteCertificate(Issue(oldest.text)), kCertificateMismatch);
}

TEST_F(RequestTest, a_pair_with_its_certificate_and_one_of_the_other_kind_do_not_wait) {
    Enrol(1, 2, 3);
    ASSERT_EQ(Request(3, 2, 3).code, kOk);
    for (int i = 0; i < 9; ++i) ASSERT_EQ(Request(1, 2, 3).code, kOk);
    EXPECT_EQ(PairTable(*OpenStore()).Of(kSerial).size(), 1U + 1U + 8U);
    EXPECT_EQ(Certificate(1).code, kOk);
}

TEST_F(RequestTest, a_record_has_two_values_for_paired_and_none_for_rsa) {
    std::string serial = kSerial;
    char* text = nullptr;
    const auto make = [&](KestaRequestRecord record, std::uint32_t records) {
        return token.GMCreatePKCS10Ex(serial.data(), &record, &text, records, nullptr, 0);
    };
    EXPECT_EQ(make({1, 2, 3, 2, {}}, 1), kBadArgument);
    EXPECT_EQ(make({1, 2, 3, 0, {}}, 0), kBadArgument);
    EXPECT_EQ(make({1, 2, 3, 0, {}}, 2), kBadArgument);
    EXPECT_EQ(make({1, 1, 2, 1, {}}, 1), kNotSupported);
    EXPECT_EQ(make({3, 1, 2, 0, {}}, 1), kNotSupported);
    EXPECT_EQ(text, nullptr);
    EXPECT_TRUE(PairTable(*OpenStore()).Of(kSerial).empty());
}

}  // namespace

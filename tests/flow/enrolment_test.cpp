// From an empty key to a certified one, with OpenSSL as the authority.
#include "key_test.h"
#include "softkey/codes.h"

namespace {

using namespace flow;

constexpr char kRsaRequest[] = "CertType(1)KeyType(1)HashType(2)";

class Enrolment : public KeyTest {};

TEST_F(Enrolment, finds_the_key_by_its_serial_number) {
    EXPECT_EQ(PrintNumber().text, kSerial);
}

TEST_F(Enrolment, makes_an_SM2_request_that_its_own_key_signed) {
    const Request request(OneRequest(kSigningRequest));
    EXPECT_TRUE(EVP_PKEY_is_a(request.PublicKey(), "SM2"));
    EXPECT_TRUE(request.IsSignedByItsKey());
}

TEST_F(Enrolment, makes_an_RSA_request_that_its_own_key_signed) {
    const Request request(OneRequest(kRsaRequest));
    EXPECT_EQ(EVP_PKEY_get_bits(request.PublicKey()), 2048);
    EXPECT_TRUE(request.IsSignedByItsKey());
}

TEST_F(Enrolment, makes_a_request_of_its_own_for_each_group) {
    const std::vector<std::string> requests = Split(OneRequest(kBothRequests), "||");
    ASSERT_EQ(requests.size(), 2U);
    const Request signing(requests[0]), encryption(requests[1]);
    EXPECT_TRUE(signing.IsSignedByItsKey());
    EXPECT_TRUE(encryption.IsSignedByItsKey());
    EXPECT_NE(EVP_PKEY_eq(signing.PublicKey(), encryption.PublicKey()), 1);
}

TEST_F(Enrolment, fetches_the_probed_request_without_asking_for_the_PIN_again) {
    int length = 0;
    ASSERT_EQ(GenerateCertRequest(kSerial, kSigningRequest, nullptr, &length), 0);
    EnterPin("wrong-pin");
    std::string request(static_cast<std::size_t>(length), '\0');
    ASSERT_EQ(GenerateCertRequest(kSerial, kSigningRequest, request.data(), &length), 0);
    EXPECT_EQ(length, static_cast<int>(request.size()) - 1);
    request.pop_back();
    EXPECT_TRUE(Request(request).IsSignedByItsKey());
}

TEST_F(Enrolment, makes_no_request_with_a_wrong_PIN) {
    EnterPin("000000");
    EXPECT_EQ(MakeRequests(kSerial, kSigningRequest).code, softkey::kPinWrong);
    EXPECT_NE(Softkey({"show"}).find("5 of 6 tries left"), std::string::npos);
    EXPECT_EQ(Softkey({"show", "--json"}).find("SM2"), std::string::npos);
}

TEST_F(Enrolment, locks_after_six_wrong_PINs_until_the_issuer_unlocks_it) {
    EnterPin("000000");
    for (int tries = 1; tries <= 5; ++tries) EXPECT_EQ(VerifyPIN(kSerial), softkey::kPinWrong);
    VerifyPIN(kSerial);
    EnterPin(kPin);
    EXPECT_EQ(MakeRequests(kSerial, kSigningRequest).code, softkey::kPinLocked);
    Softkey({"unlock"});
    EXPECT_EQ(MakeRequests(kSerial, kSigningRequest).code, 0);
}

TEST_F(Enrolment, gives_back_the_signing_certificate_that_was_imported) {
    const Request request(OneRequest(kSigningRequest));
    const std::string certificate = authority_.Issue(request.PublicKey(), "Signer");
    ASSERT_EQ(ImportX509Cert(kSerial, certificate.c_str()), 0);
    EXPECT_EQ(ReadCertificate(kSerial, kSigning, kSm2).text, certificate);
    EXPECT_TRUE(
        Certificate(ReadCertificate(kSerial, kSigning, kSm2).text).IsFor(request.PublicKey()));
    EXPECT_EQ(ReadName(kSerial, kSigning, kSm2).text, "CN=Signer");
}

TEST_F(Enrolment, takes_a_certificate_in_PEM_armour_with_line_breaks) {
    const Request request(OneRequest(kSigningRequest));
    const std::string certificate = authority_.Issue(request.PublicKey(), "Signer");
    ASSERT_EQ(ImportX509Cert(kSerial, PemOf(certificate).c_str()), 0);
    EXPECT_EQ(ReadCertificate(kSerial, kSigning, kSm2).text, certificate);
}

TEST_F(Enrolment, takes_an_RSA_certificate) {
    const Request request(OneRequest(kRsaRequest));
    const std::string certificate = authority_.Issue(request.PublicKey(), "Signer");
    ASSERT_EQ(ImportX509Cert(kSerial, certificate.c_str()), 0);
    EXPECT_EQ(ReadCertificate(kSerial, kSigning, kRsa).text, certificate);
}

TEST_F(Enrolment, refuses_a_certificate_for_another_key_with_a_message) {
    OneRequest(kSigningRequest);
    const Owned<EVP_PKEY> other = NewSm2Pair();
    const std::string certificate = authority_.Issue(other.get(), "Stranger");
    ASSERT_EQ(SetLanguage("en", kSerial), 0);
    EXPECT_EQ(ImportX509Cert(kSerial, certificate.c_str()), softkey::kCertificateMismatch);
    EXPECT_EQ(Message(softkey::kCertificateMismatch).text,
              "the certificate belongs to no key pair of this key");
    EXPECT_EQ(ReadCertificate(kSerial, kSigning, kSm2).code, softkey::kNoCertificate);
}

class EscrowedKey : public KeyTest, public testing::WithParamInterface<bool> {};

TEST_P(EscrowedKey, decrypts_what_is_encrypted_for_its_certificate) {
    const std::string request = OneRequest(kEncryptionRequest);
    const Owned<EVP_PKEY> pair = NewSm2Pair();
    const std::string certificate = authority_.Issue(pair.get(), "Recipient");
    std::string key = Escrow(request, pair.get(), GetParam());
    key.insert(key.size() / 2, ",");
    ASSERT_EQ(ImportEncX509Cert(kSerial, certificate.c_str(), key.c_str()), 0);
    const Certificate onKey(ReadCertificate(kSerial, kEncryption, kSm2).text);
    EXPECT_TRUE(onKey.IsFor(pair.get()));
    EXPECT_EQ(Decrypt(kSerial, onKey.Encrypt("for your eyes")).text, "for your eyes");
}

INSTANTIATE_TEST_SUITE_P(Header, EscrowedKey, testing::Bool(),
                         [](const testing::TestParamInfo<bool>& with) {
                             return with.param ? "with" : "without";
                         });

TEST_F(Enrolment, refuses_a_key_sealed_to_another_request_and_leaves_out_its_certificate) {
    OneRequest(kEncryptionRequest);
    const Owned<EVP_PKEY> pair = NewSm2Pair();
    const std::string certificate = authority_.Issue(pair.get(), "Recipient");
    const std::string elsewhere = "CertType(3)KeyType(2)HashType(3)";
    Softkey({"remove", kSerial});
    Softkey({"create", "--serial", "OTHER001"});
    const Answer other = MakeRequests("OTHER001", elsewhere);
    ASSERT_EQ(other.code, 0);
    const std::string key = Escrow(other.text, pair.get());
    Softkey({"insert", kSerial});
    EXPECT_EQ(ImportEncX509Cert(kSerial, certificate.c_str(), key.c_str()),
              softkey::kEnvelopeMismatch);
    EXPECT_EQ(ReadCertificate(kSerial, kEncryption, kSm2).code, softkey::kNoCertificate);
}

TEST_F(Enrolment, is_there_for_the_next_process) {
    const Finished first = InAnotherProcess([&](std::string& output) {
        Enrol();
        output = signingCertificate_ + "\n" + encryptionCertificate_;
        return HasFatalFailure() || HasNonfatalFailure() ? 1 : 0;
    });
    ASSERT_EQ(first.status, 0);
    const std::vector<std::string> made = Split(first.output, "\n");
    EXPECT_EQ(ReadCertificate(kSerial, kSigning, kSm2).text, made[0]);
    EXPECT_EQ(ReadCertificate(kSerial, kEncryption, kSm2).text, made[1]);
    const std::string cipher = Certificate(made[1]).Encrypt("still here");
    EXPECT_EQ(Decrypt(kSerial, cipher).text, "still here");
}

TEST_F(Enrolment, tells_that_the_key_is_absent) {
    Softkey({"remove"});
    EXPECT_EQ(PrintNumber().code, softkey::kKeyAbsent);
    EXPECT_EQ(MakeRequests(kSerial, kSigningRequest).code, softkey::kKeyAbsent);
}

}  // namespace

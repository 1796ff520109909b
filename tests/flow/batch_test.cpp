// The one-call enrolment: a pair of requests, and a bundle of what the authority answers.
#include "key_test.h"
#include "softkey/codes.h"

namespace {

using namespace flow;

class BatchEnrolment : public KeyTest {
protected:
    // The request for signing and its companion for encryption, as the software key joins them.
    std::vector<std::string> PairOfRequests(int initialise = 0) const {
        const Answer made = MakeBatchRequests(kSerial, initialise, kBothRequests);
        EXPECT_EQ(made.code, 0) << Message(made.code).text;
        return Split(made.text, ";");
    }
};

// What an authority answers to a pair of requests.
struct Issued {
    std::string signing;
    std::string key;
    std::string encryption;

    std::string Bundle() const {
        return "SignCert(" + signing + ")|EncCert(" + encryption + ")|EncPriKey(" + key + ")";
    }
};

TEST_F(BatchEnrolment, folds_both_requests_into_one_answer_signed_by_two_keys) {
    const std::vector<std::string> requests = PairOfRequests();
    ASSERT_EQ(requests.size(), 2U);
    const Request signing(requests[0]), encryption(requests[1]);
    EXPECT_TRUE(signing.IsSignedByItsKey());
    EXPECT_TRUE(encryption.IsSignedByItsKey());
    EXPECT_NE(EVP_PKEY_eq(signing.PublicKey(), encryption.PublicKey()), 1);
}

TEST_F(BatchEnrolment, joins_requests_that_are_no_pair_by_bars) {
    const Answer made = MakeBatchRequests(
        kSerial, 0, "CertType(1)KeyType(1)HashType(2)|CertType(1)KeyType(2)HashType(3)");
    const std::vector<std::string> requests = Split(made.text, "||");
    ASSERT_EQ(requests.size(), 2U);
    EXPECT_TRUE(EVP_PKEY_is_a(Request(requests[0]).PublicKey(), "RSA"));
    EXPECT_TRUE(EVP_PKEY_is_a(Request(requests[1]).PublicKey(), "SM2"));
}

TEST_F(BatchEnrolment, loses_what_the_key_held_when_it_initialises) {
    Enrol();
    ASSERT_EQ(ReadCertificate(kSerial, kSigning, kSm2).code, 0);
    EXPECT_EQ(PairOfRequests(1).size(), 2U);
    EXPECT_EQ(ReadCertificate(kSerial, kSigning, kSm2).code, softkey::kNoCertificate);
}

TEST_F(BatchEnrolment, keeps_what_the_key_holds_when_it_does_not_initialise) {
    Enrol();
    PairOfRequests();
    EXPECT_EQ(ReadCertificate(kSerial, kSigning, kSm2).text, signingCertificate_);
}

TEST_F(BatchEnrolment, imports_a_bundle_and_the_key_decrypts_and_signs_with_it) {
    const std::vector<std::string> requests = PairOfRequests();
    ASSERT_EQ(requests.size(), 2U);
    const Owned<EVP_PKEY> pair = NewSm2Pair();
    const Issued issued{authority_.Issue(Request(requests[0]).PublicKey(), "Signer"),
                        Escrow(requests[1], pair.get(), true),
                        authority_.Issue(pair.get(), "Recipient")};
    ASSERT_EQ(Batch_ImportX509Cert(kSerial, issued.Bundle().c_str()), 0);
    EXPECT_EQ(ReadCertificate(kSerial, kSigning, kSm2).text, issued.signing);
    EXPECT_EQ(ReadCertificate(kSerial, kEncryption, kSm2).text, issued.encryption);
    const std::string cipher = Certificate(issued.encryption).Encrypt("bundle");
    EXPECT_EQ(Decrypt(kSerial, cipher).text, "bundle");
    const Answer signature = SignText(kSerial, kSm2, kSm3, "bundle", "sign?");
    EXPECT_TRUE(Certificate(issued.signing).Verifies("bundle", signature.text, "SM3"));
}

TEST_F(BatchEnrolment, takes_a_bundle_that_is_wrapped_into_lines) {
    const std::vector<std::string> requests = PairOfRequests();
    ASSERT_EQ(requests.size(), 2U);
    const Owned<EVP_PKEY> pair = NewSm2Pair();
    const Issued issued{authority_.Issue(Request(requests[0]).PublicKey(), "Signer"),
                        Escrow(requests[1], pair.get()), authority_.Issue(pair.get(), "Recipient")};
    std::string wrapped = issued.Bundle();
    for (std::size_t at = 64; at < wrapped.size(); at += 66) wrapped.insert(at, "\r\n");
    ASSERT_EQ(Batch_ImportX509Cert(kSerial, wrapped.c_str()), 0);
    EXPECT_EQ(ReadCertificate(kSerial, kEncryption, kSm2).text, issued.encryption);
}

TEST_F(BatchEnrolment, keeps_the_signing_certificate_when_the_escrowed_key_is_refused) {
    const std::vector<std::string> requests = PairOfRequests();
    ASSERT_EQ(requests.size(), 2U);
    const Owned<EVP_PKEY> pair = NewSm2Pair();
    const Issued issued{authority_.Issue(Request(requests[0]).PublicKey(), "Signer"),
                        "bm9uc2Vuc2U=", authority_.Issue(pair.get(), "Recipient")};
    EXPECT_EQ(Batch_ImportX509Cert(kSerial, issued.Bundle().c_str()), softkey::kEnvelopeMalformed);
    EXPECT_EQ(ReadCertificate(kSerial, kSigning, kSm2).text, issued.signing);
    EXPECT_EQ(ReadCertificate(kSerial, kEncryption, kSm2).code, softkey::kNoCertificate);
}

TEST_F(BatchEnrolment, takes_a_single_certificate_for_a_bundle) {
    const Request request(OneRequest(kSigningRequest));
    const std::string certificate = authority_.Issue(request.PublicKey(), "Signer");
    ASSERT_EQ(Batch_ImportX509Cert(kSerial, certificate.c_str()), 0);
    EXPECT_EQ(ReadCertificate(kSerial, kSigning, kSm2).text, certificate);
}

}  // namespace

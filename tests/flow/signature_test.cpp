// What an enrolled key signs and decrypts, judged by OpenSSL with the certificate just issued.
#include <openssl/evp.h>

#include <thread>

#include "key_test.h"
#include "softkey/codes.h"

namespace {

using namespace flow;

class EnrolledKey : public KeyTest {
protected:
    EnrolledKey() { Enrol(); }

    bool ScreenWaits() const {
        return Softkey({"screen"}).find("waiting for the button") != std::string::npos;
    }
};

TEST_F(EnrolledKey, signs_a_text_for_its_certificate_and_no_other_text) {
    const Answer signature = SignText(kSerial, kSm2, kSm3, "pay 12.50", "Pay 12.50?");
    ASSERT_EQ(signature.code, 0) << Message(signature.code).text;
    EXPECT_TRUE(Certificate(signingCertificate_).Verifies("pay 12.50", signature.text, "SM3"));
    EXPECT_FALSE(Certificate(signingCertificate_).Verifies("pay 99.50", signature.text, "SM3"));
}

TEST_F(EnrolledKey, shows_the_warning_and_signs_when_the_button_is_pressed) {
    Softkey({"button", "ask"});
    Answer signature{-1, {}};
    std::thread signer(
        [&] { signature = SignText(kSerial, kSm2, kSm3, "pay 12.50", "Pay 12.50 to Ada?"); });
    EXPECT_TRUE(Eventually([&] { return ScreenWaits(); }));
    EXPECT_NE(Softkey({"screen"}).find("Pay 12.50 to Ada?"), std::string::npos);
    Softkey({"button", "press"});
    signer.join();
    EXPECT_EQ(signature.code, 0);
    EXPECT_TRUE(Certificate(signingCertificate_).Verifies("pay 12.50", signature.text, "SM3"));
}

TEST_F(EnrolledKey, signs_nothing_when_the_button_refuses) {
    Softkey({"button", "refuse"});
    const Answer signature = SignText(kSerial, kSm2, kSm3, "pay 12.50", "Pay 12.50?");
    EXPECT_EQ(signature.code, softkey::kButtonRefused);
    EXPECT_EQ(signature.text, "");
}

TEST_F(EnrolledKey, signs_a_hash_as_it_stands) {
    const std::string hash = "0123456789abcdef0123456789abcdef";
    const Answer signature = SignDigest(kSerial, kSm2, kSm3, ToBase64(hash));
    ASSERT_EQ(signature.code, 0) << Message(signature.code).text;
    EXPECT_TRUE(Certificate(signingCertificate_).VerifiesDigest(hash, signature.text));
}

TEST_F(EnrolledKey, signs_each_text_of_a_list) {
    const Answer signatures = SignList(kSerial, kSm2, kSm3, "first||second||third");
    ASSERT_EQ(signatures.code, 0) << Message(signatures.code).text;
    const std::vector<std::string> each = Split(signatures.text, "||");
    ASSERT_EQ(each.size(), 3U);
    const Certificate certificate(signingCertificate_);
    EXPECT_TRUE(certificate.Verifies("first", each[0], "SM3"));
    EXPECT_TRUE(certificate.Verifies("second", each[1], "SM3"));
    EXPECT_TRUE(certificate.Verifies("third", each[2], "SM3"));
}

TEST_F(EnrolledKey, signs_with_RSA_beside_SM2) {
    const Request request(OneRequest("CertType(1)KeyType(1)HashType(2)"));
    const std::string certificate = authority_.Issue(request.PublicKey(), "RSA signer");
    ASSERT_EQ(ImportX509Cert(kSerial, certificate.c_str()), 0);
    const Answer signature = SignText(kSerial, kRsa, kSha256, "text", "sign?");
    ASSERT_EQ(signature.code, 0) << Message(signature.code).text;
    EXPECT_TRUE(Certificate(certificate).Verifies("text", signature.text, "SHA256"));
}

TEST_F(EnrolledKey, decrypts_a_cipher_text_wrapped_into_lines) {
    std::string cipher = Certificate(encryptionCertificate_).Encrypt("a letter");
    for (std::size_t at = 64; at < cipher.size(); at += 66) cipher.insert(at, "\r\n");
    EXPECT_EQ(Decrypt(kSerial, cipher).text, "a letter");
}

TEST_F(EnrolledKey, decrypts_nothing_that_was_encrypted_for_another_key) {
    const Owned<EVP_PKEY> other = NewSm2Pair();
    const Certificate stranger(authority_.Issue(other.get(), "Stranger"));
    EXPECT_EQ(Decrypt(kSerial, stranger.Encrypt("a letter")).code, softkey::kCipherMalformed);
}

TEST_F(EnrolledKey, says_how_much_room_a_decrypted_text_needs) {
    const std::string cipher = Certificate(encryptionCertificate_).Encrypt("a letter");
    char plain[16] = "";
    unsigned length = 4;
    EXPECT_EQ(AsymDec(kSerial, 3, 2, cipher.c_str(), plain, &length), KESTA_BUFFER_TOO_SMALL);
    EXPECT_EQ(length, 8U);
    EXPECT_EQ(AsymDec(kSerial, 3, 2, cipher.c_str(), plain, &length), 0);
    EXPECT_STREQ(plain, "a letter");
}

TEST_F(EnrolledKey, signs_nothing_when_it_is_pulled_out_before_the_button) {
    Softkey({"button", "ask"});
    Answer signature{-1, {}};
    std::thread signer([&] { signature = SignText(kSerial, kSm2, kSm3, "text", "sign?"); });
    EXPECT_TRUE(Eventually([&] { return ScreenWaits(); }));
    Softkey({"remove"});
    signer.join();
    EXPECT_EQ(signature.code, softkey::kKeyRemoved);
    EXPECT_EQ(signature.text, "");
}

}  // namespace

// Decryption with the key pairs of a key: which pair does it, what a cipher text must be, and the
// buffer for the text.
#include "softkey/crypto/base64.h"
#include "softkey/crypto/openssl_types.h"
#include "token_fixture.h"

using namespace softkey;

namespace {

class DecryptionTest : public TokenTest {
protected:
    DecryptionTest() { CreateKey(); }
    static Bytes EncryptTo(const std::string& request, const std::string& text) {
        const Bytes der = *FromBase64(request);
        const unsigned char* at = der.data();
        const X509ReqPtr parsed(d2i_X509_REQ(nullptr, &at, static_cast<long>(der.size())));
        const PKeyCtxPtr ctx(
            EVP_PKEY_CTX_new_from_pkey(nullptr, X509_REQ_get0_pubkey(parsed.get()), nullptr));
        Bytes cipher(512);
        std::size_t length = cipher.size();
        EXPECT_EQ(EVP_PKEY_encrypt_init(ctx.get()), 1);
        EXPECT_EQ(
            EVP_PKEY_encrypt(ctx.get(), cipher.data(), &length,
                             reinterpret_cast<const unsigned char*>(text.data()), text.size()),
            1);
        cipher.resize(length);
        return cipher;
    }
    std::string SealedToRequest(const std::string& request, const std::string& text) {
        Write("request.csr", Pem("CERTIFICATE REQUEST", request));
        Write("plain", text);
        return Succeed(
            "openssl req -in request.csr -noout -pubkey > key.pub && openssl pkeyutl -encrypt"
            " -pubin -inkey key.pub -in plain | openssl base64 -A");
    }
};

TEST_F(DecryptionTest, an_rsa_signing_pair_decrypts_pkcs1) {
    const std::string cipher = SealedToRequest(Request(1, 1, 2).text, "for rsa");
    EXPECT_EQ(DecryptText(cipher, 1, 1).text, "for rsa");
    EXPECT_EQ(DecryptText(cipher).code, kNoKeyPair);
}

TEST_F(DecryptionTest, an_rsa_cipher_text_has_the_length_of_the_modulus) {
    const std::string request = Request(1, 1, 2).text;
    // About one in 200 begins with a zero, which must not be left out.
    Bytes bytes;
    for (int i = 0; i < 5000 && (bytes.empty() || bytes.at(0) != 0); ++i) {
        bytes = EncryptTo(request, "text");
    }
    ASSERT_EQ(bytes.at(0), 0);
    EXPECT_EQ(DecryptText(ToBase64(bytes), 1, 1).text, "text");
    EXPECT_EQ(DecryptText(ToBase64(bytes.data() + 1, bytes.size() - 1), 1, 1).code,
              kCipherMalformed);
}

TEST_F(DecryptionTest, an_empty_rsa_text_is_a_text) {
    const Bytes cipher = EncryptTo(Request(1, 1, 2).text, "");
    const Result plain = DecryptText(ToBase64(cipher), 1, 1);
    EXPECT_EQ(plain.code, kOk);
    EXPECT_EQ(plain.text, "");
}

TEST_F(DecryptionTest, an_sm2_signing_pair_does_not_decrypt) {
    const std::string cipher = SealedToRequest(Request(1, 2, 3).text, "for sm2");
    EXPECT_EQ(DecryptText(cipher, 1, 2).code, kNotSupported);
    EXPECT_EQ(DecryptText(cipher, 2, 2).code, kBadArgument);
}

TEST_F(DecryptionTest, a_text_that_is_no_cipher_is_refused) {
    ASSERT_EQ(ImportKey(Escrow(Request(3, 2, 3).text)), kOk);
    EXPECT_EQ(DecryptText("").code, kCipherMalformed);
    EXPECT_EQ(DecryptText("no Base64!").code, kCipherMalformed);
    EXPECT_EQ(DecryptText("MAA=").code, kCipherMalformed);
    EXPECT_EQ(DecryptText(std::string(400, 'A')).code, kCipherMalformed);
}

TEST_F(DecryptionTest, the_buffer_takes_the_text_and_a_nul) {
    const Result request = Request(3, 2, 3);
    ASSERT_EQ(ImportKey(Escrow(request.text)), kOk);
    Write("plain", "eight ch");
    std::string cipher = Succeed(
        "openssl pkey -in enc.key -pubout -out enc.pub && openssl pkeyutl -encrypt -pubin -inkey"
        " enc.pub -in plain | openssl base64 -A");
    std::string serial = kSerial;
    std::string buffer(20, '#');
    std::uint32_t length = 8;
    EXPECT_EQ(token.GMUSBKeyAsymDec2(serial.data(), 0, 0, cipher.data(), buffer.data(), &length),
              kBufferTooSmall);
    EXPECT_EQ(length, 9U);
    EXPECT_EQ(buffer, std::string(20, '#'));
    EXPECT_EQ(token.GMUSBKeyAsymDec2(serial.data(), 0, 0, cipher.data(), buffer.data(), &length),
              kOk);
    EXPECT_EQ(length, 8U);
    EXPECT_STREQ(buffer.c_str(), "eight ch");
}

}  // namespace

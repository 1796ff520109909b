// Escrowed encryption pairs: the digital envelope and its import.
#include "softkey/crypto/envelope.h"

#include <array>

#include "softkey/crypto/base64.h"
#include "softkey/store/pairs.h"
#include "token_fixture.h"

using namespace softkey;

namespace {

class EnvelopeTest : public TokenTest {
protected:
    EnvelopeTest() { CreateKey(); }

    // What openssl seals to the escrowed pair's public half.
    std::string SealedByOpenssl(const std::string& text) {
        Write("plain", text);
        return Succeed(
            "openssl pkey -in enc.key -pubout -out enc.pub && openssl pkeyutl -encrypt -pubin"
            " -inkey enc.pub -in plain | openssl base64 -A");
    }

    std::string EncryptionCertificate(const std::string& request) {
        MakeAuthority();
        Write("enc.csr", Pem("CERTIFICATE REQUEST", request));
        return Succeed(
            "openssl pkey -in enc.key -pubout -out enc.pub && openssl x509 -req -in enc.csr"
            " -force_pubkey enc.pub -CA ca.pem -CAkey ca.key -CAcreateserial -sm3 -sigopt"
            " distid:1234567812345678 -vfyopt distid:1234567812345678 -outform DER 2>log"
            " | openssl base64 -A");
    }
};

TEST_F(EnvelopeTest, an_escrowed_pair_decrypts_what_openssl_encrypted_to_it) {
    const Result request = Request(3, 2, 3);
    ASSERT_EQ(ImportKey(Escrow(request.text)), kOk);
    EXPECT_EQ(DecryptText(SealedByOpenssl("to be kept")).text, "to be kept");
}

TEST_F(EnvelopeTest, an_envelope_has_the_shape_that_the_standard_gives_it) {
    Write("envelope", Escrow(Request(3, 2, 3).text));
    const std::string shape =
        Succeed("openssl base64 -d -A -in envelope | openssl asn1parse -inform DER");
    EXPECT_NE(shape.find("sm4-ecb"), std::string::npos) << shape;
    // Point and number, each with the byte that counts unused bits.
    EXPECT_NE(shape.find("l=  66 prim: BIT STRING"), std::string::npos) << shape;
    EXPECT_NE(shape.find("l=  33 prim: BIT STRING"), std::string::npos) << shape;
}

TEST_F(EnvelopeTest, of_a_paired_request_the_second_is_the_recipient) {
    const Result both = PairedRequest();
    EXPECT_EQ(ImportKey(Escrow(both.text)), kOk);
    EXPECT_EQ(ImportKey(Escrow(both.text.substr(0, both.text.find(';')))), kEnvelopeMismatch);
}

TEST_F(EnvelopeTest, a_request_in_pem_is_a_recipient) {
    const std::string pem = Pem("CERTIFICATE REQUEST", Request(3, 2, 3).text);
    EXPECT_EQ(ImportKey(Escrow(pem)), kOk);
}

TEST_F(EnvelopeTest, a_public_key_in_pem_is_a_recipient) {
    Write("request.csr", Pem("CERTIFICATE REQUEST", Request(3, 2, 3).text));
    EXPECT_EQ(ImportKey(Escrow(Succeed("openssl req -in request.csr -noout -pubkey"))), kOk);
}

TEST_F(EnvelopeTest, texts_that_are_no_keys_are_named) {
    Succeed("openssl genpkey -algorithm SM2 -out enc.key");
    const std::string key = Read("enc.key");
    const std::string request = Request(3, 2, 3).text;
    const std::string rsa = Succeed("openssl genpkey -quiet -algorithm RSA 2>log");
    Write("rsa.key", rsa);
    const std::string toRsa = Succeed("openssl pkey -in rsa.key -pubout");
    constexpr const char* kNoRecipient =
        "the recipient is neither a certificate request nor a public key";
    constexpr const char* kNoPair = "the pair to seal is no unencrypted private key in PEM";
    const std::vector<std::array<std::string, 3>> cases = {
        {"nonsense", key, kNoRecipient},          {"", key, kNoRecipient},
        {request, "nonsense", kNoPair},           {request, "", kNoPair},
        {toRsa, key, "the recipient is not SM2"}, {request, rsa, "the pair to seal is not SM2"},
    };
    for (const auto& [to, pair, words] : cases) {
        try {
            SealEnvelopeText(to, pair);
            ADD_FAILURE() << "sealed " << pair << " to " << to;
        } catch (const Failure& failure) {
            EXPECT_EQ(failure.code(), kBadArgument);
            EXPECT_EQ(failure.detail(), words);
        }
    }
}

TEST_F(EnvelopeTest, an_rsa_key_is_not_sealed) {
    const std::string request = Request(3, 2, 3).text;
    const std::string rsa = Succeed("openssl genpkey -quiet -algorithm RSA 2>log");
    EXPECT_THROW(SealEnvelopeText(request, rsa), Failure);
}

TEST_F(EnvelopeTest, an_encryption_certificate_goes_with_its_escrowed_pair) {
    const std::string signing = Enrol(1, 2, 3);
    const Result request = Request(3, 2, 3);
    ASSERT_EQ(ImportKey(Escrow(request.text)), kOk);
    const std::string certificate = EncryptionCertificate(request.text);
    EXPECT_EQ(WriteCertificate(certificate), kOk);
    EXPECT_EQ(Certificate(3, 2).text, certificate);
    EXPECT_EQ(Certificate(0).text, signing) << "of both kinds";
    const auto pairs = PairTable(*OpenStore()).Of(kSerial);
    ASSERT_EQ(pairs.size(), 2U) << "the temporary pair is spent";
    EXPECT_EQ(pairs[0].role, Role::kEncryption);
}

TEST_F(EnvelopeTest, an_import_may_be_repeated_until_the_certificate_is_there) {
    const Result request = Request(3, 2, 3);
    const std::string envelope = Escrow(request.text);
    ASSERT_EQ(ImportKey(envelope), kOk);
    EXPECT_EQ(ImportKey(envelope), kOk);
    EXPECT_EQ(WriteCertificate(EncryptionCertificate(request.text)), kOk);
}

TEST_F(EnvelopeTest, a_new_escrowed_pair_takes_the_place_of_the_old_one) {
    const Result request = Request(3, 2, 3);
    ASSERT_EQ(ImportKey(Escrow(request.text)), kOk);
    const std::string old = SealedByOpenssl("for the old pair");
    ASSERT_EQ(ImportKey(Escrow(request.text)), kOk);
    EXPECT_EQ(DecryptText(old).code, kCipherMalformed);
    EXPECT_EQ(DecryptText(SealedByOpenssl("for the new pair")).text, "for the new pair");
}

TEST_F(EnvelopeTest, an_envelope_for_an_earlier_request_opens_too) {
    const Result earlier = Request(3, 2, 3);
    ASSERT_EQ(Request(3, 2, 3).code, kOk);
    EXPECT_EQ(ImportKey(Escrow(earlier.text)), kOk);
}

TEST_F(EnvelopeTest, an_envelope_for_another_key_is_refused) {
    const std::string foreign = Escrow(Request(3, 2, 3).text);
    ASSERT_EQ(token.DelCertAndTempKey(kSerial, 0, 0), kOk);
    EXPECT_EQ(ImportKey(foreign), kNoKeyPair);
    ASSERT_EQ(Request(3, 2, 3).code, kOk);
    EXPECT_EQ(ImportKey(foreign), kEnvelopeMismatch);
}

TEST_F(EnvelopeTest, halves_that_do_not_belong_together_are_refused) {
    const std::string request = Request(3, 2, 3).text;
    const Bytes one = *FromBase64(Escrow(request));
    const Bytes other = *FromBase64(Escrow(request));
    // The last 2 + 33 bytes are the private number, under an SM4 key that the rest holds.
    Bytes mixed(one.begin(), one.end() - 35);
    mixed.insert(mixed.end(), other.end() - 35, other.end());
    EXPECT_EQ(ImportKey(ToBase64(mixed)), kEnvelopeMismatch);
    EXPECT_EQ(DecryptText("MAA=").code, kNoKeyPair);
}

TEST_F(EnvelopeTest, texts_that_are_no_envelope_are_refused) {
    const std::string envelope = Escrow(Request(3, 2, 3).text);
    EXPECT_EQ(ImportKey(""), kEnvelopeMalformed);
    EXPECT_EQ(ImportKey("no Base64!"), kEnvelopeMalformed);
    EXPECT_EQ(ImportKey("MAA="), kEnvelopeMalformed);
    EXPECT_EQ(ImportKey(envelope.substr(0, envelope.size() - 8)), kEnvelopeMalformed);
    EXPECT_EQ(ImportKey(envelope + "AAAA"), kEnvelopeMalformed);
    EXPECT_EQ(token.GMImportPriKey(kSerial, nullptr, 0), kBadArgument);
}

TEST_F(EnvelopeTest, a_text_of_1024_characters_without_a_nul_is_read_to_its_end) {
    std::string envelope = Escrow(Request(3, 2, 3).text);
    envelope.insert(0, 1024 - envelope.size(), ' ');
    // One block, so that a checker sees a read beyond its end.
    const auto exact = std::make_unique<char[]>(1024);
    envelope.copy(exact.get(), 1024);
    EXPECT_EQ(token.GMImportPriKey(kSerial, exact.get(), 0), kOk);
}

TEST_F(EnvelopeTest, import_asks_for_the_pin) {
    const std::string envelope = Escrow(Request(3, 2, 3).text);
    token.GM_RemoveUserPin();
    SetPin(nullptr);
    EXPECT_EQ(ImportKey(envelope), kPinCancelled);
    SetPin(kPin);
    EXPECT_EQ(ImportKey(envelope), kOk);
}

// The encoder cuts trailing zero bits off unless it is told not to, and half of all numbers end in
// one.
TEST_F(EnvelopeTest, its_bit_strings_have_no_unused_bits) {
    const std::string request = Request(3, 2, 3).text;
    Succeed("openssl genpkey -algorithm SM2 -out enc.key");
    for (int i = 0; i < 30; ++i) {
        const Bytes envelope = *FromBase64(SealEnvelopeText(request, Read("enc.key")));
        ASSERT_EQ(envelope[envelope.size() - 35], 0x03);
        ASSERT_EQ(envelope[envelope.size() - 34], 33);
        ASSERT_EQ(envelope[envelope.size() - 33], 0);
    }
}

// An envelope put together by hand, with the openssl command for its parts.
class HandmadeEnvelopeTest : public EnvelopeTest {
protected:
    static Bytes Tlv(std::uint8_t tag, const Bytes& value) {
        Bytes der{tag};
        if (value.size() > 255) der.push_back(0x82);
        if (value.size() > 255) der.push_back(static_cast<std::uint8_t>(value.size() >> 8));
        if (value.size() > 127 && value.size() < 256) der.push_back(0x81);
        der.push_back(static_cast<std::uint8_t>(value.size()));
        der.insert(der.end(), value.begin(), value.end());
        return der;
    }
    static Bytes Join(const std::vector<Bytes>& parts) {
        Bytes all;
        for (const Bytes& part : parts) all.insert(all.end(), part.begin(), part.end());
        return all;
    }
    static Bytes BitString(const Bytes& bytes) { return Tlv(0x03, Join({{0}, bytes})); }
    Bytes Output(const std::string& command) {
        return *FromBase64(Succeed(command + " | openssl base64 -A"));
    }
    // lead stands in front of the private number.
    std::string Make(const std::string& request, const Bytes& oid, const std::string& lead) {
        Write("request.csr", Pem("CERTIFICATE REQUEST", request));
        Write("sm4", "0123456789abcdef");
        Succeed(
            "openssl req -in request.csr -noout -pubkey > to.pub && openssl genpkey -algorithm SM2"
            " -out enc.key && openssl pkcs8 -topk8 -nocrypt -in enc.key -outform DER -out p8");
        const std::string p8 = Read("p8");
        const std::size_t number = p8.find(std::string("\x02\x01\x01\x04\x20", 5)) + 5;
        Write("number", lead + p8.substr(number, 32));
        const Bytes sealedKey = Output("openssl pkeyutl -encrypt -pubin -inkey to.pub -in sm4");
        const Bytes sealedNumber =
            Output("openssl enc -sm4-ecb -nopad -K 30313233343536373839616263646566 -in number");
        const Bytes point = Output("openssl pkey -in enc.key -pubout -outform DER | tail -c 65");
        return ToBase64(Tlv(0x30, Join({Tlv(0x30, Tlv(0x06, oid)), sealedKey, BitString(point),
                                        BitString(sealedNumber)})));
    }
    const Bytes ecb_{0x2A, 0x81, 0x1C, 0xCF, 0x55, 0x01, 0x68, 0x01};
    const Bytes sm4_{0x2A, 0x81, 0x1C, 0xCF, 0x55, 0x01, 0x68};
    const Bytes aes_{0x60, 0x86, 0x48, 0x01, 0x65, 0x03, 0x04, 0x01, 0x01};
};

TEST_F(HandmadeEnvelopeTest, opens) {
    const Result request = Request(3, 2, 3);
    ASSERT_EQ(ImportKey(Make(request.text, ecb_, "")), kOk);
    EXPECT_EQ(DecryptText(SealedByOpenssl("by hand")).text, "by hand");
}

TEST_F(HandmadeEnvelopeTest, opens_when_it_leaves_the_mode_of_sm4_out) {
    EXPECT_EQ(ImportKey(Make(Request(3, 2, 3).text, sm4_, "")), kOk);
}

TEST_F(HandmadeEnvelopeTest, of_another_algorithm_is_refused) {
    EXPECT_EQ(ImportKey(Make(Request(3, 2, 3).text, aes_, "")), kEnvelopeMalformed);
}

TEST_F(HandmadeEnvelopeTest, with_a_number_of_64_bytes_opens_when_the_first_32_are_zero) {
    const Result request = Request(3, 2, 3);
    ASSERT_EQ(ImportKey(Make(request.text, ecb_, std::string(32, '\0'))), kOk);
    EXPECT_EQ(DecryptText(SealedByOpenssl("64 bytes")).text, "64 bytes");
    EXPECT_EQ(ImportKey(Make(request.text, ecb_, std::string(32, '1'))), kEnvelopeMismatch);
}

TEST_F(HandmadeEnvelopeTest, with_a_number_of_another_size_is_refused) {
    const std::string lead(16, '\0');
    EXPECT_EQ(ImportKey(Make(Request(3, 2, 3).text, ecb_, lead)), kEnvelopeMalformed);
}

}  // namespace

// Signatures, judged by the openssl command, and the buffer rule of those who write into it.
#include "softkey/crypto/base64.h"
#include "softkey/crypto/openssl_types.h"
#include "softkey/store/questions.h"
#include "softkey/store/screen.h"
#include "token_fixture.h"

using namespace softkey;

namespace {

constexpr const char* kText = "pay 100 to nobody";

class SignatureTest : public TokenTest {
protected:
    SignatureTest() { CreateKey(); }

    void TakePublicKey(const std::string& request) {
        Write("request.csr", Pem("CERTIFICATE REQUEST", request));
        Succeed("openssl req -in request.csr -noout -pubkey > key.pub");
    }
    void WriteSignature(const std::string& base64) {
        Write("signature.txt", base64);
        Succeed("openssl base64 -d -A -in signature.txt -out signature");
    }
    // Whether the signature is one of the text under the key of key.pub.
    bool Verifies(const std::string& text, const std::string& base64, bool sm2 = true) {
        Write("text", text);
        WriteSignature(base64);
        int status = 0;
        Shell(sm2 ? "openssl dgst -sm3 -sigopt distid:1234567812345678 -verify key.pub -signature"
                    " signature text"
                  : "openssl dgst -sha256 -verify key.pub -signature signature text",
              &status);
        return status == 0;
    }
};

TEST_F(SignatureTest, a_critical_sm2_signature_is_verified_by_openssl) {
    TakePublicKey(Request(1, 2, 3).text);
    const Result signature = CriticalSign(kText);
    ASSERT_EQ(signature.code, kOk);
    EXPECT_TRUE(Verifies(kText, signature.text));
    EXPECT_FALSE(Verifies("pay 900 to nobody", signature.text));
}

TEST_F(SignatureTest, an_empty_text_is_signed) {
    TakePublicKey(Request(1, 2, 3).text);
    const Result signature = CriticalSign("");
    ASSERT_EQ(signature.code, kOk);
    EXPECT_TRUE(Verifies("", signature.text));
}

TEST_F(SignatureTest, a_critical_rsa_signature_is_verified_by_openssl) {
    TakePublicKey(Request(1, 1, 2).text);
    const Result signature = CriticalSign(kText, 1, 2);
    ASSERT_EQ(signature.code, kOk);
    EXPECT_TRUE(Verifies(kText, signature.text, false));
}

TEST_F(SignatureTest, the_signature_over_a_digest_is_verified_by_openssl_over_the_same_digest) {
    TakePublicKey(Request(1, 2, 3).text);
    Write("text", kText);
    const std::string hex =
        Succeed("openssl dgst -sm3 -binary -out digest text && openssl dgst -sm3 -r text")
            .substr(0, 64);
    const Result signature = SignHash(hex);
    ASSERT_EQ(signature.code, kOk);
    WriteSignature(signature.text);
    Succeed("openssl pkeyutl -verify -pubin -inkey key.pub -in digest -sigfile signature");
}

TEST_F(SignatureTest, a_digest_with_the_identity_in_it_is_a_signature_of_the_text) {
    TakePublicKey(Request(1, 2, 3).text);
    // Z is the digest of identity, curve and public point; the point is the last 64 bytes.
    const std::string curve =
        "FFFFFFFEFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFF00000000FFFFFFFFFFFFFFFC"
        "28E9FA9E9D9F5E344D5A9E4BCF6509A7F39789F515AB8F92DDBCBD414D940E93"
        "32C4AE2C1F1981195F9904466A39C9948FE30BBFF2660BE1715A4589334C74C7"
        "BC3736A2F4F6779C59BDCEE36B692153D0A9877CC62A474002DF32E52139F0A0";
    std::string z("\0\x80", 2);
    z += "1234567812345678";
    for (std::size_t i = 0; i < curve.size(); i += 2) {
        z += static_cast<char>(std::stoi(curve.substr(i, 2), nullptr, 16));
    }
    Write("curve", z);
    Write("text", kText);
    const std::string hex = Succeed(
        "{ cat curve;"
        " openssl pkey -pubin -in key.pub -outform DER | tail -c 64; } |"
        " openssl dgst -sm3 -binary > z && cat z text | openssl dgst -sm3 -r");
    const Result signature = SignHash(hex.substr(0, 64));
    ASSERT_EQ(signature.code, kOk);
    EXPECT_TRUE(Verifies(kText, signature.text));
}

TEST_F(SignatureTest, a_digest_may_be_hexadecimal_or_base64) {
    ASSERT_EQ(Request(1, 2, 3).code, kOk);
    const std::string hex(64, 'a');
    const std::string base64 = "qqqqqqqqqqqqqqqqqqqqqqqqqqqqqqqqqqqqqqqqqqo=";
    EXPECT_EQ(SignHash(hex).code, kOk);
    EXPECT_EQ(SignHash(base64).code, kOk);
    EXPECT_EQ(SignHash(hex, 0, 0, 1).code, kOk);
    EXPECT_EQ(SignHash(base64, 0, 0, 2).code, kOk);
    EXPECT_EQ(SignHash(hex, 0, 0, 2).code, kBadArgument);
    EXPECT_EQ(SignHash(base64, 0, 0, 1).code, kBadArgument);
    EXPECT_EQ(SignHash(hex, 0, 0, 3).code, kBadArgument);
}

TEST_F(SignatureTest, a_digest_of_another_size_is_refused) {
    ASSERT_EQ(Request(1, 2, 3).code, kOk);
    EXPECT_EQ(SignHash("").code, kBadArgument);
    EXPECT_EQ(SignHash(std::string(62, 'a')).code, kBadArgument);
    EXPECT_EQ(SignHash(std::string(66, 'a')).code, kBadArgument);
    EXPECT_EQ(SignHash(std::string(64, 'g')).code, kBadArgument);
}

TEST_F(SignatureTest, rsa_over_a_digest_is_pkcs1) {
    TakePublicKey(Request(1, 1, 2).text);
    Write("text", kText);
    const std::string hex = Succeed("openssl dgst -sha256 -r text").substr(0, 64);
    const Result signature = SignHash(hex, 1, 2);
    ASSERT_EQ(signature.code, kOk);
    EXPECT_TRUE(Verifies(kText, signature.text, false));
    const std::string sha1 = Succeed("openssl dgst -sha1 -r text").substr(0, 40);
    EXPECT_EQ(SignHash(sha1, 1, 1).code, kOk);
    EXPECT_EQ(SignHash(hex, 1, 1).code, kBadArgument);
    EXPECT_EQ(SignHash(hex, 1, 3).code, kNotSupported);
}

TEST_F(SignatureTest, the_pair_with_a_certificate_signs_while_a_newer_one_waits) {
    const Result first = Request(1, 2, 3);
    ASSERT_EQ(WriteCertificate(Issue(first.text)), kOk);
    ASSERT_EQ(Request(1, 2, 3).code, kOk);
    TakePublicKey(first.text);
    EXPECT_TRUE(Verifies(kText, CriticalSign(kText).text));
}

TEST_F(SignatureTest, without_a_certificate_the_newest_pair_signs) {
    ASSERT_EQ(Request(1, 2, 3).code, kOk);
    TakePublicKey(Request(1, 2, 3).text);
    EXPECT_TRUE(Verifies(kText, CriticalSign(kText).text));
}

TEST_F(SignatureTest, a_key_without_a_pair_does_not_ask_for_the_pin) {
    SetPin("000000");
    EXPECT_EQ(SignHash(std::string(64, 'a')).code, kNoKeyPair);
    EXPECT_EQ(CriticalSign(kText).code, kNoKeyPair);
    EXPECT_EQ(TriesLeft(), kMaxTries);
}

TEST_F(SignatureTest, an_encryption_pair_does_not_sign) {
    const Result request = Request(3, 2, 3);
    ASSERT_EQ(ImportKey(Escrow(request.text)), kOk);
    EXPECT_EQ(SignHash(std::string(64, 'a')).code, kNoKeyPair);
}

TEST_F(SignatureTest, a_locked_process_asks_for_the_pin) {
    ASSERT_EQ(Request(1, 2, 3).code, kOk);
    token.GM_RemoveUserPin();
    SetPin("000000");
    EXPECT_EQ(SignHash(std::string(64, 'a')).code, kPinWrong);
    SetPin(kPin);
    EXPECT_EQ(SignHash(std::string(64, 'a')).code, kOk);
}

TEST_F(SignatureTest, numbers_without_a_meaning_are_refused) {
    ASSERT_EQ(Request(1, 2, 3).code, kOk);
    EXPECT_EQ(CriticalSign(kText, 3, 0).code, kBadArgument);
    EXPECT_EQ(CriticalSign(kText, -1, 0).code, kBadArgument);
    EXPECT_EQ(CriticalSign(kText, 2, 4).code, kBadArgument);
    std::uint32_t length = 512;
    char buffer[512];
    EXPECT_EQ(token.GMUsbKeyCriticalSign(kSerial, 0, 0, nullptr, buffer, &length), kBadArgument);
    EXPECT_EQ(token.GMUsbKeyCriticalSign(kSerial, 0, 0, kText, buffer, nullptr), kBadArgument);
}

TEST_F(SignatureTest, a_buffer_of_97_bytes_takes_every_sm2_signature_and_96_none) {
    ASSERT_EQ(Request(1, 2, 3).code, kOk);
    std::string buffer(200, '#');
    std::uint32_t length = 96;
    EXPECT_EQ(token.GMUsbKeyCriticalSign(kSerial, 0, 0, kText, buffer.data(), &length),
              kBufferTooSmall);
    EXPECT_EQ(length, 97U);
    EXPECT_EQ(buffer, std::string(200, '#'));
    ASSERT_EQ(token.GMUsbKeyCriticalSign(kSerial, 0, 0, kText, buffer.data(), &length), kOk);
    EXPECT_EQ(std::string(buffer.c_str()).size(), length);
    EXPECT_EQ(buffer[97], '#');
}

TEST_F(SignatureTest, a_probe_tells_the_size_and_asks_nobody) {
    ASSERT_EQ(Request(1, 2, 3).code, kOk);
    QuestionTable(*OpenStore()).Decide(kSerial, Button::kRefuse);
    std::uint32_t length = 0;
    EXPECT_EQ(token.GMUsbKeyCriticalSign(kSerial, 0, 0, kText, nullptr, &length), kOk);
    EXPECT_EQ(length, 97U);
}

class BatchTest : public SignatureTest {
protected:
    Result Batch(std::uint32_t flags, const char* data, const char* list, int count = 0,
                 const char* warning = "sign all?") {
        std::string serial = kSerial;
        std::string shown = warning != nullptr ? warning : "";
        std::string buffer(4096, '\0');
        auto length = static_cast<std::uint32_t>(buffer.size());
        const int code = token.Batch_Sign(flags, serial.data(), 0, 0, data,
                                          warning != nullptr ? shown.data() : nullptr, nullptr, 0,
                                          0, list, count, buffer.data(), &length);
        return {code, buffer.c_str()};
    }
    static std::vector<std::string> Split(const std::string& text) {
        std::vector<std::string> parts;
        std::size_t begin = 0;
        for (std::size_t at = text.find("||"); at != std::string::npos;
             at = text.find("||", begin)) {
            parts.push_back(text.substr(begin, at - begin));
            begin = at + 2;
        }
        parts.push_back(text.substr(begin));
        return parts;
    }
};

TEST_F(BatchTest, each_item_of_the_list_gets_its_signature_in_order) {
    TakePublicKey(Request(1, 2, 3).text);
    const Result batch = Batch(0, nullptr, "x||y||z");
    ASSERT_EQ(batch.code, kOk);
    const std::vector<std::string> signatures = Split(batch.text);
    ASSERT_EQ(signatures.size(), 3U);
    EXPECT_TRUE(Verifies("x", signatures[0]));
    EXPECT_TRUE(Verifies("y", signatures[1]));
    EXPECT_TRUE(Verifies("z", signatures[2]));
    EXPECT_FALSE(Verifies("x", signatures[2]));
}

TEST_F(BatchTest, an_empty_text_is_an_item_where_the_list_has_one) {
    TakePublicKey(Request(1, 2, 3).text);
    const std::vector<std::string> signatures = Split(Batch(0, nullptr, "x||", 2).text);
    ASSERT_EQ(signatures.size(), 2U);
    EXPECT_TRUE(Verifies("", signatures[1]));
    const Result one = Batch(0, nullptr, "", 1);
    EXPECT_EQ(one.code, kOk);
    EXPECT_TRUE(Verifies("", one.text));
    EXPECT_EQ(Batch(0, "", nullptr).code, kOk);
}

TEST_F(BatchTest, the_common_text_is_signed_first) {
    TakePublicKey(Request(1, 2, 3).text);
    const std::vector<std::string> signatures = Split(Batch(1, "all", "x||y", 2).text);
    ASSERT_EQ(signatures.size(), 3U);
    EXPECT_TRUE(Verifies("all", signatures[0]));
    EXPECT_TRUE(Verifies("y", signatures[2]));
}

TEST_F(BatchTest, a_confirmed_batch_shows_its_warning_and_minds_the_button) {
    ASSERT_EQ(Request(1, 2, 3).code, kOk);
    EXPECT_EQ(Batch(1, "all", "x", 1, "three at once").code, kOk);
    EXPECT_EQ(Screen(*OpenStore()).Text(kSerial), "three at once");
    QuestionTable(*OpenStore()).Decide(kSerial, Button::kRefuse);
    EXPECT_EQ(Batch(1, "all", "x").code, kButtonRefused);
    EXPECT_EQ(Batch(0, "all", "x").code, kOk);
}

TEST_F(BatchTest, the_room_that_signatures_need_is_told_beforehand) {
    ASSERT_EQ(Request(1, 2, 3).code, kOk);
    ASSERT_EQ(Request(1, 1, 2).code, kOk);
    std::string serial = kSerial, hash(64, 'a');
    const std::pair<int, std::uint32_t> sizes[] = {{2, 96}, {1, 344}};
    for (const auto& [keyType, size] : sizes) {
        std::uint32_t length = 0;
        EXPECT_EQ(token.GMUsbKeyCriticalSign(kSerial, keyType, 2, "x", nullptr, &length), kOk);
        EXPECT_EQ(length, size + 1);
        EXPECT_EQ(
            token.GMUsbKeyCommonSign(serial.data(), keyType, 2, hash.data(), 0, nullptr, &length),
            kOk);
        EXPECT_EQ(length, size + 1);
        EXPECT_EQ(token.Batch_Sign(2, serial.data(), keyType, 2, "all", nullptr, nullptr, 0, 0,
                                   "x||y", 2, nullptr, &length),
                  kOk)
            << "an unknown flag asks for no confirmation";
        EXPECT_EQ(length, 3 * size + 2 * 2 + 1);
    }
    EXPECT_EQ(SignHash(hash, 2, 0, -1).code, kBadArgument);
    // A digest that the pair does not sign is told beforehand too.
    std::uint32_t length = 0;
    EXPECT_EQ(token.GMUsbKeyCriticalSign(kSerial, 1, 3, "x", nullptr, &length), kNotSupported);
    EXPECT_EQ(token.Batch_Sign(0, serial.data(), 1, 3, "x", nullptr, nullptr, 0, 0, nullptr, 0,
                               nullptr, &length),
              kNotSupported);
    EXPECT_EQ(length, 0U);
}

TEST_F(BatchTest, what_is_missing_or_does_not_add_up_is_refused) {
    ASSERT_EQ(Request(1, 2, 3).code, kOk);
    EXPECT_EQ(Batch(0, nullptr, nullptr).code, kBadArgument);
    EXPECT_EQ(Batch(0, nullptr, "").code, kBadArgument);
    EXPECT_EQ(Batch(0, nullptr, "x||y", 3).code, kBadArgument);
    EXPECT_EQ(Batch(1, nullptr, "x").code, kBadArgument);
    EXPECT_EQ(Batch(1, "all", "x", 0, nullptr).code, kBadArgument);
}

TEST_F(BatchTest, a_short_buffer_tells_what_all_signatures_need) {
    ASSERT_EQ(Request(1, 2, 3).code, kOk);
    std::string serial = kSerial;
    std::string buffer(4096, '#');
    std::uint32_t length = 100;
    EXPECT_EQ(token.Batch_Sign(0, serial.data(), 0, 0, nullptr, nullptr, nullptr, 0, 0, "x||y", 0,
                               buffer.data(), &length),
              kBufferTooSmall);
    EXPECT_EQ(length, 96U + 2U + 96U + 1U);
}

}  // namespace

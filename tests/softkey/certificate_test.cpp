// Import, reading and deletion of certificates.
#include <algorithm>
#include <array>
#include <stdexcept>

#include "softkey/crypto/base64.h"
#include "softkey/store/pairs.h"
#include "token_fixture.h"

using namespace softkey;

namespace {

class CertificateTest : public TokenTest {
protected:
    CertificateTest() { CreateKey(); }
};

std::string WithLineBreaks(std::string text) {
    for (std::size_t at = 64; at < text.size(); at += 66) text.insert(at, "\r\n");
    return text;
}

TEST_F(CertificateTest, an_imported_certificate_is_read_back_as_it_came) {
    const std::string certificate = Enrol(1, 2, 3);
    EXPECT_EQ(Certificate(1, 2).text, certificate);
    EXPECT_EQ(Certificate(0).text, certificate);
}

TEST_F(CertificateTest, line_breaks_and_pem_armour_are_tolerated) {
    const std::string certificate = Issue(Request(1, 2, 3).text);
    EXPECT_EQ(WriteCertificate(WithLineBreaks(certificate)), kOk);
    EXPECT_EQ(WriteCertificate(Pem("CERTIFICATE", certificate)), kOk);
    EXPECT_EQ(
        WriteCertificate("-----BEGIN CERTIFICATE-----" + certificate + "-----END CERTIFICATE-----"),
        kOk);
    EXPECT_EQ(Certificate(1).text, certificate);
}

TEST_F(CertificateTest, of_a_pkcs7_chain_the_matching_certificate_is_taken) {
    const std::string certificate = Issue(Request(1, 2, 3).text);
    const std::string chain = Succeed(
        "openssl crl2pkcs7 -nocrl -certfile ca.pem -certfile issue.pem -outform DER"
        " | openssl base64 -A");
    EXPECT_EQ(WriteCertificate(chain), kOk);
    EXPECT_EQ(Certificate(1).text, certificate);
}

TEST_F(CertificateTest, pkcs7_in_pem_is_taken) {
    Issue(Request(1, 2, 3).text);
    EXPECT_EQ(WriteCertificate(Succeed("openssl crl2pkcs7 -nocrl -certfile issue.pem")), kOk);
}

TEST_F(CertificateTest, an_rsa_certificate_is_taken) {
    const std::string certificate = Enrol(1, 1, 2);
    EXPECT_EQ(Certificate(1, 1).text, certificate);
    EXPECT_EQ(Certificate(1, 2).code, kNoCertificate);
}

TEST_F(CertificateTest, a_certificate_of_another_key_is_refused) {
    ASSERT_EQ(Request(1, 2, 3).code, kOk);
    MakeAuthority();
    EXPECT_EQ(WriteCertificate(Succeed("openssl x509 -in ca.pem -outform DER | openssl base64 -A")),
              kCertificateMismatch);
    EXPECT_EQ(Certificate(1).code, kNoCertificate);
}

TEST_F(CertificateTest, a_certificate_over_a_temporary_pair_is_refused) {
    EXPECT_EQ(WriteCertificate(Issue(Request(3, 2, 3).text)), kCertificateMismatch);
}

TEST_F(CertificateTest, a_text_that_is_no_certificate_is_refused) {
    EXPECT_EQ(WriteCertificate(""), kCertificateMalformed);
    EXPECT_EQ(WriteCertificate("no Base64!"), kCertificateMalformed);
    EXPECT_EQ(WriteCertificate("AAAA"), kCertificateMalformed);
    const std::string certificate = Issue(Request(1, 2, 3).text);
    EXPECT_EQ(WriteCertificate(certificate.substr(0, certificate.size() - 8)),
              kCertificateMalformed);
    KestaStringObject unused{nullptr};
    EXPECT_EQ(token.GMWritePKCS7(kSerial, nullptr, unused), kBadArgument);
}

TEST_F(CertificateTest, the_output_string_is_left_alone) {
    const std::string certificate = Issue(Request(1, 2, 3).text);
    char text[] = "untouched";
    KestaStringObject output{text};
    ASSERT_EQ(token.GMWritePKCS7(kSerial, certificate.c_str(), output), kOk);
    EXPECT_EQ(output.characters, text);
    EXPECT_STREQ(text, "untouched");
}

TEST_F(CertificateTest, import_needs_no_pin) {
    const std::string certificate = Issue(Request(1, 2, 3).text);
    token.GM_RemoveUserPin();
    SetPin(nullptr);
    EXPECT_EQ(WriteCertificate(certificate), kOk);
}

TEST_F(CertificateTest, a_new_certificate_takes_the_place_of_the_old_one) {
    const std::string first = Enrol(1, 2, 3);
    const std::string second = Enrol(1, 2, 3);
    EXPECT_NE(first, second);
    EXPECT_EQ(Certificate(1).text, second);
    EXPECT_EQ(PairTable(*OpenStore()).Of(kSerial).size(), 1U);
}

TEST_F(CertificateTest, until_then_the_old_one_stays) {
    const std::string first = Enrol(1, 2, 3);
    ASSERT_EQ(Request(1, 2, 3).code, kOk);
    EXPECT_EQ(Certificate(1).text, first);
}

TEST_F(CertificateTest, a_certificate_that_could_not_be_read_back_is_refused) {
    const Result request = Request(1, 2, 3);
    MakeAuthority();
    Write("issue.csr", Pem("CERTIFICATE REQUEST", request.text));
    // The signature's length varies by a byte or two.
    auto certificateOf = [this, comment = 2000](std::size_t bytes) mutable {
        for (int tries = 0; tries < 500; ++tries) {
            Write("long.ext",
                  "nsComment=\"" + std::string(static_cast<std::size_t>(comment), 'x') + "\"\n");
            std::string text = Succeed(
                "openssl x509 -req -in issue.csr -CA ca.pem -CAkey ca.key -CAcreateserial -sm3"
                " -sigopt distid:1234567812345678 -vfyopt distid:1234567812345678"
                " -extfile long.ext -outform DER 2>log | openssl base64 -A");
            const std::size_t size = FromBase64(text).value().size();
            if (size == bytes) return text;
            comment += static_cast<int>(bytes) - static_cast<int>(size);
        }
        throw std::runtime_error("no certificate became that long");
    };
    EXPECT_EQ(WriteCertificate(certificateOf(3069)), kOk);
    EXPECT_EQ(Certificate(1).text.size(), 4092U) << "what 4,096 bytes hold with their NUL";
    EXPECT_EQ(WriteCertificate(certificateOf(3070)), kTooLong);
}

TEST_F(CertificateTest, reading_needs_room_for_the_nul) {
    const std::string certificate = Enrol(1, 2, 3);
    std::string buffer(4096, '#');
    auto length = static_cast<std::uint32_t>(certificate.size());
    EXPECT_EQ(token.GetCertInfo(kSerial, 1, 2, buffer.data(), &length), kBufferTooSmall);
    EXPECT_EQ(length, certificate.size() + 1);
    EXPECT_EQ(buffer, std::string(4096, '#'));
    EXPECT_EQ(token.GetCertInfo(kSerial, 1, 2, buffer.data(), &length), kOk);
    EXPECT_EQ(length, certificate.size());
    EXPECT_EQ(buffer[certificate.size() + 1], '#');
}

TEST_F(CertificateTest, reading_without_a_length_is_refused) {
    Enrol(1, 2, 3);
    std::string buffer(4096, '#');
    EXPECT_EQ(token.GetCertInfo(kSerial, 1, 2, buffer.data(), nullptr), kBadArgument);
}

TEST_F(CertificateTest, the_subject_is_written_as_rfc_2253_does) {
    Enrol(1, 2, 3);
    char name[1024] = {};
    ASSERT_EQ(token.GM_GetCertDN(kSerial, 1, 2, name), kOk);
    EXPECT_EQ(std::string(name), std::string("CN=") + kSerial);
    EXPECT_EQ(token.GM_GetCertDN(kSerial, 3, 2, name), kNoCertificate);
    EXPECT_EQ(token.GM_GetCertDN(kSerial, 2, 2, name), kBadArgument);
    EXPECT_EQ(token.GM_GetCertDN(kSerial, 1, 2, nullptr), kBadArgument);
}

TEST_F(CertificateTest, the_information_block_agrees_with_openssl) {
    Enrol(1, 2, 3);
    char block[1280] = {};
    std::uint32_t length = sizeof block;
    ASSERT_EQ(token.GetCertInfo_UOS(kSerial, 1, block, &length), kOk);
    const std::string text(block);
    EXPECT_EQ(text.size(), length);
    std::string fingerprint = Succeed("openssl x509 -in issue.pem -noout -fingerprint -sha256");
    fingerprint = fingerprint.substr(fingerprint.find('=') + 1);
    fingerprint.erase(std::remove(fingerprint.begin(), fingerprint.end(), ':'), fingerprint.end());
    const std::string serial = Succeed("openssl x509 -in issue.pem -noout -serial");
    std::string dates =
        Succeed("openssl x509 -in issue.pem -noout -startdate -enddate -dateopt iso_8601");
    std::replace(dates.begin(), dates.end(), ' ', 'T');
    EXPECT_EQ(text, "type=sign\nalgorithm=SM2\n" + serial + dates + "fingerprint=" + fingerprint +
                        "subject=CN=" + kSerial + "\nissuer=CN=Root,O=Authority\n");
}

TEST_F(CertificateTest, the_information_block_of_a_short_buffer_tells_what_it_needs) {
    Enrol(1, 2, 3);
    char block[1280] = {};
    std::uint32_t length = 10;
    EXPECT_EQ(token.GetCertInfo_UOS(kSerial, 0, block, &length), kBufferTooSmall);
    EXPECT_GT(length, 100U);
    EXPECT_EQ(token.GetCertInfo_UOS(kSerial, 0, block, &length), kOk);
}

TEST_F(CertificateTest, deletion_takes_certificate_and_pairs) {
    Enrol(1, 2, 3);
    ASSERT_EQ(Request(1, 2, 3).code, kOk);
    ASSERT_EQ(Request(3, 2, 3).code, kOk);
    EXPECT_EQ(token.DelCertAndTempKey(kSerial, 1, 2), kOk);
    EXPECT_EQ(Certificate(1).code, kNoCertificate);
    ASSERT_EQ(PairTable(*OpenStore()).Of(kSerial).size(), 1U);
    EXPECT_EQ(token.DelCertAndTempKey(kSerial, 0, 0), kOk);
    EXPECT_TRUE(PairTable(*OpenStore()).Of(kSerial).empty());
    EXPECT_EQ(token.DelCertAndTempKey(kSerial, 0, 0), kNoCertificate);
}

TEST_F(CertificateTest, deletion_for_encryption_takes_the_temporary_pair_and_no_other) {
    ASSERT_EQ(Request(1, 2, 3).code, kOk);
    ASSERT_EQ(Request(3, 2, 3).code, kOk);
    EXPECT_EQ(token.DelCertAndTempKey(kSerial, 3, 2), kOk);
    const auto pairs = PairTable(*OpenStore()).Of(kSerial);
    ASSERT_EQ(pairs.size(), 1U);
    EXPECT_EQ(pairs[0].role, Role::kSigning);
}

TEST_F(CertificateTest, deletion_needs_the_pin) {
    Enrol(1, 2, 3);
    token.GM_RemoveUserPin();
    SetPin(nullptr);
    EXPECT_EQ(token.DelCertAndTempKey(kSerial, 1, 2), kPinCancelled);
    EXPECT_EQ(Certificate(1).code, kOk);
}

TEST_F(CertificateTest, a_certificate_finds_its_pair_among_others) {
    const Result oldest = Request(1, 2, 3);
    ASSERT_EQ(Request(1, 2, 3).code, kOk);
    ASSERT_EQ(Request(3, 2, 3).code, kOk);
    EXPECT_EQ(WriteCertificate(Issue(oldest.text)), kOk);
    EXPECT_EQ(PairTable(*OpenStore()).Of(kSerial).size(), 3U);
}

TEST_F(CertificateTest, a_subject_of_1023_characters_is_told_and_a_longer_one_is_not) {
    MakeAuthority();
    const std::string request = Request(1, 2, 3).text;
    Write("issue.csr", Pem("CERTIFICATE REQUEST", request));
    Succeed("openssl req -in issue.csr -noout -pubkey > key.pub");
    for (const int longer : {0, 1}) {
        // "OU=" and 64 letters, fourteen times, and what is missing.
        std::string subject, expected;
        for (int i = 0; i < 14; ++i) subject += "/OU=" + std::string(64, 'u');
        subject += "/OU=" + std::string(static_cast<std::size_t>(20 + longer), 'v');
        subject += "/CN=" + std::string(44, 'n');
        ASSERT_EQ(subject.size() - 1, static_cast<std::size_t>(1023 + longer));
        const std::string certificate = Succeed(
            "openssl x509 -new -force_pubkey key.pub -subj '" + subject +
            "' -CA ca.pem -CAkey ca.key -CAcreateserial -sm3 -sigopt distid:1234567812345678"
            " -days 10 -outform DER 2>log | openssl base64 -A");
        ASSERT_EQ(WriteCertificate(certificate), kOk);
        std::array<char, 1025> name{};
        EXPECT_EQ(token.GM_GetCertDN(kSerial, 1, 2, name.data()), longer == 0 ? kOk : kTooLong);
        EXPECT_EQ(std::string(name.data()).size(), longer == 0 ? 1023U : 0U);
    }
}

}  // namespace

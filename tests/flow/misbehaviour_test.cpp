// What the library makes of a token library that misbehaves, and that every entry point of the
// token library stands behind an export.
#include <fstream>
#include <set>

#include "kesta/token_library.h"
#include "key_test.h"
#include "softkey/codes.h"

namespace {

using namespace flow;

class Misbehaving : public KeyTest {
protected:
    static void Plan(const std::string& rules) {
        std::ofstream file("/tmp/plan.json");
        file << "{\"rules\": [" << rules << "]}";
        file.close();
        Softkey({"misbehave", "/tmp/plan.json"});
    }
};

TEST_F(Misbehaving, code_of_the_nth_call_reaches_the_caller_and_the_next_call_is_sound) {
    Plan(R"({"entry": "GetLabel", "call": 2, "code": "StateBusy"})");
    char label[600];
    int length = sizeof label;
    EXPECT_EQ(GetLabel(kSerial, label, &length), 0);
    EXPECT_EQ(GetLabel(kSerial, label, &length), softkey::kStateBusy);
    unsigned code = 0;
    GetLastErrCode(&code);
    EXPECT_EQ(static_cast<int>(code), softkey::kStateBusy);
    EXPECT_EQ(GetLabel(kSerial, label, &length), 0);
}

// What GetCert leaves in a buffer of 32 bytes with 32 more behind it.
struct Read {
    int code;
    unsigned length;
    std::string buffer;
};

Read ReadIntoLittleRoom(const char* serial) {
    Read read{0, 32, std::string(64, '\xEE')};
    read.code = GetCert(serial, kSigning, kSm2, read.buffer.data(), &read.length);
    return read;
}

TEST_F(Misbehaving, certificate_of_an_overstated_length_is_refused_for_its_size) {
    Enrol();
    Plan(R"({"entry": "GetCertInfo", "length": 100000})");
    const Read read = ReadIntoLittleRoom(kSerial);
    EXPECT_EQ(read.code, KESTA_BUFFER_TOO_SMALL);
    EXPECT_EQ(read.length, 100000U);
    EXPECT_TRUE(read.buffer == std::string(64, '\xEE'));
}

// The comparison is signed, so that such a length passes; the caller's buffer must not pay for it.
TEST_F(Misbehaving, certificate_of_a_length_beyond_31_bits_stays_within_the_callers_buffer) {
    Enrol();
    Plan(R"({"entry": "GetCertInfo", "length": 4000000000})");
    const Read read = ReadIntoLittleRoom(kSerial);
    EXPECT_EQ(read.code, 0);
    EXPECT_EQ(read.length, 4000000000U);
    EXPECT_TRUE(read.buffer == signingCertificate_.substr(0, 32) + '\0' + std::string(31, '\xEE'));
}

TEST_F(Misbehaving, decrypted_text_of_a_lying_length_stays_within_the_callers_buffer) {
    Enrol();
    const std::string cipher = Certificate(encryptionCertificate_).Encrypt("a letter");
    Plan(R"({"entry": "GMUSBKeyAsymDec2", "length": 100000})");
    std::string buffer(64, '\xEE');
    unsigned length = 32;
    EXPECT_EQ(AsymDec(kSerial, 3, 2, cipher.c_str(), buffer.data(), &length),
              KESTA_BUFFER_TOO_SMALL);
    EXPECT_EQ(length, 100000U);
    EXPECT_TRUE(buffer == std::string(64, '\xEE'));
}

TEST_F(Misbehaving, failed_warning_ends_the_signature_before_the_key_signs) {
    Enrol();
    Plan(R"({"entry": "SetWarningMsg", "code": "StateUnreachable"})");
    EXPECT_EQ(SignText(kSerial, kSm2, kSm3, "text", "sign?").code, softkey::kStateUnreachable);
    EXPECT_EQ(Softkey({"misbehave", "--show"}).find("GMUsbKeyCriticalSign"), std::string::npos);
}

TEST_F(Misbehaving, second_group_that_fails_loses_the_first_ones_request) {
    Plan(R"({"entry": "GMCreatePKCS10", "call": 2, "code": "StateFull"})");
    int length = 0;
    EXPECT_EQ(GenerateCertRequest(kSerial, kBothRequests, nullptr, &length), softkey::kStateFull);
}

TEST_F(Misbehaving, key_that_is_pulled_out_during_the_import_keeps_no_certificate) {
    const Request request(OneRequest(kSigningRequest));
    const std::string certificate = authority_.Issue(request.PublicKey(), "Signer");
    Plan(R"({"entry": "GMWritePKCS7", "call": 1, "remove": "during"})");
    EXPECT_EQ(ImportX509Cert(kSerial, certificate.c_str()), softkey::kKeyRemoved);
    EXPECT_EQ(ImportX509Cert(kSerial, certificate.c_str()), softkey::kKeyAbsent);
    Softkey({"insert"});
    EXPECT_EQ(ReadCertificate(kSerial, kSigning, kSm2).code, softkey::kNoCertificate);
    EXPECT_EQ(ImportX509Cert(kSerial, certificate.c_str()), 0);
}

TEST_F(Misbehaving, escrowed_key_that_fails_leaves_its_certificate_unwritten) {
    const std::string request = OneRequest(kEncryptionRequest);
    const Owned<EVP_PKEY> pair = NewSm2Pair();
    const std::string certificate = authority_.Issue(pair.get(), "Recipient");
    const std::string key = Escrow(request, pair.get());
    Plan(R"({"entry": "GMImportPriKey", "call": 1, "code": "EnvelopeMalformed"})");
    EXPECT_EQ(ImportEncX509Cert(kSerial, certificate.c_str(), key.c_str()),
              softkey::kEnvelopeMalformed);
    EXPECT_EQ(Softkey({"misbehave", "--show"}).find("GMWritePKCS7"), std::string::npos);
    EXPECT_EQ(ImportEncX509Cert(kSerial, certificate.c_str(), key.c_str()), 0);
}

// GetMediaID is bound, but the library asks the event library for media ids.
TEST_F(Misbehaving, every_entry_point_but_the_media_id_stands_behind_an_export) {
    Plan(R"({"entry": "GetMediaID", "call": 1, "code": 0})");
    Enrol();
    setenv("KESTA_SOFTKEY_NEW_PIN", kPin, 1);
    char pin[] = "246810", text[600];
    int length = sizeof text;
    unsigned size = 8;
    EXPECT_EQ(PrintNumber().text, kSerial);
    EXPECT_EQ(SetLabel(kSerial, "label"), 0);
    EXPECT_EQ(GetLabel(kSerial, text, &length), 0);
    EXPECT_EQ(SetData("account-no-1", 1, "value"), 0);
    length = sizeof text;
    EXPECT_EQ(GetData("account-no-1", 1, text, &length), 0);
    EXPECT_EQ(SetCharset("UTF-8", kSerial), 0);
    EXPECT_EQ(SetLanguage("en", kSerial), 0);
    EXPECT_EQ(Message(0).text, "success");
    EXPECT_EQ(VerifyPIN(kSerial), 0);
    EXPECT_EQ(TestVerifyAndCachePin(kSerial, pin), 0);
    EXPECT_EQ(SetCachePinFlag(kSerial, 0), 0);
    EXPECT_EQ(RemovePinCache(), 0);
    EXPECT_EQ(GetPinInfo(kSerial, text, &size), 0);
    EXPECT_EQ(ChangePin(kSerial), 0);
    EXPECT_EQ(ReadCertificate(kSerial, kSigning, kSm2).text, signingCertificate_);
    EXPECT_EQ(ReadName(kSerial, kSigning, kSm2).text, "CN=Signer");
    char information[1280];
    size = sizeof information;
    EXPECT_EQ(GetCertInfo(kSerial, kSigning, information, &size), 0);
    EXPECT_EQ(SignText(kSerial, kSm2, kSm3, "text", "sign?").code, 0);
    EXPECT_EQ(SignDigest(kSerial, kSm2, kSm3, ToBase64(std::string(32, 'h'))).code, 0);
    EXPECT_EQ(SignList(kSerial, kSm2, kSm3, "one||two").code, 0);
    EXPECT_EQ(Decrypt(kSerial, Certificate(encryptionCertificate_).Encrypt("text")).text, "text");
    EXPECT_EQ(DelCertAndTempKey(kSerial, kSigning, kSm2), 0);
    EXPECT_EQ(TestInitUKey(kSerial, pin), 0);
    EXPECT_EQ(MakeBatchRequests(kSerial, 0, kBothRequests).code, 0);

    const std::string counts = Softkey({"misbehave", "--show", "--json"});
    std::set<std::string> missing;
#define KESTA_LOOK_FOR(result, name, arguments) \
    if (counts.find("\"" #name "\":") == std::string::npos) missing.insert(#name);
    KESTA_TOKEN_ENTRY_POINTS(KESTA_LOOK_FOR)
#undef KESTA_LOOK_FOR
    EXPECT_EQ(missing, std::set<std::string>{"GetMediaID"}) << counts;
}

}  // namespace

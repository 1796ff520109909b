// Every operation of the face against the software key, through the shipped library.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <thread>

#include "kesta/ukey.hpp"
#include "key_test.h"
#include "public_header.h"
#include "softkey/codes.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class SoftwareKey;
struct Use {
    const char* name;
    void (*run)(SoftwareKey&);
};
void PrintTo(const Use& use, std::ostream* stream) {
    *stream << use.name;
}

class SoftwareKey : public flow::KeyTest, public testing::WithParamInterface<Use> {
public:
    void EnterNewPin(const char* pin) { setenv("KESTA_SOFTKEY_NEW_PIN", pin, 1); }
    static void NowEnter(const char* pin) { EnterPin(pin); }
    void GetEnrolled() { Enrol(); }
    std::string EscrowFor(const std::string& request, EVP_PKEY* pair) const {
        return Escrow(request, pair);
    }
    flow::Certificate Signing() const { return flow::Certificate(signingCertificate_); }
    flow::Certificate Encryption() const { return flow::Certificate(encryptionCertificate_); }
    const std::string& SigningText() const { return signingCertificate_; }
    std::string IssueFor(const std::string& request) const {
        return authority_.Issue(flow::Request(request).PublicKey(), "Signer");
    }
    std::string IssueFor(EVP_PKEY* pair) const { return authority_.Issue(pair, "Recipient"); }
    bool HasSigningCertificate() const { return key.Try().GetCert(serial, 1, 2).ok(); }

    const kesta::Library key = kesta::Library::Linked();
    const std::string serial = kSerial;
    const std::string kSign = kesta::RequestInfo({{1, 2, 3}});
    const std::string kBoth = kesta::RequestInfo({{1, 2, 3}, {3, 2, 3}});
};

void UntilWaiting() {
    EXPECT_TRUE(flow::Eventually([] {
        std::ifstream log("/tmp/ValtoPinpad_KESTA.log");
        for (std::string line; std::getline(log, line);) {
            if (line.find("[after]") != std::string::npos) return true;
        }
        return false;
    }));
}

// ---- One function for each operation that takes more than a line

void UseChangePin(SoftwareKey& k) {
    k.EnterNewPin("975310");
    k.key.ChangePin(k.serial);
    EXPECT_EQ(k.key.Try().VerifyPIN(k.serial).code(), softkey::kPinWrong);
    SoftwareKey::NowEnter("975310");
    k.key.VerifyPIN(k.serial);
}

void UseInitUKey(SoftwareKey& k) {
    k.GetEnrolled();
    k.EnterNewPin("975310");
    k.key.Finalize();  // the bare function would refuse now
    k.key.InitUKey(k.serial);
    EXPECT_FALSE(k.HasSigningCertificate());
}

void UseTestInitUKey(SoftwareKey& k) {
    k.GetEnrolled();
    k.EnterNewPin("975310");
    k.key.TestInitUKey(k.serial);
    EXPECT_FALSE(k.HasSigningCertificate());
}

void UseVerifyPIN(SoftwareKey& k) {
    k.key.VerifyPIN(k.serial);
    SoftwareKey::NowEnter("000000");
    try {
        k.key.VerifyPIN(k.serial);
        ADD_FAILURE() << "a wrong PIN passed";
    } catch (const kesta::Error& error) {
        EXPECT_EQ(error.code(), softkey::kPinWrong);
        EXPECT_EQ(error.operation(), "VerifyPIN");
        EXPECT_EQ(error.message(), "PIN 码错误");
    }
}

void UseCachedPin(SoftwareKey& k) {
    k.key.TestVerifyAndCachePin(k.serial);
    SoftwareKey::NowEnter("000000");  // not asked for while the right one is cached
    k.key.VerifyPIN(k.serial);
    k.key.RemovePinCache();
    EXPECT_EQ(k.key.Try().VerifyPIN(k.serial).code(), softkey::kPinWrong);
}

void UseSetCachePinFlag(SoftwareKey& k) {
    k.key.SetCachePinFlag(k.serial, 1);
    k.key.VerifyPIN(k.serial);
    SoftwareKey::NowEnter("000000");
    k.key.VerifyPIN(k.serial);
    k.key.SetCachePinFlag(k.serial, 0);
    EXPECT_EQ(k.key.Try().VerifyPIN(k.serial).code(), softkey::kPinWrong);
}

void UseGetPinInfo(SoftwareKey& k) {
    const kesta::Bytes record = k.key.GetPinInfo(k.serial);
    EXPECT_THAT(record, ElementsAre(6, 6, 0, 0, 0, 6, 16, 0));
}

void UseGetCertInfo(SoftwareKey& k) {
    k.GetEnrolled();
    const kesta::Bytes record = k.key.GetCertInfo(k.serial, 1);
    EXPECT_THAT(std::string(record.begin(), record.end()), HasSubstr("algorithm=SM2"));
}

void UseDelCertAndTempKey(SoftwareKey& k) {
    k.GetEnrolled();
    k.key.VerifyPIN(k.serial);
    k.key.DelCertAndTempKey(k.serial, 1, 2);
    EXPECT_FALSE(k.HasSigningCertificate());
}

void UseSign(SoftwareKey& k) {
    k.GetEnrolled();
    const std::string signature = k.key.Sign(k.serial, 2, 3, "pay 12.50", "Pay 12.50?");
    EXPECT_TRUE(k.Signing().Verifies("pay 12.50", signature, "SM3"));
}

void UseSignHash(SoftwareKey& k) {
    k.GetEnrolled();
    const std::string digest = "0123456789abcdef0123456789abcdef";
    const std::string signature = k.key.SignHash(k.serial, 2, 3, flow::ToBase64(digest), 2);
    EXPECT_TRUE(k.Signing().VerifiesDigest(digest, signature));
}

void UseBatchSign(SoftwareKey& k) {
    k.GetEnrolled();
    kesta::BatchArguments batch;
    std::string name = k.serial;
    batch.parameter2 = name.data();
    batch.parameter3 = 2;
    batch.parameter4 = 3;
    batch.list = {"only one"};  // for which the library's own probe answers too little
    const auto signatures = k.key.Batch_Sign(batch);
    ASSERT_EQ(signatures.size(), 1U);
    EXPECT_TRUE(k.Signing().Verifies("only one", signatures.front(), "SM3"));
    batch.list = {"one", "two", "three"};
    EXPECT_EQ(k.key.Batch_Sign(batch).size(), 3U);
}

void UseAsymDec(SoftwareKey& k) {
    k.GetEnrolled();
    EXPECT_EQ(k.key.AsymDec(k.serial, 3, 2, k.Encryption().Encrypt("a letter")), "a letter");
    const auto cut =
        k.key.Try().AsymDec(k.serial, 3, 2, k.Encryption().Encrypt(std::string("a\0b", 3)));
    EXPECT_EQ(cut.code(), KESTA_UNSUPPORTED);
}

void UseData(SoftwareKey& k) {
    k.key.SetData("branch-code", 2, "0417");
    EXPECT_EQ(k.key.GetData("branch-code", 2), "0417");
    EXPECT_EQ(k.key.Try().GetData("branch-code", 3).code(), softkey::kDataNotFound);
}

void UseLabel(SoftwareKey& k) {
    k.key.SetLabel(k.serial, "Accounts, second floor");
    EXPECT_EQ(k.key.GetLabel(k.serial), "Accounts, second floor");
}

void UseSetCharset(SoftwareKey& k) {
    k.key.SetCharset("GB18030", k.serial);
    EXPECT_EQ(k.key.GetErrorMsg(softkey::kPinWrong), "PIN \xC2\xEB\xB4\xED\xCE\xF3");
}

void UseSetLanguage(SoftwareKey& k) {
    k.key.SetLanguage("en_US", k.serial);
    EXPECT_EQ(k.key.GetErrorMsg(softkey::kPinWrong), "the PIN is wrong");
}

void UseEvents(SoftwareKey& k) {
    kesta::Event event;
    std::thread waiting([&] { event = k.key.WaitForKeyEvent(); });
    UntilWaiting();
    flow::Softkey({"remove"});
    waiting.join();
    EXPECT_EQ(event.kind, kesta::Event::Kind::kRemoval);
    EXPECT_NE(event.mediaId, "");
}

void UseStopDetectUKey(SoftwareKey& k) {
    std::atomic<bool> over{false};
    kesta::Event event;
    std::thread waiting([&] {
        event = k.key.WaitForKeyEvent();
        over = true;
    });
    while (!over) k.key.StopDetectUKey();
    waiting.join();
    EXPECT_EQ(event.kind, kesta::Event::Kind::kStopped);
}

void UseGenerateCertRequest(SoftwareKey& k) {
    const auto requests = k.key.GenerateCertRequest(k.serial, k.kBoth);
    ASSERT_EQ(requests.size(), 2U);
    EXPECT_TRUE(flow::Request(requests[0]).IsSignedByItsKey());
    EXPECT_TRUE(flow::Request(requests[1]).IsSignedByItsKey());
}

void UseBatchRequest(SoftwareKey& k) {
    EXPECT_EQ(k.key.Batch_InitAndGenerateCertRequest(k.serial, false, k.kBoth).size(), 1U);
    k.GetEnrolled();
    EXPECT_EQ(k.key.Batch_InitAndGenerateCertRequest(k.serial, true, k.kBoth).size(), 1U);
    EXPECT_FALSE(k.HasSigningCertificate());
}

void UseImportX509Cert(SoftwareKey& k) {
    const auto requests = k.key.GenerateCertRequest(k.serial, k.kSign);
    const std::string certificate = k.IssueFor(requests.at(0));
    k.key.ImportX509Cert(k.serial, certificate);
    EXPECT_EQ(k.key.GetCert(k.serial, 1, 2), certificate);
}

void UseImportEncX509Cert(SoftwareKey& k) {
    const auto requests = k.key.GenerateCertRequest(k.serial, k.kBoth);
    const auto pair = flow::NewSm2Pair();
    const std::string certificate = k.IssueFor(pair.get());
    k.key.ImportEncX509Cert(k.serial, certificate, k.EscrowFor(requests.at(1), pair.get()));
    EXPECT_EQ(k.key.GetCert(k.serial, 3, 2), certificate);
}

void UseBatchImport(SoftwareKey& k) {
    const auto requests = k.key.GenerateCertRequest(k.serial, k.kBoth);
    const auto pair = flow::NewSm2Pair();
    const kesta::Bundle bundle{{k.IssueFor(requests.at(0))},
                               {k.EscrowFor(requests.at(1), pair.get())},
                               {k.IssueFor(pair.get())}};
    k.key.Batch_ImportX509Cert(k.serial, bundle.Text());
    EXPECT_TRUE(k.HasSigningCertificate());
    EXPECT_TRUE(k.key.Try().GetCert(k.serial, 3, 2).ok());
}

const Use kUses[] = {
    {"Initialize",
     [](SoftwareKey& k) {
         k.key.Initialize();
         EXPECT_TRUE(g_initFlag);
     }},
    {"Finalize",
     [](SoftwareKey& k) {
         k.key.Initialize();
         k.key.Finalize();
         EXPECT_FALSE(g_initFlag);
         EXPECT_EQ(k.key.GetPrintNumber(), k.serial);
     }},
    {"GetLastErrCode",
     [](SoftwareKey& k) {
         EXPECT_FALSE(k.key.Try().VerifyPIN("NOSUCHKEY").ok());
         EXPECT_EQ(k.key.GetLastErrCode(), softkey::kKeyAbsent);
     }},
    {"GetErrorMsg",
     [](SoftwareKey& k) { EXPECT_EQ(k.key.GetErrorMsg(softkey::kPinWrong), "PIN 码错误"); }},
    {"GetDriverVersion", [](SoftwareKey& k) { EXPECT_EQ(k.key.GetDriverVersion().size(), 13U); }},
    {"GetDllVersion", [](SoftwareKey& k) { EXPECT_EQ(k.key.GetDllVersion(), "9.2025.0731.3"); }},
    {"GetVidAndPid", [](SoftwareKey& k) { EXPECT_EQ(k.key.GetVidAndPid(), "2E5A&0301"); }},
    {"GetPrintNumber", [](SoftwareKey& k) { EXPECT_EQ(k.key.GetPrintNumber(), k.serial); }},
    {"GetVendorInfo",
     [](SoftwareKey& k) {
         EXPECT_EQ(k.key.GetVendorInfo(1).size(), 33U);
         EXPECT_EQ(k.key.GetVendorInfo(2).size(), 20U);
         EXPECT_EQ(k.key.Try().GetVendorInfo(3).code(), KESTA_UNSUPPORTED);
     }},
    {"ChangePin", UseChangePin},
    {"InitUKey", UseInitUKey},
    {"TestInitUKey", UseTestInitUKey},
    {"VerifyPIN", UseVerifyPIN},
    {"TestVerifyAndCachePin", UseCachedPin},
    {"RemovePinCache", UseCachedPin},
    {"GetPinInfo", UseGetPinInfo},
    {"SetCachePinFlag", UseSetCachePinFlag},
    {"GetCert",
     [](SoftwareKey& k) {
         k.GetEnrolled();
         EXPECT_EQ(k.key.GetCert(k.serial, 1, 2), k.SigningText());
     }},
    {"GetCertDN",
     [](SoftwareKey& k) {
         k.GetEnrolled();
         EXPECT_EQ(k.key.GetCertDN(k.serial, 1, 2), "CN=Signer");
     }},
    {"GetCertInfo", UseGetCertInfo},
    {"DelCertAndTempKey", UseDelCertAndTempKey},
    {"RegisterCert",
     [](SoftwareKey& k) { EXPECT_EQ(k.key.Try().RegisterCert().code(), KESTA_UNSUPPORTED); }},
    {"UnregisterCert",
     [](SoftwareKey& k) { EXPECT_EQ(k.key.Try().UnregisterCert().code(), KESTA_UNSUPPORTED); }},
    {"RepairDriver",
     [](SoftwareKey& k) { EXPECT_EQ(k.key.Try().RepairDriver().code(), KESTA_UNSUPPORTED); }},
    {"Sign", UseSign},
    {"SignHash", UseSignHash},
    {"Batch_Sign", UseBatchSign},
    {"AsymDec", UseAsymDec},
    {"GetLabel", UseLabel},
    {"SetLabel", UseLabel},
    {"SetData", UseData},
    {"GetData", UseData},
    {"SetCharset", UseSetCharset},
    {"SetLanguage", UseSetLanguage},
    {"WaitForKeyEvent", UseEvents},
    {"StopDetectUKey", UseStopDetectUKey},
    {"GenerateCertRequest", UseGenerateCertRequest},
    {"Batch_InitAndGenerateCertRequest", UseBatchRequest},
    {"ImportX509Cert", UseImportX509Cert},
    {"ImportEncX509Cert", UseImportEncX509Cert},
    {"Batch_ImportX509Cert", UseBatchImport},
    {"CheckDriverIntegrity",
     [](SoftwareKey& k) {
         k.key.CheckDriverIntegrity();
         EXPECT_EQ(k.key.Try().CheckDriverIntegrity(2).code(), KESTA_UNSUPPORTED);
     }},
};

TEST(Uses, are_of_each_function_of_the_public_header) {
    EXPECT_EQ(NamesOf(kUses), DeclaredFunctions());
}

TEST_P(SoftwareKey, answers) {
    GetParam().run(*this);
}

using OneKey = flow::KeyTest;

TEST_F(OneKey, tells_its_tries_and_kinds_and_signs_by_names) {
    const auto key = kesta::Library::Linked().PresentKey();
    Enrol();
    EnterPin("000000");
    const auto wrong = key.Try().VerifyPIN();
    ASSERT_FALSE(wrong.ok());
    EXPECT_EQ(wrong.failure().kind(), kesta::Kind::kPinWrong);
    ASSERT_TRUE(key.PinTries());
    EXPECT_EQ(key.PinTries()->left, 5U);
    EnterPin(kPin);
    const flow::Certificate certificate(key.GetCert(kesta::CertType::kSigning));
    EXPECT_TRUE(certificate.Verifies(
        "pay", key.Sign(kesta::KeyType::kSm2, kesta::HashType::kSm3, "pay", "Pay?"), "SM3"));
    const auto batch = key.Batch_Sign({{"one", "two", "three"}, "Sign three?"});
    ASSERT_EQ(batch.size(), 3U);
    EXPECT_TRUE(certificate.Verifies("three", batch[2], "SM3"));
    EXPECT_EQ(key.Try().GetCert(kesta::CertType{7}).failure().kind(), kesta::Kind::kBadArgument);
}

INSTANTIATE_TEST_SUITE_P(EachOperation, SoftwareKey, testing::ValuesIn(kUses),
                         [](const auto& test) { return std::string(test.param.name); });

}  // namespace

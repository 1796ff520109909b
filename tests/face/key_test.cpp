// A key that is bound to its serial number: what its members hand to the library.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kesta/ukey.hpp"
#include "public_header.h"
#include "stand_in.h"

namespace kesta {
namespace {

using testing::ElementsAre;

constexpr auto kSigning = CertType::kSigning;
constexpr auto kSm2 = KeyType::kSm2;
constexpr auto kSm3 = HashType::kSm3;
const std::vector<RequestGroup> kGroups = {{kSigning, kSm2, kSm3}};

struct Member {
    const char* name;
    const char* call;
    void (*run)(const Key&);
};
void PrintTo(const Member& member, std::ostream* stream) {
    *stream << member.name;
}

const Member kMembers[] = {
    {"ChangePin", "ChangePin SN", [](const Key& k) { k.ChangePin(); }},
    {"InitUKey", "InitUKey SN", [](const Key& k) { k.InitUKey(); }},
    {"TestInitUKey", "TestInitUKey SN NULL", [](const Key& k) { k.TestInitUKey(); }},
    {"VerifyPIN", "VerifyPIN SN", [](const Key& k) { k.VerifyPIN(); }},
    {"TestVerifyAndCachePin", "TestVerifyAndCachePin SN NULL",
     [](const Key& k) { k.TestVerifyAndCachePin(); }},
    {"GetPinInfo", "GetPinInfo SN", [](const Key& k) { k.GetPinInfo(); }},
    {"SetCachePinFlag", "SetCachePinFlag SN 1", [](const Key& k) { k.SetCachePinFlag(true); }},
    {"GetCert", "GetCert SN 3 2", [](const Key& k) { k.GetCert(CertType::kEncryption); }},
    {"GetCertDN", "GetCertDN SN 1 7", [](const Key& k) { k.GetCertDN(kSigning, KeyType{7}); }},
    {"GetCertInfo", "GetCertInfo SN 1", [](const Key& k) { k.GetCertInfo(kSigning); }},
    {"DelCertAndTempKey", "DelCertAndTempKey SN 1 1",
     [](const Key& k) { k.DelCertAndTempKey(kSigning, KeyType::kRsa); }},
    {"Sign", "Sign SN 2 3 data warning",
     [](const Key& k) { k.Sign(kSm2, kSm3, "data", "warning"); }},
    {"SignHash", "SignHash SN 2 3 digest 2",
     [](const Key& k) { k.SignHash(kSm2, kSm3, "digest", HashForm::kBase64); }},
    {"Batch_Sign", "Batch_Sign 1 pointer 2 0 a pointer NULL 0 0 b||c 2 12306",
     [](const Key& k) {
         k.Batch_Sign({{"a", "b", "c"}, "warning"});
     }},
    {"AsymDec", "AsymDec SN 3 2 cipher", [](const Key& k) { k.AsymDec("cipher"); }},
    {"GetLabel", "GetLabel SN", [](const Key& k) { k.GetLabel(); }},
    {"SetLabel", "SetLabel SN label", [](const Key& k) { k.SetLabel("label"); }},
    {"SetCharset", "SetCharset UTF-8 SN", [](const Key& k) { k.SetCharset("UTF-8"); }},
    {"SetLanguage", "SetLanguage en_US SN", [](const Key& k) { k.SetLanguage("en_US"); }},
    {"GenerateCertRequest", "GenerateCertRequest SN CertType(1)KeyType(2)HashType(3)",
     [](const Key& k) { k.GenerateCertRequest(kGroups); }},
    {"Batch_InitAndGenerateCertRequest",
     "Batch_InitAndGenerateCertRequest SN 1 CertType(1)KeyType(2)HashType(3)",
     [](const Key& k) { k.Batch_InitAndGenerateCertRequest(true, kGroups); }},
    {"ImportX509Cert", "ImportX509Cert SN cert", [](const Key& k) { k.ImportX509Cert("cert"); }},
    {"ImportEncX509Cert", "ImportEncX509Cert SN cert key",
     [](const Key& k) { k.ImportEncX509Cert("cert", "key"); }},
    {"Batch_ImportX509Cert", "Batch_ImportX509Cert SN bundle",
     [](const Key& k) { k.Batch_ImportX509Cert("bundle"); }}};

class KeyMembers : public testing::TestWithParam<Member> {};

TEST_P(KeyMembers, hand_the_serial_number_on) {
    stand_in().Reset();
    stand_in().text = "text";
    GetParam().run(Library::Linked().Key("SN"));
    EXPECT_EQ(stand_in().calls.back(), GetParam().call);
}

INSTANTIATE_TEST_SUITE_P(Each, KeyMembers, testing::ValuesIn(kMembers),
                         [](const auto& test) { return std::string(test.param.name); });

TEST(Key, has_a_member_for_each_function_that_takes_a_serial_number) {
    std::set<std::string> names = DeclaredFunctions("szSN");
    // Where the serial number is not called so.
    names.insert({"Batch_Sign", "SetCharset", "SetLanguage"});
    // What asks for one.
    names.erase("GetPrintNumber");
    EXPECT_EQ(NamesOf(kMembers), names);
}

class OneKey : public testing::Test {
protected:
    void SetUp() override { stand_in().Reset(); }
    const Key key = Library::Linked().Key("SN");
};

TEST_F(OneKey, present_key_is_the_one_that_the_token_names) {
    stand_in().text = "SN123";
    EXPECT_EQ(Library::Linked().PresentKey().serial(), "SN123");
}

TEST_F(OneKey, Try_answers_failures_without_exceptions) {
    stand_in().code = 7;
    EXPECT_EQ(key.Try().GetLabel().code(), 7);
    EXPECT_THROW(static_cast<void>(key.GetLabel()), Error);
}

TEST_F(OneKey, batch_without_a_warning_asks_nobody) {
    stand_in().text = "S1||S2";
    EXPECT_THAT(key.Batch_Sign({{"a", "b"}}), ElementsAre("S1", "S2"));
    EXPECT_EQ(stand_in().calls.back().substr(0, 13), "Batch_Sign 0 ");
}

TEST_F(OneKey, batch_hands_on_a_makers_flags) {
    BatchSignature batch{{"a"}, "warning"};
    batch.moreFlags = 4;
    static_cast<void>(key.Batch_Sign(batch));
    EXPECT_EQ(stand_in().calls.back().substr(0, 13), "Batch_Sign 5 ");
}

TEST_F(OneKey, empty_batch_is_refused) {
    EXPECT_EQ(key.Try().Batch_Sign({}).failure().kind(), Kind::kBadArgument);
    EXPECT_TRUE(stand_in().calls.empty());
}

TEST_F(OneKey, request_information_of_two_digits_is_a_failure_of_the_operation) {
    const auto result = key.Try().GenerateCertRequest({{CertType{10}, kSm2, kSm3}});
    ASSERT_FALSE(result.ok());
    EXPECT_EQ(result.failure().operation, "GenerateCertRequest");
    EXPECT_TRUE(stand_in().calls.empty());
}

class PinTries : public OneKey {
protected:
    void TearDown() override { CodeTable::Use(CodeTable::SoftwareKey()); }
    std::optional<Tries> Read(const std::string& record) {
        stand_in().text = record;
        return key.PinTries();
    }
};

TEST_F(PinTries, are_numbers_where_the_record_is_known) {
    const auto tries = Read(std::string("\x04\x06\x00\x00\x00\x06\x10\x00", 8));
    ASSERT_TRUE(tries);
    EXPECT_EQ(tries->left, 4U);
    EXPECT_EQ(tries->most, 6U);
    EXPECT_FALSE(tries->locked);
    EXPECT_TRUE(Read(std::string("\x00\x06\x01\x00\x00\x06\x10\x00", 8))->locked);
}

TEST_F(PinTries, are_not_told_of_a_record_that_cannot_be_one) {
    EXPECT_FALSE(Read(std::string("\x07\x06\x00\x00\x00\x06\x10\x00", 8)));  // more than at most
    EXPECT_FALSE(Read(std::string("\x04\x06\x02\x00\x00\x06\x10\x00", 8)));  // no truth value
    EXPECT_FALSE(Read(std::string("\x04\x06\x01\x00\x00\x06\x10\x00", 8)));  // locked with tries
    EXPECT_FALSE(Read("short"));
}

TEST(Tries, are_judged_by_each_of_their_numbers) {
    const PinRecord layout{3, 0, 1, 2};
    const auto known = [&](std::initializer_list<std::uint8_t> record) {
        return TriesOf(Bytes(record), layout).has_value();
    };
    EXPECT_TRUE(known({1, 1, 0}));
    EXPECT_TRUE(known({0, 1, 1}));
    EXPECT_TRUE(known({5, 5, 0}));
    EXPECT_FALSE(known({0, 0, 1})) << "of none";
    EXPECT_FALSE(known({2, 1, 0})) << "more than there are";
    EXPECT_FALSE(known({1, 1, 1})) << "locked and not";
    EXPECT_FALSE(known({0, 1, 0})) << "not locked";
    EXPECT_FALSE(known({0, 1, 2})) << "neither";
    EXPECT_FALSE(known({1, 1, 0, 0})) << "of another length";
    EXPECT_FALSE(known({1, 1})) << "of another length";
}

TEST_F(PinTries, are_not_told_where_the_record_is_not_known) {
    CodeTable::Use(CodeTable());
    EXPECT_FALSE(Read(std::string("\x04\x06\x00\x00\x00\x06\x10\x00", 8)));
    CodeTable other;
    other.pinRecord = PinRecord{8, 3, 4, 900};
    CodeTable::Use(other);
    EXPECT_FALSE(Read(std::string("\x04\x06\x00\x04\x06\x00\x00\x00", 8)));
}

TEST_F(PinTries, stand_where_the_makers_record_has_them) {
    CodeTable other;
    other.pinRecord = PinRecord{8, 3, 4, 0};
    CodeTable::Use(other);
    EXPECT_EQ(Read(std::string("\x00\x00\x00\x05\x08\x00\x00\x00", 8))->left, 5U);
}

}  // namespace
}  // namespace kesta

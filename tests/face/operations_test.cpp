// What the operations hand to the library and make of its answers.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <thread>

#include "kesta/ukey.hpp"
#include "public_header.h"
#include "stand_in.h"

namespace kesta {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class Face : public testing::Test {
protected:
    void SetUp() override { stand_in().Reset(); }
    const std::vector<std::string>& Calls() { return stand_in().calls; }
    const Library library = Library::Linked();
};

using Step = std::function<void(const Library&)>;
struct Forwarded {
    const char* call;
    Step step;
};
void PrintTo(const Forwarded& forwarded, std::ostream* stream) {
    *stream << forwarded.call;
}

std::string NameOf(const Forwarded& forwarded) {
    const std::string call = forwarded.call;
    return call.substr(0, call.find(' '));
}

class Forwards : public testing::TestWithParam<Forwarded> {};

TEST_P(Forwards, its_arguments_in_order) {
    stand_in().Reset();
    stand_in().text = "text";
    GetParam().step(Library::Linked());
    EXPECT_EQ(stand_in().calls.back(), GetParam().call);
}

TEST_P(Forwards, its_name_to_whoever_is_told_of_a_failure) {
    const std::string name = NameOf(GetParam());
    if (name == "Finalize" || name == "GetErrorMsg") return;  // never fail
    stand_in().Reset();
    const Library library = Library::Linked();
    library.Initialize();
    stand_in().raise = true;
    try {
        GetParam().step(library);
        FAIL() << "no failure";
    } catch (const Error& error) {
        EXPECT_EQ(error.operation(), name);
    }
}

BatchArguments SomeBatch() {
    BatchArguments batch;
    batch.flags = 1;
    batch.parameter2 = &batch;
    batch.parameter3 = 3;
    batch.parameter4 = 4;
    batch.data = "data";
    batch.parameter8 = 8;
    batch.parameter9 = 9;
    batch.list = {"a", "b"};
    batch.parameter11 = 11;
    return batch;
}

const Forwarded kForwarded[] = {
    {"Initialize", [](auto& l) { l.Initialize(); }},
    {"Finalize", [](auto& l) { l.Finalize(); }},
    {"GetErrorMsg -5", [](auto& l) { l.GetErrorMsg(-5); }},
    {"GetDriverVersion", [](auto& l) { l.GetDriverVersion(); }},
    {"GetDllVersion", [](auto& l) { l.GetDllVersion(); }},
    {"GetVidAndPid", [](auto& l) { l.GetVidAndPid(); }},
    {"GetPrintNumber", [](auto& l) { l.GetPrintNumber(); }},
    {"GetVendorInfo 2", [](auto& l) { l.GetVendorInfo(2); }},
    {"ChangePin SN", [](auto& l) { l.ChangePin("SN"); }},
    {"InitUKey SN", [](auto& l) { l.InitUKey("SN"); }},
    {"TestInitUKey SN NULL", [](auto& l) { l.TestInitUKey("SN"); }},
    {"VerifyPIN SN", [](auto& l) { l.VerifyPIN("SN"); }},
    {"TestVerifyAndCachePin SN NULL", [](auto& l) { l.TestVerifyAndCachePin("SN"); }},
    {"GetPinInfo SN", [](auto& l) { l.GetPinInfo("SN"); }},
    {"SetCachePinFlag SN 1", [](auto& l) { l.SetCachePinFlag("SN", 1); }},
    {"RemovePinCache", [](auto& l) { l.RemovePinCache(); }},
    {"GetCert SN 1 2", [](auto& l) { l.GetCert("SN", 1, 2); }},
    {"GetCertDN SN 1 2", [](auto& l) { l.GetCertDN("SN", 1, 2); }},
    {"GetCertInfo SN 1", [](auto& l) { l.GetCertInfo("SN", 1); }},
    {"DelCertAndTempKey SN 1 2", [](auto& l) { l.DelCertAndTempKey("SN", 1, 2); }},
    {"Sign SN 1 2 data warning", [](auto& l) { l.Sign("SN", 1, 2, "data", "warning"); }},
    {"SignHash SN 1 2 hash 3", [](auto& l) { l.SignHash("SN", 1, 2, "hash", 3); }},
    {"Batch_Sign 1 pointer 3 4 data NULL NULL 8 9 a||b 11 12312",
     [](auto& l) { l.Batch_Sign(SomeBatch()); }},
    {"AsymDec SN 1 2 cipher", [](auto& l) { l.AsymDec("SN", 1, 2, "cipher"); }},
    {"GetLabel SN", [](auto& l) { l.GetLabel("SN"); }},
    {"SetLabel SN label", [](auto& l) { l.SetLabel("SN", "label"); }},
    {"SetData name 1 value", [](auto& l) { l.SetData("name", 1, "value"); }},
    {"GetData name 1", [](auto& l) { l.GetData("name", 1); }},
    {"SetCharset a b", [](auto& l) { l.SetCharset("a", "b"); }},
    {"SetLanguage a b", [](auto& l) { l.SetLanguage("a", "b"); }},
    {"GenerateCertRequest SN CertType(1)",
     [](auto& l) { l.GenerateCertRequest("SN", "CertType(1)"); }},
    {"Batch_InitAndGenerateCertRequest SN 1 CertType(1)",
     [](auto& l) { l.Batch_InitAndGenerateCertRequest("SN", true, "CertType(1)"); }},
    {"ImportX509Cert SN cert", [](auto& l) { l.ImportX509Cert("SN", "cert"); }},
    {"ImportEncX509Cert SN cert key", [](auto& l) { l.ImportEncX509Cert("SN", "cert", "key"); }},
    {"Batch_ImportX509Cert SN bundle", [](auto& l) { l.Batch_ImportX509Cert("SN", "bundle"); }},
    {"CheckDriverIntegrity 1", [](auto& l) { l.CheckDriverIntegrity(); }}};

INSTANTIATE_TEST_SUITE_P(EachOperation, Forwards, testing::ValuesIn(kForwarded),
                         [](const auto& test) { return NameOf(test.param); });

TEST(Operations, are_all_held_against_what_the_library_is_handed) {
    std::set<std::string> names = {"GetLastErrCode", "RegisterCert",    "UnregisterCert",
                                   "RepairDriver",   "WaitForKeyEvent", "StopDetectUKey"};
    for (const Forwarded& forwarded : kForwarded) names.insert(NameOf(forwarded));
    EXPECT_EQ(names, DeclaredFunctions());
}

TEST_F(Face, obsolete_operations_fail_as_unsupported) {
    const auto failing = library.Try();
    const Failure failures[] = {failing.RegisterCert().failure(),
                                failing.UnregisterCert().failure(),
                                failing.RepairDriver().failure()};
    for (const Failure& failure : failures) EXPECT_EQ(failure.code, KESTA_UNSUPPORTED);
    EXPECT_EQ(failures[0].operation, "RegisterCert");
    EXPECT_EQ(failures[1].operation, "UnregisterCert");
    EXPECT_EQ(failures[2].operation, "RepairDriver");
}

TEST_F(Face, failing_stop_is_told) {
    stand_in().raise = true;
    EXPECT_EQ(library.Try().StopDetectUKey().failure().operation, "StopDetectUKey");
}

TEST_F(Face, GetLastErrCode_tells_the_code_of_the_latest_operation) {
    stand_in().code = 0x5B21;
    static_cast<void>(library.Try().VerifyPIN("SN").ok());
    EXPECT_EQ(library.GetLastErrCode(), 0x5B21);
}

TEST_F(Face, InitUKey_initialises_the_library_first_and_only_once) {
    library.InitUKey("SN");
    library.InitUKey("SN");
    EXPECT_THAT(Calls(), ElementsAre("Initialize", "InitUKey SN", "InitUKey SN"));
}

// They bind nothing themselves, and would initialise beside other threads.
TEST_F(Face, operations_that_ask_no_token_initialise_in_a_turn_first) {
    library.GetDllVersion();
    EXPECT_EQ(Calls().front(), "Initialize");
    stand_in().Reset();
    static_cast<void>(library.Try().CheckDriverIntegrity());
    EXPECT_EQ(Calls().front(), "Initialize");
}

TEST_F(Face, SetCachePinFlag_reports_a_failed_initialisation) {
    stand_in().code = KESTA_NOT_BOUND;
    const auto result = library.Try().SetCachePinFlag("SN", 1);
    ASSERT_FALSE(result.ok());
    EXPECT_EQ(result.failure().operation, "Initialize");
    EXPECT_EQ(result.code(), KESTA_NOT_BOUND);
}

TEST_F(Face, error_carries_code_operation_and_the_token_librarys_text) {
    stand_in().code = 0x5B21;
    stand_in().message = "the PIN is wrong";
    try {
        library.VerifyPIN("SN");
        FAIL() << "no exception";
    } catch (const Error& error) {
        EXPECT_EQ(error.code(), 0x5B21);
        EXPECT_EQ(error.operation(), "VerifyPIN");
        EXPECT_EQ(error.message(), "the PIN is wrong");
        EXPECT_STREQ(error.what(), "VerifyPIN: the PIN is wrong (0x00005B21)");
    }
}

TEST_F(Face, own_codes_have_texts_without_asking_the_token_library) {
    stand_in().code = KESTA_NOT_BOUND;
    const auto result = library.Try().VerifyPIN("SN");
    EXPECT_THAT(result.failure().Text(), HasSubstr("(-101)"));
    EXPECT_THAT(Calls(), ElementsAre("VerifyPIN SN"));
}

TEST_F(Face, Try_answers_values_and_failures_without_exceptions) {
    stand_in().text = "label";
    EXPECT_EQ(library.Try().GetLabel("SN").value(), "label");
    stand_in().code = 7;
    EXPECT_EQ(library.Try().GetLabel("SN").code(), 7);
}

TEST_F(Face, value_of_a_failure_throws_it) {
    stand_in().code = 7;
    const auto result = library.Try().GetLabel("SN");
    EXPECT_THROW(static_cast<void>(result.value()), Error);
}

TEST_F(Face, exception_out_of_the_library_becomes_a_failure) {
    stand_in().raise = true;
    const auto plain = library.Try().SetLabel("SN", "label");
    const auto text = library.Try().GetLabel("SN");
    const auto requests = library.Try().GenerateCertRequest("SN", "CertType(1)");
    for (const Failure* failure : {&plain.failure(), &text.failure(), &requests.failure()}) {
        EXPECT_THAT(failure->message, HasSubstr("exception"));
    }
}

TEST_F(Face, refusal_reaches_the_library_not_at_all) {
    const auto key = library.Try().ImportEncX509Cert("SN", "cert", std::string(1025, 'A'));
    const auto bundle =
        library.Try().Batch_ImportX509Cert("SN", "EncPriKey(" + std::string(1025, 'A') + ")");
    const auto group = library.Try().GenerateCertRequest("SN", "CertType");
    const auto batch = library.Try().Batch_InitAndGenerateCertRequest("SN", true, "CertType");
    const auto nul = library.Try().SetLabel("SN", std::string("a\0b", 3));
    BatchArguments list;
    list.list = {"a||b"};
    const auto item = library.Try().Batch_Sign(list);
    for (const int code :
         {key.code(), bundle.code(), group.code(), batch.code(), nul.code(), item.code()}) {
        EXPECT_EQ(code, KESTA_BAD_ARGUMENT);
    }
    EXPECT_EQ(nul.failure().origin, Failure::Origin::kRefused);
    EXPECT_TRUE(Calls().empty());
}

TEST_F(Face, requests_are_probed_and_fetched_with_the_same_arguments) {
    stand_in().text = "R1||R2";
    EXPECT_THAT(library.GenerateCertRequest("SN", "CertType(1)|"), ElementsAre("R1", "R2"));
    EXPECT_THAT(Calls(), ElementsAre("GenerateCertRequest SN CertType(1)|",
                                     "GenerateCertRequest SN CertType(1)|"));
}

TEST_F(Face, fetched_requests_count_although_the_code_is_another_threads) {
    stand_in().text = "R1";
    stand_in().fetchCode = 0x5B71;
    EXPECT_THAT(library.Batch_InitAndGenerateCertRequest("SN", false, "CertType(1)"),
                ElementsAre("R1"));
}

TEST_F(Face, no_requests_are_an_empty_list) {
    EXPECT_TRUE(library.GenerateCertRequest("SN", "").empty());
}

TEST_F(Face, lost_requests_are_a_failure) {
    stand_in().text = "R1";
    stand_in().fetchLost = true;
    EXPECT_EQ(library.Try().GenerateCertRequest("SN", "CertType(1)").code(),
              KESTA_BUFFER_TOO_SMALL);
}

TEST_F(Face, Batch_Sign_refuses_a_list_whose_signatures_no_length_tells) {
    BatchArguments batch;
    batch.list.assign(14338, "aa");
    batch.list.resize(16384, "a");  // with the separators 63488 bytes: 2^31 bytes for the answer
    EXPECT_EQ(library.Try().Batch_Sign(batch).failure().origin, Failure::Origin::kRefused);
    EXPECT_TRUE(Calls().empty());
}

TEST(RequestGroups, have_a_digit_for_each_number) {
    EXPECT_EQ(RequestInfo({{CertType{0}, KeyType{9}, HashType{0}}}),
              "CertType(0)KeyType(9)HashType(0)");
    for (const int number : {-1, 10}) {
        const auto cert = static_cast<CertType>(number);
        const auto key = static_cast<KeyType>(number);
        const auto hash = static_cast<HashType>(number);
        EXPECT_THROW(RequestInfo({{cert, KeyType::kSm2, HashType::kSm3}}), Error);
        EXPECT_THROW(RequestInfo({{CertType::kSigning, key, HashType::kSm3}}), Error);
        EXPECT_THROW(RequestInfo({{CertType::kSigning, KeyType::kSm2, hash}}), Error);
    }
}

TEST_F(Face, Batch_Sign_makes_room_for_a_list_of_one_text) {
    stand_in().text = "S1";
    BatchArguments batch;
    batch.list = {"text"};
    EXPECT_THAT(library.Batch_Sign(batch), ElementsAre("S1"));
    EXPECT_THAT(Calls().back(), HasSubstr("text 0 4104"));
}

TEST_F(Face, operations_of_several_threads_take_turns) {
    stand_in().sleepMillis = 5;
    const Library copy = library;
    std::thread other([&copy] {
        for (int i = 0; i < 10; ++i) copy.VerifyPIN("SN");
    });
    for (int i = 0; i < 10; ++i) static_cast<void>(library.GetLabel("SN"));
    other.join();
    EXPECT_EQ(stand_in().mostInside, 1);
}

TEST(Loading, takes_the_functions_from_the_file_that_is_named) {
    stand_in().Reset();
    const Library library = Library::Load(STAND_IN_FILE);
    library.SetLabel("SN", "label");
    EXPECT_EQ(stand_in().calls.back(), "SetLabel SN label");
}

TEST(Loading, missing_file_is_a_failure_that_names_it) {
    const auto result = Library::TryLoad("/nowhere/libkesta.so");
    ASSERT_FALSE(result.ok());
    EXPECT_EQ(result.failure().origin, Failure::Origin::kLoading);
    EXPECT_THAT(result.failure().message, HasSubstr("/nowhere/libkesta.so: cannot open"));
}

TEST(Loading, library_without_the_functions_is_a_failure_that_names_one) {
    const auto result = Library::TryLoad("libc.so.6");
    ASSERT_FALSE(result.ok());
    EXPECT_THAT(result.failure().message, HasSubstr("Initialize"));
}

}  // namespace
}  // namespace kesta

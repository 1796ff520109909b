// Batch_InitAndGenerateCertRequest: its steps, one by one.
#include <algorithm>

#include "api_test.h"
#include "lgn_exception.h"

namespace {

constexpr const char* kOneGroup = "CertType(1)KeyType(2)HashType(3)";

// The bytes of a request record, counted out.
std::string Record(char cert, char key, char hash, char paired) {
    std::string bytes(32, '\0');
    bytes[0] = cert;
    bytes[8] = key;
    bytes[16] = hash;
    bytes[24] = paired;
    return bytes;
}

Lines RecordsSeen() {
    Lines records;
    for (const recording::Call& call : TheRecorder().Calls("GMCreatePKCS10Ex")) {
        records.push_back(call.Bytes(1));
    }
    return records;
}

int Probe(const char* request, int initialise = 0, const char* serial = "A1") {
    int length = 77;
    const int code =
        Batch_InitAndGenerateCertRequest(serial, initialise, request, nullptr, &length);
    if (code != 0) {
        EXPECT_EQ(length, 77);
        EXPECT_EQ(G_LastError, code);
    }
    return code != 0 ? code : length;
}

const std::string oneRecord =
    "010000000000000002000000000000000300000000000000"
    "0000000000000000";

}  // namespace

// ---- Arguments ----------------------------------------------------------------------------------

TEST(BatchRequest, without_request_or_length_pointer_is_minus_401) {
    CanaryBuffer buffer(8);
    int length = 8;
    EXPECT_EQ(Batch_InitAndGenerateCertRequest("A1", 0, nullptr, buffer.data(), &length), -401);
    EXPECT_EQ(G_LastError, -401);
    G_LastError = 0;
    EXPECT_EQ(Batch_InitAndGenerateCertRequest("A1", 0, kOneGroup, buffer.data(), nullptr), -401);
    EXPECT_EQ(G_LastError, -401);
    EXPECT_EQ(length, 8);
    EXPECT_TRUE(buffer.Untouched());
    EXPECT_EQ(Trace(), Lines{});
    EXPECT_TRUE(g_initFlag);
}

TEST(BatchRequest, hands_its_arguments_on) {
    TheRecorder().On("GMCreatePKCS10Ex").Request("MIIB");
    char serial[] = "A1";
    int length = 0;
    EXPECT_EQ(Batch_InitAndGenerateCertRequest(serial, 0, kOneGroup, nullptr, &length), 0);
    EXPECT_EQ(Trace(), (Lines{"VerifyPIN(\"A1\")",
                              "GMCreatePKCS10Ex(\"A1\", " + oneRecord + ", &null, 1, null, 0)"}));
    EXPECT_EQ(TheRecorder().Only("VerifyPIN").At(0).address, serial);
    EXPECT_NE(TheRecorder().Only("GMCreatePKCS10Ex").At(0).address, serial);
    EXPECT_EQ(length, 5);
    EXPECT_EQ(TheRecorder().LiveRequests(), 0);
}

TEST(BatchRequest, initialises_the_key_instead_of_verifying_the_user) {
    const char* const serial = "A1";
    int length = 0;
    EXPECT_EQ(Batch_InitAndGenerateCertRequest(serial, 1, kOneGroup, nullptr, &length), 0);
    EXPECT_EQ(Trace(), (Lines{"CustInitCard(\"A1\", 1, null, 0)",
                              "GMCreatePKCS10Ex(\"A1\", " + oneRecord + ", &null, 1, null, 0)"}));
    EXPECT_EQ(TheRecorder().Only("CustInitCard").At(0).address, serial);
}

TEST(BatchRequest, refuses_another_init_flag_before_it_asks) {
    for (const int flag : {2, 3, -1, 2147483647, -2147483647 - 1}) {
        EXPECT_EQ(Probe(kOneGroup, flag), -401) << flag;
    }
    EXPECT_EQ(Trace(), Lines{});
}

TEST(BatchRequest, parses_before_it_looks_at_the_init_flag) {
    EXPECT_EQ(CodeThrownBy([] { Probe("CertType", 2); }), invalid_argument);
}

TEST(BatchRequest, does_not_let_the_token_change_the_callers_serial_number) {
    char serial[] = "A1";
    TheRecorder().On("GMCreatePKCS10Ex").Writes(0, "zz");
    int length = 0;
    Batch_InitAndGenerateCertRequest(serial, 0, kOneGroup, nullptr, &length);
    EXPECT_STREQ(serial, "A1");
}

TEST(BatchRequest, hands_a_null_serial_number_on_where_it_passes_the_callers_pointer) {
    EXPECT_EQ(Probe(kOneGroup, 0, nullptr), 1);
    EXPECT_EQ(Probe(kOneGroup, 1, nullptr), 1);
    EXPECT_EQ(Trace(), (Lines{"VerifyPIN(null)",
                              "GMCreatePKCS10Ex(\"\", " + oneRecord + ", &null, 1, null, 0)",
                              "CustInitCard(null, 1, null, 0)",
                              "GMCreatePKCS10Ex(\"\", " + oneRecord + ", &null, 1, null, 0)"}));
}

TEST(BatchRequest, caches_a_null_serial_number_as_an_empty_one) {
    TheRecorder().On("GMCreatePKCS10Ex").Request("MIIB");
    for (const char* const serial : {static_cast<const char*>(nullptr), ""}) {
        ASSERT_EQ(Probe(kOneGroup, 0, nullptr), 5);
        TheRecorder().Forget();
        CanaryBuffer buffer(5);
        int length = 5;
        EXPECT_EQ(Batch_InitAndGenerateCertRequest(serial, 0, kOneGroup, buffer.data(), &length),
                  0);
        EXPECT_TRUE(buffer.HoldsOnly(std::string("MIIB", 5)));
        EXPECT_EQ(Trace(), Lines{});
    }
}

// ---- Log ----------------------------------------------------------------------------------------

TEST(BatchRequest, logs_its_arguments_and_nothing_else) {
    Probe(kOneGroup);
    EXPECT_EQ(LogLines(), (Lines{std::string("Batch_InitAndGenerateCertRequest|Begin szSN = A1,"
                                             "requestInfo = ") +
                                 kOneGroup}));
}

TEST(BatchRequest, logs_before_it_initialises_and_before_it_checks) {
    Lines atFirstUse;
    TheRecorder().WhenLookedUp([&atFirstUse] { atFirstUse = LogLines(); });
    EXPECT_EQ(Batch_InitAndGenerateCertRequest("A1", 0, "x", nullptr, nullptr), -401);
    const Lines expected{"Batch_InitAndGenerateCertRequest|Begin szSN = A1,requestInfo = x"};
    EXPECT_EQ(atFirstUse, expected);
    EXPECT_EQ(LogLines(), expected);
}

TEST(BatchRequest, hands_null_texts_to_the_formatter) {
    EXPECT_EQ(Batch_InitAndGenerateCertRequest(nullptr, 0, nullptr, nullptr, nullptr), -401);
    EXPECT_EQ(LogLines(), (Lines{"Batch_InitAndGenerateCertRequest|Begin szSN = (null),"
                                 "requestInfo = (null)"}));
}

TEST(BatchRequest, does_not_take_its_arguments_for_formats) {
    Probe("%s%n", 0, "%n");
    EXPECT_EQ(LogLines(),
              (Lines{"Batch_InitAndGenerateCertRequest|Begin szSN = %n,requestInfo = %s%n"}));
}

// ---- Parsing ------------------------------------------------------------------------------------

TEST(BatchRequest, reads_names_in_any_case_with_blanks_around_them) {
    EXPECT_EQ(Probe("|| certtype (1) KEYTYPE\t(2)\nhAsHtYpE(3)||"), 1);
    EXPECT_EQ(RecordsSeen(), (Lines{Record(1, 2, 3, 0)}));
}

TEST(BatchRequest, carries_values_over_to_the_next_group) {
    EXPECT_EQ(Probe("CertType(1)KeyType(1)HashType(3)|HashType(4)|CertType(2)"), 5);
    EXPECT_EQ(RecordsSeen(), (Lines{Record(1, 1, 3, 0), Record(1, 1, 4, 0), Record(2, 1, 4, 0)}));
}

TEST(BatchRequest, takes_one_character_of_a_value) {
    EXPECT_EQ(Probe("CertType(12)KeyType(1)HashType(/)"), 1);
    std::string expected = Record(1, 1, 0, 0);
    std::fill(expected.begin() + 16, expected.begin() + 24, '\xFF');  // -1, widened with its sign
    EXPECT_EQ(RecordsSeen(), (Lines{expected}));
}

TEST(BatchRequest, refuses_an_unknown_name_before_it_asks) {
    EXPECT_EQ(Probe("CertType(1)KeyType(2)|Colour(1)"), -401);
    EXPECT_EQ(Probe("Cert Type(1)", 1), -401);
    EXPECT_EQ(Trace(), Lines{});
}

TEST(BatchRequest, lets_the_exception_of_a_name_that_ends_the_group_pass) {
    Initialize();
    G_LastError = unrelated_code;
    EXPECT_EQ(CodeThrownBy([] { Probe("CertType"); }), invalid_argument);
    EXPECT_EQ(G_LastError, 0) << "cleared before the text is read";
    EXPECT_EQ(Trace(), Lines{});
}

TEST(BatchRequest, refuses_a_fourth_group_before_it_asks) {
    EXPECT_EQ(Probe("KeyType(1)|KeyType(1)|KeyType(1)|KeyType(1)", 1), -401);
    EXPECT_EQ(Trace(), Lines{});
}

TEST(BatchRequest, refuses_a_fourth_group_before_it_reads_it) {
    EXPECT_EQ(Probe("KeyType(1)|KeyType(1)|KeyType(1)|CertType"), -401);
}

TEST(BatchRequest, counts_no_empty_groups) {
    EXPECT_EQ(Probe("|CertType(1)KeyType(1)|||HashType(1)||HashType(2)|||"), 5);
    EXPECT_EQ(RecordsSeen().size(), 3U);
}

TEST(BatchRequest, counts_folded_groups) {
    EXPECT_EQ(Probe("CertType(1)KeyType(2)|CertType(3)|CertType(3)|CertType(3)"), -401);
    EXPECT_EQ(Trace(), Lines{});
}

TEST(BatchRequest, refuses_an_encryption_request_for_another_key_type) {
    EXPECT_EQ(Probe("CertType(3)KeyType(1)"), -401);
    EXPECT_EQ(Probe("CertType(3)"), -401);
    EXPECT_EQ(Probe("CertType(1)KeyType(1)|CertType(3)", 1), -401);
    EXPECT_EQ(Trace(), Lines{});
}

TEST(BatchRequest, checks_each_group_once_it_is_read_as_a_whole) {
    EXPECT_EQ(Probe("CertType(3)KeyType(2)HashType(1)"), 1);
    EXPECT_EQ(RecordsSeen(), (Lines{Record(3, 2, 1, 0)}));
}

// ---- Folding ------------------------------------------------------------------------------------

TEST(BatchRequest, folds_an_encryption_request_into_the_signing_one) {
    TheRecorder().On("GMCreatePKCS10Ex").Request("MIIB");
    EXPECT_EQ(Probe("CertType(1)KeyType(2)HashType(1)|CertType(3)KeyType(2)HashType(5)"), 5);
    EXPECT_EQ(RecordsSeen(), (Lines{Record(1, 2, 1, 1)}));
}

TEST(BatchRequest, folds_a_signing_request_into_the_encryption_one_and_takes_its_type) {
    EXPECT_EQ(Probe("CertType(3)KeyType(2)HashType(1)|CertType(1)KeyType(2)HashType(5)"), 1);
    EXPECT_EQ(RecordsSeen(), (Lines{Record(1, 2, 1, 1)}));
}

TEST(BatchRequest, joins_two_signing_requests) {
    TheRecorder().On("GMCreatePKCS10Ex", 1).Request("first");
    TheRecorder().On("GMCreatePKCS10Ex", 2).Request("second");
    CanaryBuffer buffer(32);
    int length = 32;
    EXPECT_EQ(Batch_InitAndGenerateCertRequest("A1", 0, "CertType(1)KeyType(2)|HashType(1)",
                                               buffer.data(), &length),
              0);
    EXPECT_EQ(length, 13);
    EXPECT_TRUE(buffer.HoldsOnly(std::string("first||second", 14)));
    EXPECT_EQ(RecordsSeen(), (Lines{Record(1, 2, 0, 0), Record(1, 2, 1, 0)}));
    EXPECT_EQ(TheRecorder().Calls("VerifyPIN").size(), 1U);
}

// Batch_InitAndGenerateCertRequest: its steps, one by one.
#include <algorithm>

#include "api_test.h"
#include "lgn_exception.h"

namespace {

constexpr const char* one_group = "CertType(1)KeyType(2)HashType(3)";

// The bytes of a request record, counted out.
std::string record(char cert, char key, char hash, char paired) {
    std::string bytes(32, '\0');
    bytes[0] = cert;
    bytes[8] = key;
    bytes[16] = hash;
    bytes[24] = paired;
    return bytes;
}

Lines records_seen() {
    Lines records;
    for (const recording::Call& call : recorder().calls("GMCreatePKCS10Ex")) {
        records.push_back(call.bytes(1));
    }
    return records;
}

int probe(const char* request, int initialise = 0, const char* serial = "A1") {
    int length = 77;
    const int code =
        Batch_InitAndGenerateCertRequest(serial, initialise, request, nullptr, &length);
    if (code != 0) {
        EXPECT_EQ(length, 77);
        EXPECT_EQ(G_LastError, code);
    }
    return code != 0 ? code : length;
}

const std::string one_record =
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
    EXPECT_EQ(Batch_InitAndGenerateCertRequest("A1", 0, one_group, buffer.data(), nullptr), -401);
    EXPECT_EQ(G_LastError, -401);
    EXPECT_EQ(length, 8);
    EXPECT_TRUE(buffer.untouched());
    EXPECT_EQ(trace(), Lines{});
    EXPECT_TRUE(g_initFlag);
}

TEST(BatchRequest, hands_its_arguments_on) {
    recorder().on("GMCreatePKCS10Ex").request("MIIB");
    char serial[] = "A1";
    int length = 0;
    EXPECT_EQ(Batch_InitAndGenerateCertRequest(serial, 0, one_group, nullptr, &length), 0);
    EXPECT_EQ(trace(), (Lines{"VerifyPIN(\"A1\")",
                              "GMCreatePKCS10Ex(\"A1\", " + one_record + ", &null, 1, null, 0)"}));
    EXPECT_EQ(recorder().only("VerifyPIN").at(0).address, serial);
    EXPECT_NE(recorder().only("GMCreatePKCS10Ex").at(0).address, serial);
    EXPECT_EQ(length, 5);
    EXPECT_EQ(recorder().live_requests(), 0);
}

TEST(BatchRequest, initialises_the_key_instead_of_verifying_the_user) {
    const char* const serial = "A1";
    int length = 0;
    EXPECT_EQ(Batch_InitAndGenerateCertRequest(serial, 1, one_group, nullptr, &length), 0);
    EXPECT_EQ(trace(), (Lines{"CustInitCard(\"A1\", 1, null, 0)",
                              "GMCreatePKCS10Ex(\"A1\", " + one_record + ", &null, 1, null, 0)"}));
    EXPECT_EQ(recorder().only("CustInitCard").at(0).address, serial);
}

TEST(BatchRequest, refuses_another_init_flag_before_it_asks) {
    for (const int flag : {2, 3, -1, 2147483647, -2147483647 - 1}) {
        EXPECT_EQ(probe(one_group, flag), -401) << flag;
    }
    EXPECT_EQ(trace(), Lines{});
}

TEST(BatchRequest, parses_before_it_looks_at_the_init_flag) {
    EXPECT_EQ(code_thrown_by([] { probe("CertType", 2); }), invalid_argument);
}

TEST(BatchRequest, does_not_let_the_token_change_the_callers_serial_number) {
    char serial[] = "A1";
    recorder().on("GMCreatePKCS10Ex").writes(0, "zz");
    int length = 0;
    Batch_InitAndGenerateCertRequest(serial, 0, one_group, nullptr, &length);
    EXPECT_STREQ(serial, "A1");
}

TEST(BatchRequest, hands_a_null_serial_number_on_where_it_passes_the_callers_pointer) {
    EXPECT_EQ(probe(one_group, 0, nullptr), 1);
    EXPECT_EQ(probe(one_group, 1, nullptr), 1);
    EXPECT_EQ(trace(), (Lines{"VerifyPIN(null)",
                              "GMCreatePKCS10Ex(\"\", " + one_record + ", &null, 1, null, 0)",
                              "CustInitCard(null, 1, null, 0)",
                              "GMCreatePKCS10Ex(\"\", " + one_record + ", &null, 1, null, 0)"}));
}

TEST(BatchRequest, caches_a_null_serial_number_as_an_empty_one) {
    recorder().on("GMCreatePKCS10Ex").request("MIIB");
    for (const char* const serial : {static_cast<const char*>(nullptr), ""}) {
        ASSERT_EQ(probe(one_group, 0, nullptr), 5);
        recorder().forget();
        CanaryBuffer buffer(5);
        int length = 5;
        EXPECT_EQ(Batch_InitAndGenerateCertRequest(serial, 0, one_group, buffer.data(), &length),
                  0);
        EXPECT_TRUE(buffer.holds_only(std::string("MIIB", 5)));
        EXPECT_EQ(trace(), Lines{});
    }
}

// ---- Log ----------------------------------------------------------------------------------------

TEST(BatchRequest, logs_its_arguments_and_nothing_else) {
    probe(one_group);
    EXPECT_EQ(log_lines(), (Lines{std::string("Batch_InitAndGenerateCertRequest|Begin szSN = A1,"
                                              "requestInfo = ") +
                                  one_group}));
}

TEST(BatchRequest, logs_before_it_initialises_and_before_it_checks) {
    Lines at_first_use;
    recorder().when_looked_up([&at_first_use] { at_first_use = log_lines(); });
    EXPECT_EQ(Batch_InitAndGenerateCertRequest("A1", 0, "x", nullptr, nullptr), -401);
    const Lines expected{"Batch_InitAndGenerateCertRequest|Begin szSN = A1,requestInfo = x"};
    EXPECT_EQ(at_first_use, expected);
    EXPECT_EQ(log_lines(), expected);
}

TEST(BatchRequest, hands_null_texts_to_the_formatter) {
    EXPECT_EQ(Batch_InitAndGenerateCertRequest(nullptr, 0, nullptr, nullptr, nullptr), -401);
    EXPECT_EQ(log_lines(), (Lines{"Batch_InitAndGenerateCertRequest|Begin szSN = (null),"
                                  "requestInfo = (null)"}));
}

TEST(BatchRequest, does_not_take_its_arguments_for_formats) {
    probe("%s%n", 0, "%n");
    EXPECT_EQ(log_lines(),
              (Lines{"Batch_InitAndGenerateCertRequest|Begin szSN = %n,requestInfo = %s%n"}));
}

// ---- Parsing ------------------------------------------------------------------------------------

TEST(BatchRequest, reads_names_in_any_case_with_blanks_around_them) {
    EXPECT_EQ(probe("|| certtype (1) KEYTYPE\t(2)\nhAsHtYpE(3)||"), 1);
    EXPECT_EQ(records_seen(), (Lines{record(1, 2, 3, 0)}));
}

TEST(BatchRequest, carries_values_over_to_the_next_group) {
    EXPECT_EQ(probe("CertType(1)KeyType(1)HashType(3)|HashType(4)|CertType(2)"), 5);
    EXPECT_EQ(records_seen(), (Lines{record(1, 1, 3, 0), record(1, 1, 4, 0), record(2, 1, 4, 0)}));
}

TEST(BatchRequest, takes_one_character_of_a_value) {
    EXPECT_EQ(probe("CertType(12)KeyType(1)HashType(/)"), 1);
    std::string expected = record(1, 1, 0, 0);
    std::fill(expected.begin() + 16, expected.begin() + 24, '\xFF');  // -1, widened with its sign
    EXPECT_EQ(records_seen(), (Lines{expected}));
}

TEST(BatchRequest, refuses_an_unknown_name_before_it_asks) {
    EXPECT_EQ(probe("CertType(1)KeyType(2)|Colour(1)"), -401);
    EXPECT_EQ(probe("Cert Type(1)", 1), -401);
    EXPECT_EQ(trace(), Lines{});
}

TEST(BatchRequest, lets_the_exception_of_a_name_that_ends_the_group_pass) {
    Initialize();
    G_LastError = unrelated_code;
    EXPECT_EQ(code_thrown_by([] { probe("CertType"); }), invalid_argument);
    EXPECT_EQ(G_LastError, 0) << "cleared before the text is read";
    EXPECT_EQ(trace(), Lines{});
}

TEST(BatchRequest, refuses_a_fourth_group_before_it_asks) {
    EXPECT_EQ(probe("KeyType(1)|KeyType(1)|KeyType(1)|KeyType(1)", 1), -401);
    EXPECT_EQ(trace(), Lines{});
}

TEST(BatchRequest, refuses_a_fourth_group_before_it_reads_it) {
    EXPECT_EQ(probe("KeyType(1)|KeyType(1)|KeyType(1)|CertType"), -401);
}

TEST(BatchRequest, counts_no_empty_groups) {
    EXPECT_EQ(probe("|CertType(1)KeyType(1)|||HashType(1)||HashType(2)|||"), 5);
    EXPECT_EQ(records_seen().size(), 3U);
}

TEST(BatchRequest, counts_folded_groups) {
    EXPECT_EQ(probe("CertType(1)KeyType(2)|CertType(3)|CertType(3)|CertType(3)"), -401);
    EXPECT_EQ(trace(), Lines{});
}

TEST(BatchRequest, refuses_an_encryption_request_for_another_key_type) {
    EXPECT_EQ(probe("CertType(3)KeyType(1)"), -401);
    EXPECT_EQ(probe("CertType(3)"), -401);
    EXPECT_EQ(probe("CertType(1)KeyType(1)|CertType(3)", 1), -401);
    EXPECT_EQ(trace(), Lines{});
}

TEST(BatchRequest, checks_each_group_once_it_is_read_as_a_whole) {
    EXPECT_EQ(probe("CertType(3)KeyType(2)HashType(1)"), 1);
    EXPECT_EQ(records_seen(), (Lines{record(3, 2, 1, 0)}));
}

// ---- Folding ------------------------------------------------------------------------------------

TEST(BatchRequest, folds_an_encryption_request_into_the_signing_one) {
    recorder().on("GMCreatePKCS10Ex").request("MIIB");
    EXPECT_EQ(probe("CertType(1)KeyType(2)HashType(1)|CertType(3)KeyType(2)HashType(5)"), 5);
    EXPECT_EQ(records_seen(), (Lines{record(1, 2, 1, 1)}));
}

TEST(BatchRequest, folds_a_signing_request_into_the_encryption_one_and_takes_its_type) {
    EXPECT_EQ(probe("CertType(3)KeyType(2)HashType(1)|CertType(1)KeyType(2)HashType(5)"), 1);
    EXPECT_EQ(records_seen(), (Lines{record(1, 2, 1, 1)}));
}

TEST(BatchRequest, joins_two_signing_requests) {
    recorder().on("GMCreatePKCS10Ex", 1).request("first");
    recorder().on("GMCreatePKCS10Ex", 2).request("second");
    CanaryBuffer buffer(32);
    int length = 32;
    EXPECT_EQ(Batch_InitAndGenerateCertRequest("A1", 0, "CertType(1)KeyType(2)|HashType(1)",
                                               buffer.data(), &length),
              0);
    EXPECT_EQ(length, 13);
    EXPECT_TRUE(buffer.holds_only(std::string("first||second", 14)));
    EXPECT_EQ(records_seen(), (Lines{record(1, 2, 0, 0), record(1, 2, 1, 0)}));
    EXPECT_EQ(recorder().calls("VerifyPIN").size(), 1U);
}

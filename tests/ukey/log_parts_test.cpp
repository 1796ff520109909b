// The log's records and calls, put together from bytes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "log/pairing.h"
#include "log/reader.h"
#include "log/show.h"

namespace ukey {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

std::string Text(const std::string& time, const std::string& tag, const std::string& body,
                 int process = 41, int thread = -7) {
    return "[" + time + "] " + tag + ": (Process is " + std::to_string(process) + ", thread is " +
           std::to_string(thread) + ")\r\n\t[" + body + "]\r\n";
}

std::vector<LogRecord> ReadAll(const std::string& bytes, std::size_t piece = 100000) {
    LogReader reader;
    std::vector<LogRecord> all;
    for (std::size_t at = 0; at < bytes.size(); at += piece) {
        for (LogRecord& record : reader.Feed(bytes.substr(at, piece))) all.push_back(record);
    }
    for (LogRecord& record : reader.Pause()) all.push_back(record);
    return all;
}

TEST(LogHead, has_time_tag_process_and_thread) {
    const auto head = ParseHead("[07,12:03:04.056] GetDllVersion: (Process is 41, thread is -7)");
    ASSERT_TRUE(head);
    EXPECT_EQ(head->time.day, 7);
    EXPECT_EQ(head->time.micros, (((12 * 60 + 3) * 60 + 4) * 1000 + 56) * INT64_C(1000));
    EXPECT_EQ(head->tag, "GetDllVersion");
    EXPECT_EQ(head->process, 41);
    EXPECT_EQ(head->thread, -7);
}

TEST(LogHead, of_a_serial_number_counts_microseconds_without_leading_zeros) {
    const auto long_ = ParseHead("[07,12:03:04.56789] szSN:: (Process is 1, thread is 2)");
    const auto short_ = ParseHead("[07,12:03:04.056] szSN:: (Process is 1, thread is 2)");
    ASSERT_TRUE(long_ && short_);
    EXPECT_EQ(long_->tag, "szSN:");
    EXPECT_EQ(long_->time.micros % 1000000, 56789);
    EXPECT_EQ(short_->time.micros % 1000000, 56);
}

TEST(LogHead, keeps_colons_and_blanks_of_the_tag) {
    const auto head = ParseHead(
        "[07,12:03:04.056] CZRKUSBKey::ImportEncX509Cert  strPriKeyTemp:: (Process is 1, "
        "thread is 2)");
    ASSERT_TRUE(head);
    EXPECT_EQ(head->tag, "CZRKUSBKey::ImportEncX509Cert  strPriKeyTemp:");
}

TEST(LogHead, of_another_form_is_none) {
    for (const char* const line :
         {"", "[07,12:03:04] T: (Process is 1, thread is 2)",
          "[7,12:03:04.056] T: (Process is 1, thread is 2)", "[07,12:03:04.056] T",
          "[07,12:03:04.056] T: (Process is x, thread is 2)",
          "[07,12:03:04.056] T: (Process is 1, thread is 2) more", "\t[body]"}) {
        EXPECT_FALSE(ParseHead(line)) << line;
    }
}

TEST(LogReader, joins_the_two_lines_whatever_the_pieces) {
    const std::string log = Text("07,12:03:04.056", "A", "one") + Text("07,12:03:05.056", "B", "");
    for (std::size_t piece = 1; piece < 12; ++piece) {
        const auto records = ReadAll(log, piece);
        ASSERT_EQ(records.size(), 2U) << piece;
        EXPECT_EQ(records[0].body, "one");
        EXPECT_EQ(records[1].body, "");
    }
}

TEST(LogReader, keeps_line_breaks_of_a_body) {
    const auto records = ReadAll(Text("07,12:03:04.056", "A", "one\r\ntwo]\r\nthree\nfour") +
                                 Text("07,12:03:05.056", "B", "next"));
    ASSERT_EQ(records.size(), 2U);
    EXPECT_EQ(records[0].body, "one\r\ntwo]\r\nthree\nfour");
}

TEST(LogReader, hands_out_the_last_record_at_a_pause) {
    LogReader reader;
    EXPECT_TRUE(reader.Feed(Text("07,12:03:04.056", "A", "one")).empty());
    EXPECT_EQ(reader.Pause().size(), 1U);
    EXPECT_TRUE(reader.Pause().empty());
}

TEST(LogReader, does_not_take_half_a_record_for_a_whole_one) {
    LogReader reader;
    reader.Feed("[07,12:03:04.056] A: (Process is 1, thread is 2)\r\n\t[hal");
    EXPECT_TRUE(reader.Pause().empty());
    reader.Feed("f]\r\n");
    EXPECT_EQ(reader.Pause().at(0).body, "half");
}

TEST(LogReader, counts_what_belongs_to_no_record) {
    LogReader reader;
    reader.Feed("garbage\r\n");
    EXPECT_EQ(reader.strangeBytes(), 9U);
    EXPECT_EQ(
        reader.Feed(Text("07,12:03:04.056", "A", "x") + Text("07,12:03:04.056", "B", "y")).size(),
        1U);
}

// Calls as "operation code micros", "-" for what is not known.
std::vector<std::string> Calls(const std::string& log) {
    std::vector<std::string> calls;
    LogPairing pairing(nullptr, [&](LogCall&& call) {
        const auto micros = call.Micros();
        calls.push_back(call.operation + " " + (call.code ? std::to_string(*call.code) : "-") +
                        " " + (micros ? std::to_string(*micros) : "-"));
    });
    for (LogRecord& record : ReadAll(log)) pairing.Take(std::move(record));
    pairing.Finish();
    return calls;
}

TEST(Pairing, joins_begin_and_end) {
    EXPECT_THAT(Calls(Text("07,12:00:00.000", "ChangePin", "Begin") +
                      Text("07,12:00:00.500", "szSN:", "41") +
                      Text("07,12:00:01.000", "ChangePin", "End G_LastError: 00005B21")),
                ElementsAre("ChangePin 23329 1000000"));
}

TEST(Pairing, reads_negative_codes) {
    EXPECT_THAT(Calls(Text("07,12:00:00.000", "ChangePin", "Begin") +
                      Text("07,12:00:01.000", "ChangePin", "End G_LastError: FFFFFF9B")),
                ElementsAre("ChangePin -101 1000000"));
}

TEST(Pairing, keeps_threads_and_processes_apart) {
    EXPECT_THAT(Calls(Text("07,12:00:00.000", "ChangePin", "Begin", 1, 1) +
                      Text("07,12:00:00.100", "ChangePin", "Begin", 1, 2) +
                      Text("07,12:00:00.200", "ChangePin", "Begin", 2, 1) +
                      Text("07,12:00:00.300", "ChangePin", "End G_LastError: 00000000", 1, 1) +
                      Text("07,12:00:00.400", "ChangePin", "End G_LastError: 00000001", 2, 1) +
                      Text("07,12:00:00.500", "ChangePin", "End G_LastError: 00000002", 1, 2)),
                ElementsAre("ChangePin 0 300000", "ChangePin 1 200000", "ChangePin 2 400000"));
}

TEST(Pairing, lets_a_call_without_an_end_be_over_when_the_next_begins) {
    EXPECT_THAT(Calls(Text("07,12:00:00.000", "InitUKey", "Begin") +
                      Text("07,12:00:01.000", "InitUKey", "Begin") +
                      Text("07,12:00:02.000", "InitUKey", "End G_LastError: 00000000")),
                ElementsAre("InitUKey - -", "InitUKey 0 1000000"));
}

TEST(Pairing, begins_a_call_that_logs_no_begin_with_its_first_record) {
    EXPECT_THAT(Calls(Text("07,12:00:00.000", "GetDriverVersion", "pszVersion: 9") +
                      Text("07,12:00:00.001", "GetDriverVersion", "End G_LastError: 00000000")),
                ElementsAre("GetDriverVersion 0 1000"));
    EXPECT_THAT(Calls(Text("07,12:00:00.001", "GetDriverVersion", "End G_LastError: 00000000")),
                ElementsAre("GetDriverVersion 0 -"));
}

TEST(Pairing, knows_the_steps_of_a_wait) {
    EXPECT_THAT(
        Calls(Text("07,12:00:00.000", "SKF_WaitForDevEvent", "begin") +
              Text("07,12:00:00.001", "X_getCurrentSlots", "before") +
              Text("07,12:00:00.002", "X_getCurrentSlots", "after") +
              Text("07,12:00:03.000", "SKF_WaitForDevEvent",
                   " end in catch ,G_LastError = 0, line = 582") +
              Text("07,12:00:05.000", "VALTO_EVENT_INFO::SLOT_DEVICEARRIVAL  ",
                   " G_LastError = 0, line = 596") +
              Text("07,12:00:05.001", "SKF_WaitForDevEvent", "end, G_LastError = 17, line = 616")),
        ElementsAre("WaitForKeyEvent 17 5001000"));
}

TEST(Pairing, knows_the_three_tags_of_a_bundle) {
    EXPECT_THAT(
        Calls(
            Text("07,12:00:00.000", "CZRKUSBKey::Batch_ImportX509Cert", "begin, strP7: A(b)") +
            Text("07,12:00:01.000",
                 "CZRKUSBKey::Batch_ImportX509Cert  strPriKeyTemp:", "strPriKeyTemp:K") +
            Text("07,12:00:02.000", "CGMUsbKeyCommonEx", "end, err: 9, Cert GMWritePKCS7 error.")),
        ElementsAre("Batch_ImportX509Cert 9 2000000"));
}

TEST(Pairing, counts_over_midnight_and_over_the_end_of_a_month) {
    for (const auto& [first, second] : {std::pair{"07", "08"}, std::pair{"31", "01"}}) {
        EXPECT_THAT(Calls(Text(std::string(first) + ",23:59:59.000", "ChangePin", "Begin") +
                          Text(std::string(second) + ",00:00:01.000", "ChangePin",
                               "End G_LastError: 00000000")),
                    ElementsAre("ChangePin 0 2000000"));
    }
}

TEST(Pairing, gives_no_duration_when_the_clock_was_set_back) {
    EXPECT_THAT(Calls(Text("07,12:00:01.000", "ChangePin", "Begin") +
                      Text("07,12:00:00.000", "ChangePin", "End G_LastError: 00000000")),
                ElementsAre("ChangePin 0 -"));
}

LogRecord Record(const std::string& tag, const std::string& body) {
    LogRecord record;
    record.tag = tag;
    record.body = body;
    return record;
}

TEST(Masking, hides_key_texts) {
    const std::string shown =
        Masked(Record("CZRKUSBKey::ImportEncX509Cert  strPriKeyTemp:", "strPriKeyTemp:SECRET"));
    EXPECT_THAT(shown, Not(HasSubstr("SECRET")));
    EXPECT_THAT(shown, HasSubstr("6 characters hidden"));
}

TEST(Masking, hides_keys_of_a_bundle_and_shows_its_certificates) {
    const std::string shown = Masked(
        Record("T", "begin, strP7: SignCert(AAA)|EncPriKey(SECRET)|EncCert(BBB)|EncPriKey(SEC"));
    EXPECT_THAT(shown, HasSubstr("SignCert(AAA)"));
    EXPECT_THAT(shown, HasSubstr("EncCert(BBB)"));
    EXPECT_THAT(shown, Not(HasSubstr("SEC")));
}

// The library imports the key of each of these.
TEST(Masking, hides_a_key_within_a_section_that_is_not_closed) {
    for (const char* const bundle : {"SignCert(AAA|EncPriKey(SECRET)", "SignCert(EncPriKey(SECRET)",
                                     "EncCert(|EncPriKey(SECRET)|SignCert(BBB)"}) {
        const std::string shown = Masked(Record("T", std::string("begin, strP7: ") + bundle));
        EXPECT_THAT(shown, Not(HasSubstr("SECRET"))) << bundle;
    }
}

TEST(Masking, hides_sections_that_it_does_not_know) {
    EXPECT_THAT(Masked(Record("T", "begin, strP7: encprikey(SECRET)|EncKey(SECRET)")),
                Not(HasSubstr("SECRET")));
}

TEST(Masking, leaves_other_records_alone) {
    EXPECT_EQ(Masked(Record("GetDllVersion", "Begin (x)")), "Begin (x)");
}

TEST(Durations, are_told_in_fitting_units) {
    EXPECT_EQ(DurationText(0), "<1 ms");
    EXPECT_EQ(DurationText(12000), "12 ms");
    EXPECT_EQ(DurationText(3500000), "3.5 s");
    EXPECT_EQ(DurationText(INT64_C(250) * 1000000), "4 min 10 s");
}

}  // namespace
}  // namespace ukey

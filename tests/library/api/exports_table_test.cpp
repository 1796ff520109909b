// Each row of the documented table against the library's behaviour.
#include "exports_table.h"

#include <algorithm>
#include <memory>
#include <set>

#include "api_test.h"
#include "every_export.h"
#include "seen_last_error.h"

namespace {

constexpr unsigned plenty = 9000;
constexpr unsigned from_the_token = 4242;  // a length that only the token library could write

const Inputs inputs[] = {{"abc", "x||y", "RESUL"}, {"abcdefghijk", "x||y||z", "RESULT!!"}};

class ExportsTable : public testing::TestWithParam<Export> {
protected:
    ExportsTable() {
        for (const TableRow& candidate : read_exports_table()) {
            if (candidate.name == which.name) row = candidate;
        }
        Initialize();
    }

    std::size_t result_length(const Inputs& in) const {
        return which.fixed_length ? which.fixed_length : in.result.size();
    }
    unsigned value(const std::string& cell, const Inputs& in) const {
        const auto size = [](const std::string& text) {
            return static_cast<unsigned>(text.size());
        };
        const unsigned separators = (size(in.list) - 1) / 3;
        return evaluate(cell, {{"length", static_cast<unsigned>(result_length(in))},
                               {"data", size(in.data)},
                               {"hash", size(in.data)},
                               {"cipher", size(in.data)},
                               {"list", size(in.list)},
                               {"separators", separators}});
    }
    // A call with a buffer; the length holds capacity before and what was written afterwards.
    int call(const Inputs& in, unsigned capacity) {
        which.answer(in.result);
        length = capacity;
        buffer = std::make_unique<CanaryBuffer>(plenty, fill);
        return which.call(in, buffer->data(), &length);
    }
    int succeed() { return call(inputs[0], plenty); }

    // The length is handed on: the token library sees the capacity and what it writes stays.
    void expect_the_tokens(const Inputs& in) {
        const std::string entry = which.length_entry;
        const auto argument = static_cast<std::size_t>(which.length_argument);
        ASSERT_GE(which.length_argument, 0) << "no entry point takes the length";
        recorder().on(entry).writes_number(argument, from_the_token);
        recorder().forget();
        EXPECT_EQ(call(in, 3), 0);
        EXPECT_EQ(recorder().only(entry).at(argument).value, 3);
        EXPECT_EQ(length, from_the_token);
    }

    const Export& which = GetParam();
    TableRow row;
    char fill = '\x5A';
    unsigned length = 0;
    std::unique_ptr<CanaryBuffer> buffer;
};

INSTANTIATE_TEST_SUITE_P(Documented, ExportsTable, testing::ValuesIn(every_export()), ExportName());

std::string word_of_record(const LogRecord& record) {
    const auto begins = [&record](const char* text) { return record.body.rfind(text, 0) == 0; };
    if (begins("Begin") || begins("begin")) return "begin";
    if (record.tag == "szSN:") return "serial";
    if (begins("pszVersion: ") || begins("pszVidPid: ") || begins("m_SN: ")) return "text";
    if (begins("strPriKeyTemp:")) return "key";
    if (begins("end, err: ")) return "failure";
    if (begins("End G_LastError") || begins("end, G_LastError")) return "end";
    return "steps";
}

}  // namespace

TEST(TableOfExports, has_a_row_for_each_export) {
    std::multiset<std::string> documented, exported;
    for (const TableRow& row : read_exports_table()) documented.insert(row.name);
    for (const Export& each : every_export()) exported.insert(each.name);
    EXPECT_EQ(documented, exported);
}

TEST_P(ExportsTable, tells_what_a_probe_writes) {
    if (!which.has_buffer) {
        EXPECT_EQ(row.probe, "-");
        return;
    }
    for (const Inputs& in : inputs) {
        which.answer(in.result);
        length = 77;
        EXPECT_EQ(which.call(in, nullptr, &length), 0);
        EXPECT_EQ(length, value(row.probe, in));
    }
}

TEST_P(ExportsTable, tells_what_success_writes) {
    if (!which.has_buffer) {
        EXPECT_EQ(row.success, "-");
        return;
    }
    for (const Inputs& in : inputs) {
        if (row.success == "token's") {
            expect_the_tokens(in);
            continue;
        }
        EXPECT_EQ(call(in, plenty), 0);
        EXPECT_EQ(length, row.success == "nothing" ? plenty : value(row.success, in));
        EXPECT_TRUE(buffer->guards_intact());
        EXPECT_FALSE(buffer->untouched());
    }
}

TEST_P(ExportsTable, tells_what_a_buffer_too_small_is_answered_with) {
    for (const Inputs& in : inputs) {
        const auto too_little = static_cast<unsigned>(result_length(in) - 1);
        const int code = call(in, too_little);
        if (row.too_small == "-") {
            EXPECT_NE(code, -404);
            continue;
        }
        EXPECT_EQ(code, -404);
        EXPECT_EQ(G_LastError, -404);
        EXPECT_EQ(length, value(row.too_small, in));
        EXPECT_TRUE(buffer->untouched());
    }
}

TEST_P(ExportsTable, tells_whether_a_capacity_equal_to_the_length_is_accepted) {
    const Inputs& in = inputs[1];
    const auto equal = static_cast<unsigned>(result_length(in));
    if (row.equal_length == "yes") {
        EXPECT_EQ(call(in, equal), 0);
        EXPECT_TRUE(buffer->holds_only(in.result + std::string(1, '\0')));
    } else if (row.equal_length == "no") {
        EXPECT_EQ(call(in, equal), -404);
        EXPECT_EQ(call(in, equal + 1), 0);
    } else if (row.equal_length == "not compared") {
        EXPECT_EQ(call(in, 0), 0);
        EXPECT_FALSE(buffer->untouched());
    } else if (row.equal_length == "token's") {
        expect_the_tokens(in);
    } else {
        EXPECT_EQ(row.equal_length, "-");
        EXPECT_FALSE(which.has_buffer);
    }
}

TEST_P(ExportsTable, tells_the_librarys_own_codes) {
    fill = '\0';  // a failing export may log the buffer as a text
    std::set<int> seen;
    seen.insert(succeed());
    if (which.has_buffer) seen.insert(call(inputs[0], 0));
    if (which.refused) seen.insert(which.refused());
    if (which.unsupported) seen.insert(which.unsupported());
    Finalize();
    seen.insert(succeed());
    Initialize();
    install::close_entirely();
    install::remove_token_library();
    Initialize();  // fails, and leaves the flag as it was
    seen.insert(succeed());
    std::set<int> documented;
    for (const std::string& code : words_of(row.codes)) documented.insert(std::stoi(code));
    if (which.name == "Finalize" || which.name == "GetLastErrCode") seen.clear();  // no result
    EXPECT_EQ(seen, documented);
}

TEST_P(ExportsTable, tells_which_records_are_logged) {
    fill = '\0';  // a failing export may log the buffer as a text
    Lines seen;
    const auto add_new_words = [&seen] {
        for (const LogRecord& record : log_records()) {
            const std::string word = word_of_record(record);
            if (std::find(seen.begin(), seen.end(), word) == seen.end()) seen.push_back(word);
        }
        forget_log();
    };
    succeed();
    add_new_words();
    if (!which.entry.empty()) recorder().on(which.entry).returns(1);
    succeed();
    add_new_words();
    EXPECT_EQ(seen, words_of(row.log));
}

TEST_P(ExportsTable, tells_whether_it_initialises) {
    Finalize();
    const int code = succeed();
    if (row.initialises == "refuses") {
        EXPECT_EQ(code, -109);
    } else {
        EXPECT_NE(code, -109);
        EXPECT_TRUE(row.initialises == "yes" || row.initialises == "no") << row.initialises;
    }
    EXPECT_EQ(g_initFlag, row.initialises == "yes");
}

TEST_P(ExportsTable, tells_whether_it_clears_the_last_error_first) {
    G_LastError = unrelated_code;
    int seen = 0;
    if (which.entry.empty()) {
        succeed();
        seen = G_LastError;
    } else {
        seen = last_error_seen_by(which.entry, [this] { succeed(); });
    }
    EXPECT_EQ(seen, row.clears == "yes" ? 0 : unrelated_code);
    EXPECT_TRUE(row.clears == "yes" || row.clears == "no") << row.clears;
}

class ExportThatHandsACodeOut : public testing::TestWithParam<Export> {};
INSTANTIATE_TEST_SUITE_P(Frame, ExportThatHandsACodeOut,
                         testing::ValuesIn(exports_where([](const Export& which) {
                             // What GetErrorMsg is answered with is a text.
                             return which.asks_token() && which.name != "GetErrorMsg";
                         })),
                         ExportName());

TEST_P(ExportThatHandsACodeOut, stores_and_returns_whatever_the_token_answers) {
    Initialize();
    for (const int code : {-404, 17, 0x7FFFFFFF, static_cast<int>(0xE0110001)}) {
        recorder().on(GetParam().length_entry).returns(code);
        EXPECT_EQ(GetParam().call(), code);
        EXPECT_EQ(G_LastError, code);
    }
}

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
        for (const TableRow& candidate : ReadExportsTable()) {
            if (candidate.name == which.name) row = candidate;
        }
        Initialize();
    }

    std::size_t ResultLength(const Inputs& in) const {
        return which.fixedLength ? which.fixedLength : in.result.size();
    }
    unsigned Value(const std::string& cell, const Inputs& in) const {
        const auto size = [](const std::string& text) {
            return static_cast<unsigned>(text.size());
        };
        const unsigned separators = (size(in.list) - 1) / 3;
        return Evaluate(cell, {{"length", static_cast<unsigned>(ResultLength(in))},
                               {"data", size(in.data)},
                               {"hash", size(in.data)},
                               {"cipher", size(in.data)},
                               {"list", size(in.list)},
                               {"separators", separators}});
    }
    // A call with a buffer; the length holds capacity before and what was written afterwards.
    int Call(const Inputs& in, unsigned capacity) {
        which.answer(in.result);
        length = capacity;
        buffer = std::make_unique<CanaryBuffer>(plenty, fill);
        return which.Make(in, buffer->data(), &length);
    }
    int Succeed() { return Call(inputs[0], plenty); }

    // The length is handed on: the token library sees the capacity and what it writes stays.
    void ExpectTheTokens(const Inputs& in) {
        const std::string entry = which.lengthEntry;
        const auto argument = static_cast<std::size_t>(which.lengthArgument);
        ASSERT_GE(which.lengthArgument, 0) << "no entry point takes the length";
        TheRecorder().On(entry).WritesNumber(argument, from_the_token);
        TheRecorder().Forget();
        EXPECT_EQ(Call(in, 3), 0);
        EXPECT_EQ(TheRecorder().Only(entry).At(argument).value, 3);
        EXPECT_EQ(length, from_the_token);
    }

    const Export& which = GetParam();
    TableRow row;
    char fill = '\x5A';
    unsigned length = 0;
    std::unique_ptr<CanaryBuffer> buffer;
};

INSTANTIATE_TEST_SUITE_P(Documented, ExportsTable, testing::ValuesIn(EveryExport()), ExportName());

std::string WordOfRecord(const LogRecord& record) {
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
    for (const TableRow& row : ReadExportsTable()) documented.insert(row.name);
    for (const Export& each : EveryExport()) exported.insert(each.name);
    EXPECT_EQ(documented, exported);
}

TEST_P(ExportsTable, tells_what_a_probe_writes) {
    if (!which.hasBuffer) {
        EXPECT_EQ(row.probe, "-");
        return;
    }
    for (const Inputs& in : inputs) {
        which.answer(in.result);
        length = 77;
        EXPECT_EQ(which.Make(in, nullptr, &length), 0);
        EXPECT_EQ(length, Value(row.probe, in));
    }
}

TEST_P(ExportsTable, tells_what_success_writes) {
    if (!which.hasBuffer) {
        EXPECT_EQ(row.success, "-");
        return;
    }
    for (const Inputs& in : inputs) {
        if (row.success == "token's") {
            ExpectTheTokens(in);
            continue;
        }
        EXPECT_EQ(Call(in, plenty), 0);
        EXPECT_EQ(length, row.success == "nothing" ? plenty : Value(row.success, in));
        EXPECT_TRUE(buffer->GuardsIntact());
        EXPECT_FALSE(buffer->Untouched());
    }
}

TEST_P(ExportsTable, tells_what_a_buffer_too_small_is_answered_with) {
    for (const Inputs& in : inputs) {
        const auto tooLittle = static_cast<unsigned>(ResultLength(in) - 1);
        const int code = Call(in, tooLittle);
        if (row.tooSmall == "-") {
            EXPECT_NE(code, -404);
            continue;
        }
        EXPECT_EQ(code, -404);
        EXPECT_EQ(G_LastError, -404);
        EXPECT_EQ(length, Value(row.tooSmall, in));
        EXPECT_TRUE(buffer->Untouched());
    }
}

TEST_P(ExportsTable, tells_whether_a_capacity_equal_to_the_length_is_accepted) {
    const Inputs& in = inputs[1];
    const auto equal = static_cast<unsigned>(ResultLength(in));
    if (row.equalLength == "yes") {
        EXPECT_EQ(Call(in, equal), 0);
        EXPECT_TRUE(buffer->HoldsOnly(in.result + std::string(1, '\0')));
    } else if (row.equalLength == "no") {
        EXPECT_EQ(Call(in, equal), -404);
        EXPECT_EQ(Call(in, equal + 1), 0);
    } else if (row.equalLength == "not compared") {
        EXPECT_EQ(Call(in, 0), 0);
        EXPECT_FALSE(buffer->Untouched());
    } else if (row.equalLength == "token's") {
        ExpectTheTokens(in);
    } else {
        EXPECT_EQ(row.equalLength, "-");
        EXPECT_FALSE(which.hasBuffer);
    }
}

TEST_P(ExportsTable, tells_the_librarys_own_codes) {
    fill = '\0';  // a failing export may log the buffer as a text
    std::set<int> seen;
    seen.insert(Succeed());
    if (which.hasBuffer) seen.insert(Call(inputs[0], 0));
    if (which.refused) seen.insert(which.refused());
    if (which.unsupported) seen.insert(which.unsupported());
    Finalize();
    seen.insert(Succeed());
    Initialize();
    install::CloseEntirely();
    install::RemoveTokenLibrary();
    Initialize();  // fails, and leaves the flag as it was
    seen.insert(Succeed());
    std::set<int> documented;
    for (const std::string& code : WordsOf(row.codes)) documented.insert(std::stoi(code));
    if (which.name == "Finalize" || which.name == "GetLastErrCode") seen.clear();  // no result
    EXPECT_EQ(seen, documented);
}

TEST_P(ExportsTable, tells_which_records_are_logged) {
    fill = '\0';  // a failing export may log the buffer as a text
    Lines seen;
    const auto addNewWords = [&seen] {
        for (const LogRecord& record : LogRecords()) {
            const std::string word = WordOfRecord(record);
            if (std::find(seen.begin(), seen.end(), word) == seen.end()) seen.push_back(word);
        }
        ForgetLog();
    };
    Succeed();
    addNewWords();
    if (!which.entry.empty()) TheRecorder().On(which.entry).Returns(1);
    Succeed();
    addNewWords();
    EXPECT_EQ(seen, WordsOf(row.log));
}

TEST_P(ExportsTable, tells_whether_it_initialises) {
    Finalize();
    const int code = Succeed();
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
        Succeed();
        seen = G_LastError;
    } else {
        seen = LastErrorSeenBy(which.entry, [this] { Succeed(); });
    }
    EXPECT_EQ(seen, row.clears == "yes" ? 0 : unrelated_code);
    EXPECT_TRUE(row.clears == "yes" || row.clears == "no") << row.clears;
}

class ExportThatHandsACodeOut : public testing::TestWithParam<Export> {};
INSTANTIATE_TEST_SUITE_P(Frame, ExportThatHandsACodeOut,
                         testing::ValuesIn(ExportsWhere([](const Export& which) {
                             // What GetErrorMsg is answered with is a text.
                             return which.AsksToken() && which.name != "GetErrorMsg";
                         })),
                         ExportName());

TEST_P(ExportThatHandsACodeOut, stores_and_returns_whatever_the_token_answers) {
    Initialize();
    for (const int code : {-404, 17, 0x7FFFFFFF, static_cast<int>(0xE0110001)}) {
        TheRecorder().On(GetParam().lengthEntry).Returns(code);
        EXPECT_EQ(GetParam().Make(), code);
        EXPECT_EQ(G_LastError, code);
    }
}

// GetCertDN, GetLabel, GetData: a text of the token out of an internal buffer. What the table of
// the exports says of them is tested there.
#include <memory>

#include "api_test.h"
#include "every_export.h"

namespace {

struct Reader {
    std::string name;
    int (*call)(char*, int*);
    const char* entry;
    std::size_t argument;  // of the entry point, that takes the internal buffer
    std::size_t size;      // of that buffer

    friend void PrintTo(const Reader& which, std::ostream* out) { *out << which.name; }
};

const Reader readers[] = {
    {"GetCertDN", [](char* text, int* length) { return GetCertDN("A1", 1, 2, text, length); },
     "GM_GetCertDN", 3, 1024},
    {"GetLabel", [](char* text, int* length) { return GetLabel("A1", text, length); }, "GetLabel",
     1, 512},
    {"GetData", [](char* text, int* length) { return GetData("name567890", 5, text, length); },
     "GetData", 2, 260}};

class TextReader : public testing::TestWithParam<Reader> {
protected:
    int Read(std::size_t room, int capacity) {
        buffer = std::make_unique<CanaryBuffer>(room);
        length = capacity;
        return GetParam().call(buffer->data(), &length);
    }
    recording::Answer& Token() { return TheRecorder().On(GetParam().entry); }
    void TokenWrites(const std::string& text) { Token().Writes(GetParam().argument, text); }

    std::unique_ptr<CanaryBuffer> buffer;
    int length = 0;
};
INSTANTIATE_TEST_SUITE_P(Each, TextReader, testing::ValuesIn(readers), ExportName());

}  // namespace

TEST_P(TextReader, offers_a_zeroed_buffer_each_time) {
    TokenWrites(std::string(GetParam().size, 'x'));
    GetParam().call(nullptr, &length);
    GetParam().call(nullptr, &length);
    for (const recording::Call& call : TheRecorder().Calls(GetParam().entry)) {
        EXPECT_EQ(call.Bytes(GetParam().argument), std::string(GetParam().size, '\0'));
    }
    EXPECT_EQ(Trace().size(), 2U);
}

TEST_P(TextReader, leaves_buffer_and_length_when_the_token_refuses) {
    Token().Returns(-9);
    TokenWrites("text");
    EXPECT_EQ(Read(64, 64), -9);
    EXPECT_EQ(G_LastError, -9);
    EXPECT_EQ(length, 64);
    EXPECT_TRUE(buffer->Untouched());
}

TEST_P(TextReader, writes_the_text_up_to_its_first_NUL_and_no_more) {
    TokenWrites(std::string("text\0rest", 9));
    EXPECT_EQ(Read(64, 64), 0);
    EXPECT_EQ(length, 4);
    EXPECT_TRUE(buffer->HoldsOnly(std::string("text", 5)));
}

TEST_P(TextReader, takes_the_callers_length_as_signed) {
    const int tooSmall = GetParam().name == "GetData" ? 1 : 0;  // the others count no NUL
    EXPECT_EQ(Read(8, -1), -404);
    EXPECT_EQ(length, tooSmall);
    EXPECT_TRUE(buffer->Untouched());
}

TEST_P(TextReader, of_an_empty_text_accepts_a_length_of_0) {
    EXPECT_EQ(Read(2, 0), 0);
    EXPECT_EQ(length, 0);
    EXPECT_TRUE(buffer->HoldsOnly(std::string(1, '\0')));
}

TEST_P(TextReader, never_reads_past_a_full_buffer_without_a_NUL) {
    const int full = static_cast<int>(GetParam().size);
    const std::string text(GetParam().size, 't');
    TokenWrites(text);
    EXPECT_EQ(GetParam().call(nullptr, &length), 0);
    EXPECT_EQ(length, full + 1);
    EXPECT_EQ(Read(text.size() + 8, full), 0);
    EXPECT_EQ(length, full);
    EXPECT_TRUE(buffer->HoldsOnly(text + '\0'));
}

// MB2MB's conversion against the iconv command, over every character that GB18030 maps.
#include <sys/wait.h>

#include <cstdlib>
#include <fstream>

#include "api_test.h"
#include "exports_cpp.h"

namespace {

constexpr unsigned last_code_point = 0x10FFFF;

std::string Utf8(unsigned code) {
    const auto tail = [code](int shift) {
        return static_cast<char>(0x80 | (code >> shift & 0x3F));
    };
    if (code < 0x80) return {static_cast<char>(code)};
    if (code < 0x800) return {static_cast<char>(0xC0 | code >> 6), tail(0)};
    if (code < 0x10000) return {static_cast<char>(0xE0 | code >> 12), tail(6), tail(0)};
    return {static_cast<char>(0xF0 | code >> 18), tail(12), tail(6), tail(0)};
}

bool IsCharacter(unsigned code) {
    return code != '\n' && (code < 0xD800 || code > 0xDFFF);
}

// One character to a line, through the command; a character that it cannot map leaves its line
// empty. No byte of a character of several bytes is a line feed, in either charset.
std::vector<std::string> LinesOfTheCommand() {
    std::ofstream input("/tmp/characters", std::ios::binary);
    for (unsigned code = 0; code <= last_code_point; ++code) {
        if (IsCharacter(code)) input << Utf8(code) << '\n';
    }
    input.close();
    // The command reports dropped characters as a failure; what it wrote is counted below.
    const int status = std::system("iconv -c -f UTF-8 -t GB18030 /tmp/characters >/tmp/converted");
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_LE(WEXITSTATUS(status), 1);
    std::ifstream output("/tmp/converted", std::ios::binary);
    std::vector<std::string> lines;
    for (std::string line; std::getline(output, line);) lines.push_back(line);
    return lines;
}

struct Result {
    int code;
    std::string bytes;
};

Result Converted(const std::string& text) {
    CommonFunction common;
    unsigned char* out = nullptr;
    unsigned length = 0;
    const int code = common.MB2MB(0, reinterpret_cast<const unsigned char*>(text.data()),
                                  static_cast<unsigned>(text.size()), &out, &length);
    const Result result{code, {reinterpret_cast<const char*>(out), length}};
    delete[] out;
    return result;
}

// Compares many characters in one conversion.
class Chunk {
public:
    void Add(const std::string& text, const std::string& expected) {
        text_ += text;
        expected_ += expected;
        if (text_.size() > 4000) Compare();
    }
    void Compare() {
        if (text_.empty()) return;
        const Result result = Converted(text_);
        EXPECT_EQ(result.code, 0);
        EXPECT_TRUE(result.bytes == expected_)
            << "between " << text_.substr(0, 4) << " and " << text_.substr(text_.size() - 4);
        text_.clear();
        expected_.clear();
    }

private:
    std::string text_, expected_;
};

}  // namespace

TEST(Conversion, agrees_with_the_iconv_command_on_every_character) {
    const std::vector<std::string> lines = LinesOfTheCommand();
    ASSERT_EQ(lines.size(), last_code_point - 0x800U) << "one line for each character";
    Chunk chunk;
    std::size_t line = 0, mapped = 0;
    for (unsigned code = 0; code <= last_code_point; ++code) {
        if (!IsCharacter(code)) continue;
        const std::string& expected = lines[line++];
        if (expected.empty()) {
            const Result result = Converted(Utf8(code));
            EXPECT_EQ(result.code, -1) << std::hex << code;
            EXPECT_EQ(result.bytes, "");
            continue;
        }
        ++mapped;
        chunk.Add(Utf8(code), expected);
    }
    chunk.Compare();
    EXPECT_GT(mapped, 1000000U) << "GB18030 maps the whole of Unicode but for a few";
    EXPECT_EQ(Converted("\n").bytes, "\n");
}

// The reason why one call with twice the input's room is enough.
TEST(Conversion, never_needs_more_than_twice_the_input) {
    const std::string text = Utf8(0x80) + Utf8(0x7FF);
    EXPECT_EQ(text.size(), 4U);
    EXPECT_EQ(Converted(text).bytes.size(), 8U);
}

TEST(Conversion, of_a_long_text_is_complete) {
    std::string text, expected;
    for (int round = 0; round < 200000; ++round) {
        text += "\xE4\xB8\xAD";
        expected += "\xD6\xD0";
    }
    EXPECT_TRUE(Converted(text).bytes == expected);
}

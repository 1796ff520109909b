// A client whose converter does what the test wants: the program's iconv functions take the place
// of the runtime's for the library too.
#include <iconv.h>

#include <cerrno>
#include <cstring>

#include "api_test.h"
#include "exports_cpp.h"
#include "lgn_exception.h"

namespace {

int someObject = 0;
void* const opened = &someObject;

// What the library did with the converter, and what the converter does.
struct Script {
    Lines calls;
    iconv_t handle = opened;
    std::size_t written = 0;  // bytes of 'g' in place of the input
    int roomLeft = 6;         // as the converter tells it
    std::size_t result = 0;
    std::string inputAfterwards;
};
Script script;

struct Converted {
    explicit Converted(const std::string& input) {
        CommonFunction common;
        code = common.MB2MB(0, reinterpret_cast<const unsigned char*>(input.data()),
                            static_cast<unsigned>(input.size()), &out, &length);
    }
    ~Converted() { delete[] out; }
    Converted(const Converted&) = delete;
    Converted& operator=(const Converted&) = delete;

    std::string Bytes() const { return {reinterpret_cast<const char*>(out), length}; }

    unsigned char* out = nullptr;
    unsigned length = 77;
    int code;
};

}  // namespace

#define OWN __attribute__((visibility("default")))

extern "C" {
OWN iconv_t iconv_open(const char* to, const char* from) {
    script.calls.push_back(std::string("open ") + to + " from " + from);
    return script.handle;
}
OWN std::size_t iconv(iconv_t handle, char** input, std::size_t* inputLeft, char** output,
                      std::size_t* outputLeft) {
    if (handle != opened) {
        errno = EBADF;
        return static_cast<std::size_t>(-1);
    }
    script.calls.push_back("convert " + std::string(*input, *inputLeft) + " into " +
                           std::to_string(*outputLeft));
    std::memset(*output, 'g', script.written);
    script.inputAfterwards.assign(*input, *inputLeft);
    *output += script.written;
    *outputLeft = static_cast<std::size_t>(script.roomLeft);
    return script.result;
}
OWN int iconv_close(iconv_t handle) {
    script.calls.push_back(handle == opened ? "close" : "close another");
    return 0;
}
}

TEST(OwnConverter, is_opened_asked_once_with_room_for_twice_the_text_and_closed) {
    script.written = 4;
    script.roomLeft = 2;
    const Converted converted("abc");
    EXPECT_EQ(script.calls, (Lines{"open GB18030 from UTF-8", "convert abc into 6", "close"}));
    EXPECT_EQ(converted.code, 0);
    EXPECT_EQ(converted.Bytes(), "gggg");
}

TEST(OwnConverter, reads_from_another_place_than_it_writes_to) {
    script.written = 6;
    script.roomLeft = 0;
    const Converted converted("abc");
    EXPECT_EQ(script.inputAfterwards, "abc");
    EXPECT_EQ(converted.Bytes(), "gggggg");
}

TEST(OwnConverter, that_reports_a_failure_is_not_asked_again_and_its_output_kept) {
    script.written = 1;
    script.roomLeft = 5;
    script.result = static_cast<std::size_t>(-1);
    const Converted converted("abc");
    EXPECT_EQ(converted.code, 0);
    EXPECT_EQ(converted.Bytes(), "g");
    EXPECT_EQ(script.calls.size(), 3U);
}

TEST(OwnConverter, that_cannot_be_opened_converts_nothing) {
    script.handle = reinterpret_cast<iconv_t>(-1);
    const Converted converted("abc");
    EXPECT_EQ(converted.code, -1);
    EXPECT_EQ(converted.length, 0U);
    EXPECT_NE(converted.out, nullptr);
}

TEST(OwnConverter, without_a_handle_leaves_the_input_as_it_is) {
    script.handle = nullptr;
    const Converted converted("\xE4\xB8\xAD");
    EXPECT_EQ(converted.code, 0);
    EXPECT_EQ(converted.Bytes(), "\xE4\xB8\xAD");
    EXPECT_EQ(script.calls, (Lines{"open GB18030 from UTF-8"}));
}

TEST(OwnConverter, that_tells_nonsense_of_the_room_left_makes_an_invalid_length) {
    const unsigned char text[] = "abc";
    for (const int room : {7, -2}) {  // of 6 bytes; the string holds 7
        script.roomLeft = room;
        CommonFunction common;
        unsigned char* out = nullptr;
        unsigned length = 77;
        EXPECT_EQ(CodeThrownBy([&] { common.MB2MB(0, text, 3, &out, &length); }), invalid_argument);
        EXPECT_EQ(out, nullptr);
        EXPECT_EQ(length, 77U);
        EXPECT_EQ(script.calls.back(), "close");
    }
}

#include "softkey/messages.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "softkey/codes.h"

namespace {

using softkey::Charset;
using softkey::Language;
using softkey::MessageText;

std::vector<std::int32_t> CodesWithTexts() {
    return {
#define SOFTKEY_VALUE(name, value, english, chinese) value,
        SOFTKEY_CODES(SOFTKEY_VALUE)
#undef SOFTKEY_VALUE
            - 101,
        -109, -300, -401, -404};
}

TEST(Messages, English_text_is_that_of_the_list) {
    EXPECT_STREQ("the PIN is locked",
                 MessageText(softkey::kPinLocked, Language::kEnglish, Charset::kUtf8));
}

TEST(Messages, Chinese_text_is_that_of_the_list) {
    EXPECT_STREQ("PIN 码已锁定",
                 MessageText(softkey::kPinLocked, Language::kChinese, Charset::kUtf8));
}

TEST(Messages, Gb18030_text_has_the_characters_of_the_charset) {
    // 成功 is B3 C9 B9 A6.
    EXPECT_STREQ("\xB3\xC9\xB9\xA6",
                 MessageText(softkey::kOk, Language::kChinese, Charset::kGb18030));
}

TEST(Messages, English_text_is_the_same_in_both_charsets) {
    for (const std::int32_t code : CodesWithTexts()) {
        EXPECT_STREQ(MessageText(code, Language::kEnglish, Charset::kUtf8),
                     MessageText(code, Language::kEnglish, Charset::kGb18030))
            << code;
    }
}

TEST(Messages, Every_code_has_a_text_of_its_own) {
    for (const Language language : {Language::kChinese, Language::kEnglish}) {
        std::vector<std::string> texts;
        for (const std::int32_t code : CodesWithTexts()) {
            texts.emplace_back(MessageText(code, language, Charset::kUtf8));
            EXPECT_FALSE(texts.back().empty()) << code;
            EXPECT_EQ(texts.back().npos, texts.back().find("0x")) << code;
        }
        std::sort(texts.begin(), texts.end());
        EXPECT_EQ(texts.end(), std::adjacent_find(texts.begin(), texts.end()));
    }
}

TEST(Messages, An_unknown_code_is_named_in_hexadecimal) {
    EXPECT_STREQ("unknown result code 0x00005BFF",
                 MessageText(0x5BFF, Language::kEnglish, Charset::kUtf8));
    EXPECT_STREQ("unknown result code 0xFFFFFFFF",
                 MessageText(-1, Language::kEnglish, Charset::kGb18030));
    EXPECT_STREQ("未知返回码 0x00005BFF", MessageText(0x5BFF, Language::kChinese, Charset::kUtf8));
}

TEST(Messages, An_unknown_code_has_a_text_in_gb18030_too) {
    EXPECT_STREQ("\xCE\xB4\xD6\xAA\xB7\xB5\xBB\xD8\xC2\xEB 0x00005BFE",
                 MessageText(0x5BFE, Language::kChinese, Charset::kGb18030));
}

TEST(Messages, The_pointer_stays_the_same_and_stays_valid) {
    const char* const first = MessageText(0x7001, Language::kChinese, Charset::kGb18030);
    const std::string copy = first;
    for (int code = 0; code < 500; ++code) {
        const std::string other = MessageText(0x7100 + code, Language::kChinese, Charset::kGb18030);
        ASSERT_NE(other.npos, other.find("0x0000")) << code;
    }
    EXPECT_EQ(first, MessageText(0x7001, Language::kChinese, Charset::kGb18030));
    EXPECT_EQ(copy, first);
}

TEST(Messages, A_client_that_asks_for_every_number_still_gets_texts) {
    for (int code = 0x100000; code < 0x100000 + 10000; ++code) {
        const char* const text = MessageText(code, Language::kEnglish, Charset::kUtf8);
        ASSERT_NE(nullptr, text);
        ASSERT_EQ(0U, std::string(text).find("unknown result code"));
    }
}

TEST(Messages, Threads_that_ask_at_once_get_the_same_pointers) {
    std::vector<std::vector<const char*>> seen(4);
    std::vector<std::thread> threads;
    for (auto& pointers : seen) {
        threads.emplace_back([&pointers] {
            for (const std::int32_t code : CodesWithTexts()) {
                pointers.push_back(MessageText(code, Language::kChinese, Charset::kGb18030));
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    for (const auto& pointers : seen) EXPECT_EQ(seen[0], pointers);
}

TEST(Messages, A_client_that_asks_for_every_number_gets_4096_texts_and_one_for_the_rest) {
    std::set<const char*> texts;
    for (int code = 0x200000; code < 0x200000 + 5000; ++code) {
        texts.insert(MessageText(code, Language::kEnglish, Charset::kUtf8));
    }
    EXPECT_LE(texts.size(), 4096U + 1U);
    EXPECT_STREQ("unknown result code", MessageText(0x300000, Language::kEnglish, Charset::kUtf8));
    EXPECT_STREQ("PIN 码已锁定",
                 MessageText(softkey::kPinLocked, Language::kChinese, Charset::kUtf8));
}

// All of them, so that a code is not renumbered or reworded unnoticed.
TEST(Messages, The_librarys_own_codes_have_texts_in_both_languages) {
    struct Text {
        std::int32_t code;
        const char* english;
        const char* chinese;
    };
    const Text texts[] = {
        {-101, "the token library could not be loaded", "无法加载令牌库"},
        {-109, "the library is not initialised", "接口库尚未初始化"},
        {-300, "the selector or operation is not supported", "不支持的选项或操作"},
        {-401, "an argument is missing, out of range or malformed", "参数缺失、超出范围或格式错误"},
        {-404, "the caller's buffer is too small", "调用方缓冲区过小"}};
    for (const Text& text : texts) {
        EXPECT_STREQ(text.english, MessageText(text.code, Language::kEnglish, Charset::kUtf8));
        EXPECT_STREQ(text.chinese, MessageText(text.code, Language::kChinese, Charset::kUtf8));
    }
}

}  // namespace

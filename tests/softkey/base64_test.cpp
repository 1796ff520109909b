// Base64 and PEM as authorities and clients send them.
#include "softkey/crypto/base64.h"

#include "crypto_support.h"

using namespace softkey;

namespace {

Bytes Of(std::string_view text) {
    return {text.begin(), text.end()};
}

TEST(Base64, is_written_with_padding_and_on_one_line) {
    EXPECT_EQ(ToBase64(Of("")), "");
    EXPECT_EQ(ToBase64(Of("A")), "QQ==");
    EXPECT_EQ(ToBase64(Of("AB")), "QUI=");
    EXPECT_EQ(ToBase64(Of("ABC")), "QUJD");
    EXPECT_EQ(ToBase64(Of(std::string(60, 'A'))).size(), 80U);
}

TEST(Base64, is_read_with_blanks_anywhere) {
    EXPECT_EQ(FromBase64(""), Of(""));
    EXPECT_EQ(FromBase64("QQ=="), Of("A"));
    EXPECT_EQ(FromBase64("QUI="), Of("AB"));
    EXPECT_EQ(FromBase64("QUJD"), Of("ABC"));
    EXPECT_EQ(FromBase64(" Q\tU\rI\n= \r\n"), Of("AB"));
}

TEST(Base64, of_another_form_is_refused) {
    for (const char* const text :
         {"Q", "QQ", "QUI", "QQ=", "Q===", "QQ===", "====", "=", "QR==", "QUJ=", "QUI=QUI=", "QUJ-",
          "QUJ_", "-QUJ", "QU,JD", "QUJD\v", "\xC3\xA4QU"}) {
        EXPECT_EQ(FromBase64(text), std::nullopt) << text;
    }
    const std::string blanks = " \t\r\n";
    for (int c = 0; c < 256; ++c) {
        const std::string text = std::string("QUJD") + static_cast<char>(c);
        EXPECT_EQ(FromBase64(text).has_value(), blanks.find(text.back()) != blanks.npos) << c;
    }
}

TEST(Base64, is_of_16_megabytes_at_most) {
    constexpr std::size_t kMost = 16777216;
    const Bytes most(kMost);
    EXPECT_EQ(ToBase64(most).size(), 22369624U);
    EXPECT_EQ(CodeOf([&] { ToBase64(most.data(), kMost + 1); }), kTooLong);
    std::string text(kMost, 'A');
    EXPECT_EQ(FromBase64(text)->size(), 12582912U);
    text += "AAAA";
    EXPECT_FALSE(FromBase64(text));
    EXPECT_FALSE(FromText(text));
    const std::string block = "-----BEGIN X-----QQ==-----END X-----";
    EXPECT_TRUE(FromText(std::string(kMost - block.size(), '\n') + block));
    EXPECT_FALSE(FromText(std::string(kMost - block.size() + 1, '\n') + block));
}

TEST(Armour, holds_blocks_with_and_without_line_ends) {
    const std::vector<Bytes> two{Of("A"), Of("AB")};
    EXPECT_EQ(FromText("-----BEGIN X-----\nQQ==\n-----END X-----\n-----BEGIN X-----\r\nQUI=\r\n"
                       "-----END X-----"),
              two);
    EXPECT_EQ(
        FromText("-----BEGIN X-----QQ==-----END X----------BEGIN X----- QUI= -----END X-----"),
        two);
    EXPECT_EQ(FromText("words -----BEGIN X-----QQ==-----END X-----"), std::vector<Bytes>{Of("A")});
    EXPECT_EQ(FromText("QQ=="), std::vector<Bytes>{Of("A")});
}

TEST(Armour, that_is_not_closed_is_refused) {
    for (const char* const text :
         {"-----BEGIN X", "-----BEGIN X-----QQ==", "-----BEGIN X-----QQ==-----END Y-----",
          "-----BEGIN X-----\nQ!==\n-----END X-----",
          "-----BEGIN X-----QQ==-----END X-----\n-----BEGIN X-----\nQQ=="}) {
        EXPECT_EQ(FromText(text), std::nullopt) << text;
    }
}

}  // namespace

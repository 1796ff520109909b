#include "softkey/crypto/base64.h"

#include <openssl/evp.h>

#include <array>

namespace softkey {
namespace {

constexpr std::string_view kAlphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

constexpr std::int8_t kBlank = -1;
constexpr std::int8_t kForeign = -2;

std::array<std::int8_t, 256> MakeValues() {
    std::array<std::int8_t, 256> values{};
    values.fill(kForeign);
    for (std::size_t i = 0; i < kAlphabet.size(); ++i) {
        values[static_cast<unsigned char>(kAlphabet[i])] = static_cast<std::int8_t>(i);
    }
    for (const char blank : {' ', '\t', '\r', '\n'}) {
        values[static_cast<unsigned char>(blank)] = kBlank;
    }
    return values;
}

std::int8_t ValueOf(char c) {
    static const std::array<std::int8_t, 256> values = MakeValues();
    return values[static_cast<unsigned char>(c)];
}

}  // namespace

std::string ToBase64(const std::uint8_t* bytes, std::size_t size) {
    std::string text((size + 2) / 3 * 4, '\0');
    // The function adds a NUL where the string has its own.
    EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()), bytes, static_cast<int>(size));
    return text;
}

std::optional<Bytes> FromBase64(std::string_view text) {
    Bytes bytes;
    bytes.reserve(text.size() / 4 * 3);
    std::uint32_t group = 0;
    std::size_t digits = 0;
    std::size_t padding = 0;
    for (const char c : text) {
        const std::int8_t value = ValueOf(c);
        if (value == kBlank) continue;
        if (c == '=') {
            ++padding;
            continue;
        }
        if (value == kForeign || padding > 0) return std::nullopt;
        group = group << 6 | static_cast<std::uint32_t>(value);
        if (++digits % 4 == 0) {
            bytes.push_back(static_cast<std::uint8_t>(group >> 16));
            bytes.push_back(static_cast<std::uint8_t>(group >> 8));
            bytes.push_back(static_cast<std::uint8_t>(group));
            group = 0;
        }
    }
    const std::size_t rest = digits % 4;
    if (rest == 1 || (rest == 0 ? padding != 0 : padding != 4 - rest)) return std::nullopt;
    if (rest == 2) bytes.push_back(static_cast<std::uint8_t>(group >> 4));
    if (rest == 3) {
        bytes.push_back(static_cast<std::uint8_t>(group >> 10));
        bytes.push_back(static_cast<std::uint8_t>(group >> 2));
    }
    return bytes;
}

std::vector<std::string_view> WithoutArmour(std::string_view text) {
    constexpr std::string_view kDashes = "-----";
    constexpr std::string_view kBegin = "-----BEGIN ";
    std::vector<std::string_view> bodies;
    std::size_t begin = text.find(kBegin);
    while (begin != std::string_view::npos) {
        const std::size_t headEnd = text.find(kDashes, begin + kDashes.size());
        if (headEnd == std::string_view::npos) break;
        const std::size_t body = headEnd + kDashes.size();
        const std::size_t end = text.find("-----END ", body);
        if (end == std::string_view::npos) break;
        bodies.push_back(text.substr(body, end - body));
        begin = text.find(kBegin, end);
    }
    if (bodies.empty()) bodies.push_back(text);
    return bodies;
}

}  // namespace softkey

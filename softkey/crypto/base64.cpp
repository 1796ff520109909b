#include "softkey/crypto/base64.h"

#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>

#include <algorithm>

#include "softkey/crypto/openssl_errors.h"
#include "softkey/crypto/openssl_types.h"
#include "softkey/result.h"

namespace softkey {
namespace {

constexpr std::string_view kBlanks = " \t\r\n";
constexpr std::string_view kDashes = "-----";
constexpr std::string_view kBegin = "-----BEGIN ";
// Far more than anything that crosses the key's interface, and less than an int holds.
constexpr std::size_t kMost = std::size_t{1} << 24;

std::string_view Trimmed(std::string_view text) {
    const std::size_t from = std::min(text.find_first_not_of(kBlanks), text.size());
    return text.substr(from, text.find_last_not_of(kBlanks) + 1 - from);
}

// What follows the next run of dashes behind a place; npos when there is none.
std::size_t BehindDashes(std::string_view text, std::size_t from) {
    const std::size_t at = text.find(kDashes, from);
    return at == std::string_view::npos ? at : at + kDashes.size();
}

// OpenSSL wants each line of the armour on a line of its own, and no empty one beside it; some
// clients take line ends away.
std::string WithLines(std::string_view text) {
    std::string lines;
    std::size_t done = 0;
    for (std::size_t at = text.find(kDashes); at != std::string_view::npos;
         at = text.find(kDashes, done)) {
        const std::size_t end = BehindDashes(text, at + kDashes.size());
        if (end == std::string_view::npos) break;
        lines.append(Trimmed(text.substr(done, at - done))).append("\n");
        lines.append(text.substr(at, end - at)).append("\n");
        done = end;
    }
    return lines.append(text.substr(done));
}

}  // namespace

std::string ToBase64(const std::uint8_t* bytes, std::size_t size) {
    if (size > kMost) throw Failure(kTooLong, "Base64");
    std::string text((size + 2) / 3 * 4, '\0');
    // The function adds a NUL where the string has its own.
    EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()), bytes, static_cast<int>(size));
    return text;
}

// OpenSSL takes padding for zeros, and what is not Base64 at either end for nothing: what it read
// must be what it would write.
std::optional<Bytes> FromBase64(std::string_view text) {
    if (text.size() > kMost) return std::nullopt;
    std::string digits(text);
    digits.erase(std::remove_if(digits.begin(), digits.end(),
                                [&](char c) { return kBlanks.find(c) != kBlanks.npos; }),
                 digits.end());
    Bytes bytes(digits.size() / 4 * 3);
    const int read =
        EVP_DecodeBlock(bytes.data(), reinterpret_cast<const unsigned char*>(digits.data()),
                        static_cast<int>(digits.size()));
    if (read != static_cast<int>(bytes.size())) return std::nullopt;
    for (std::size_t i = digits.find('='); i < digits.size() && !bytes.empty(); ++i) {
        bytes.pop_back();
    }
    if (ToBase64(bytes) != digits) return std::nullopt;
    return bytes;
}

std::optional<std::vector<Bytes>> FromText(std::string_view text) {
    if (text.find(kBegin) == std::string_view::npos) {
        std::optional<Bytes> bytes = FromBase64(text);
        if (!bytes) return std::nullopt;
        return std::vector<Bytes>{std::move(*bytes)};
    }
    if (text.size() > kMost) return std::nullopt;
    const std::string lines = WithLines(text);
    const auto bio =
        Made(BioPtr(BIO_new_mem_buf(lines.data(), static_cast<int>(lines.size()))), "Base64");
    std::vector<Bytes> blocks;
    char* name = nullptr;
    char* header = nullptr;
    unsigned char* data = nullptr;
    long size{};
    while (PEM_read_bio(bio.get(), &name, &header, &data, &size) == 1) {
        const AllocatedPtr<char> ownName(name), ownHeader(header);
        const AllocatedPtr<unsigned char> ownData(data);
        blocks.emplace_back(data, data + size);
    }
    const bool ended = ERR_GET_REASON(ERR_peek_last_error()) == PEM_R_NO_START_LINE;
    ForgetErrors();
    if (!ended || blocks.empty()) return std::nullopt;
    return blocks;
}

}  // namespace softkey

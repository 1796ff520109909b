// The texts that the library takes and gives: request information, bundles and lists.
#ifndef KESTA_UKEY_TEXTS_HPP
#define KESTA_UKEY_TEXTS_HPP

#include <string>
#include <string_view>
#include <vector>

#include "kesta/ukey/checks.hpp"
#include "kesta/ukey/failure.hpp"

namespace kesta {

// What selects a certificate, a key pair and a hash, by the numbers that are usual. They are the
// token library's: another one of its numbers is written KeyType{7}.
enum class CertType : int { kAny = 0, kSigning = 1, kEncryption = 3 };
enum class KeyType : int { kAny = 0, kRsa = 1, kSm2 = 2 };
enum class HashType : int { kUsual = 0, kSha1 = 1, kSha256 = 2, kSm3 = 3 };

// How a hash is written that is to be signed.
enum class HashForm : int { kAny = 0, kHexadecimal = 1, kBase64 = 2 };

template <class Selector>
constexpr int NumberOf(Selector selector) {
    return static_cast<int>(selector);
}

// One certificate request. What the digits mean is the token library's to say.
struct RequestGroup {
    int certType = 0;
    int keyType = 0;
    int hashType = 0;

    constexpr RequestGroup() = default;
    constexpr RequestGroup(int cert, int key, int hash)
        : certType(cert), keyType(key), hashType(hash) {}
    constexpr RequestGroup(CertType cert, KeyType key, HashType hash)
        : certType(NumberOf(cert)), keyType(NumberOf(key)), hashType(NumberOf(hash)) {}
};

inline std::string RequestInfo(const std::vector<RequestGroup>& groups) {
    std::string text;
    for (const RequestGroup& group : groups) {
        if (!text.empty()) text += '|';
        const auto item = [&text](const char* name, int value) {
            if (value < 0 || value > 9) {
                throw Error({KESTA_BAD_ARGUMENT, "RequestInfo",
                             Say(Sentence::kOneDigit, {name, std::to_string(value)}),
                             Failure::Origin::kRefused});
            }
            text += std::string(name) + "(" + std::to_string(value) + ")";
        };
        item("CertType", group.certType);
        item("KeyType", group.keyType);
        item("HashType", group.hashType);
    }
    return text;
}

// What a certificate authority returned, for Batch_ImportX509Cert.
struct Bundle {
    std::vector<std::string> signingCertificates;
    std::vector<std::string> encryptionKeys;
    std::vector<std::string> encryptionCertificates;

    std::string Text() const {
        std::string text;
        Append(text, "SignCert", signingCertificates);
        Append(text, "EncCert", encryptionCertificates);
        Append(text, "EncPriKey", encryptionKeys);
        return text;
    }

private:
    // A "|" would begin another section, a ")" would end this one.
    static void Append(std::string& text, const char* name,
                       const std::vector<std::string>& contents) {
        for (const std::string& content : contents) {
            if (content.find_first_of("|)") != std::string::npos) {
                throw Error({KESTA_BAD_ARGUMENT, "Bundle", Say(Sentence::kSectionCharacter, {name}),
                             Failure::Origin::kRefused});
            }
            if (!text.empty()) text += '|';
            text += std::string(name) + "(" + content + ")";
        }
    }
};

inline std::string JoinList(const std::vector<std::string>& items) {
    std::string text;
    for (const std::string& item : items) {
        if (!text.empty()) text += "||";
        text += item;
    }
    return text;
}

// The parts of a text that is joined by "||". Empty parts are left out: a batch request whose
// first record is skipped begins with a separator.
inline std::vector<std::string> SplitList(std::string_view text) {
    std::vector<std::string> items;
    while (!text.empty()) {
        const std::size_t end = text.find("||");
        if (end != 0) items.emplace_back(text.substr(0, end));
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 2);
    }
    return items;
}

}  // namespace kesta

#endif

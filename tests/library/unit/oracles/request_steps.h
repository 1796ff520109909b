// The request-information grammar and the pairing of groups, written out step by step as they were
// agreed with the clients: slow and plain, with positions. The library's readers are compared with
// these.
#ifndef KESTA_UNIT_REQUEST_STEPS_H
#define KESTA_UNIT_REQUEST_STEPS_H

#include <array>
#include <cctype>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

namespace steps {

// Token semantics: skip any run of separators from position, then take up to the next one. The
// position moves one past the separator that ended the token, also when that was the text's end.
inline std::optional<std::string> Token(const std::string& text, char separator, int& position) {
    const int length = static_cast<int>(text.size());
    int begin = position;
    while (begin < length && text[static_cast<std::size_t>(begin)] == separator) ++begin;
    if (begin >= length) return std::nullopt;
    int end = begin;
    while (end < length && text[static_cast<std::size_t>(end)] != separator) ++end;
    position = end + 1;
    return text.substr(static_cast<std::size_t>(begin), static_cast<std::size_t>(end - begin));
}

inline std::string Trim(std::string name) {
    while (!name.empty() && std::isspace(static_cast<unsigned char>(name[0]))) name.erase(0, 1);
    while (!name.empty() && std::isspace(static_cast<unsigned char>(name[name.size() - 1]))) {
        name.erase(name.size() - 1);
    }
    return name;
}

inline std::string Upper(std::string text) {
    for (char& c : text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return text;
}

enum class Outcome { kRead, kUnknownName, kThrown };

struct Parameters {
    std::array<int, 3> values{};  // certType, keyType, hashType
};

inline Outcome ParseGroup(const std::string& group, Parameters& parameters) {
    static const char* const keys[] = {"CertType", "KeyType", "HashType"};
    int position = 0;
    for (;;) {
        const auto name = Token(group, '(', position);
        if (!name) return Outcome::kRead;
        const std::string wanted = Upper(Trim(*name));
        int* value = nullptr;
        for (std::size_t i = 0; i < 3 && value == nullptr; ++i) {
            if (std::strcmp(wanted.c_str(), Upper(keys[i]).c_str()) == 0) {
                value = &parameters.values[i];
            }
        }
        if (value == nullptr) return Outcome::kUnknownName;
        if (position > static_cast<int>(group.size())) return Outcome::kThrown;
        // The character at the group's length is its NUL.
        *value = static_cast<unsigned char>(group.c_str()[position]) - '0';
        if (!Token(group, ')', position)) return Outcome::kRead;
    }
}

// What a whole text gives: the parameters after each group, up to the first that is refused.
struct Reading {
    std::vector<std::array<int, 3>> groups;
    Outcome outcome = Outcome::kRead;
};

inline Reading Read(const std::string& text) {
    Reading reading;
    Parameters parameters;
    int position = 0;
    while (const auto group = Token(text, '|', position)) {
        reading.outcome = ParseGroup(*group, parameters);
        if (reading.outcome != Outcome::kRead) break;
        reading.groups.push_back(parameters.values);
    }
    return reading;
}

// The 96 bytes of the three records, and how many of them groups made; nothing where a group of
// certType 3 has another keyType than 2.
struct Records {
    std::array<unsigned char, 96> bytes{};
    int count = 0;
};

inline std::optional<Records> RecordsFor(const std::vector<std::array<int, 3>>& groups) {
    Records result;
    const auto put = [&result](int record, int offset, std::int64_t value) {
        std::memcpy(&result.bytes[static_cast<std::size_t>(record * 32 + offset)], &value, 8);
    };
    int latestGroup = 0;  // 1-based; 0: none yet
    int latestRecord = 0;
    int latestCertType = 0;
    for (std::size_t i = 0; i < groups.size(); ++i) {
        const int certType = groups[i][0], keyType = groups[i][1], hashType = groups[i][2];
        if (certType == 3 && keyType != 2) return std::nullopt;
        const bool both3 = latestCertType == 3 && certType == 3;
        const bool bothOther = latestCertType != 3 && certType != 3;
        if (keyType != 2 || latestGroup == 0 || both3 || bothOther) {
            put(result.count, 0, certType);
            put(result.count, 8, keyType);
            put(result.count, 16, hashType);
            if (keyType == 2) {
                latestGroup = static_cast<int>(i) + 1;
                latestRecord = result.count;
                latestCertType = certType;
            }
            ++result.count;
            continue;
        }
        result.bytes[static_cast<std::size_t>(latestRecord * 32 + 24)] = 1;
        if (certType != 3) put(latestRecord, 0, certType);
    }
    return result;
}

}  // namespace steps

#endif

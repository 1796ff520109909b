#include "request_info.h"

#include <algorithm>
#include <cctype>

#include "any_case.h"
#include "lgn/lgn.h"

namespace kesta {

namespace {

constexpr std::int32_t kEncryptionPair = 3;
constexpr std::int32_t kSm2 = 2;

// The token at or after position: separators in front of it are skipped, and position moves one
// past the separator that ends it. False when only separators are left.
bool takeToken(std::string_view text, char separator, std::size_t& position,
               std::string_view& token) {
    if (position >= text.size()) return false;
    const std::size_t begin = text.find_first_not_of(separator, position);
    if (begin == std::string_view::npos) return false;
    const std::size_t end = std::min(text.find(separator, begin), text.size());
    token = text.substr(begin, end - begin);
    position = end + 1;
    return true;
}

std::string_view trimmed(std::string_view text) {
    const auto blank = [](char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; };
    while (!text.empty() && blank(text.front())) text.remove_prefix(1);
    while (!text.empty() && blank(text.back())) text.remove_suffix(1);
    return text;
}

std::int32_t* findParameter(std::string_view name, RequestParameters& parameters) {
    if (equalInAnyCase(name, "CertType")) return &parameters.certType;
    if (equalInAnyCase(name, "KeyType")) return &parameters.keyType;
    if (equalInAnyCase(name, "HashType")) return &parameters.hashType;
    return nullptr;
}

// The one character of a value. The place of the group's end reads as a NUL, one past it throws.
std::int32_t valueAt(std::string_view group, std::size_t position) {
    if (position > group.size()) LGN::LgnThrow(LGN::kInvalidArgument);
    const char value = position == group.size() ? '\0' : group[position];
    // Unsigned on every architecture, so that a byte above 127 means the same number on each.
    return std::int32_t{static_cast<unsigned char>(value)} - '0';
}

}  // namespace

bool GroupReader::next(std::string_view& group) {
    return takeToken(m_text, '|', m_position, group);
}

bool parseGroup(std::string_view group, RequestParameters& parameters) {
    std::size_t position = 0;
    std::string_view name;
    while (takeToken(group, '(', position, name)) {
        std::int32_t* parameter = findParameter(trimmed(name), parameters);
        if (parameter == nullptr) return false;
        *parameter = valueAt(group, position);
        std::string_view skipped;
        if (!takeToken(group, ')', position, skipped)) break;
    }
    return true;
}

bool RequestRecords::add(const RequestParameters& group) {
    const bool encryption = group.certType == kEncryptionPair;
    if (encryption && group.keyType != kSm2) return false;
    if (group.keyType != kSm2) {
        append(group);
        return true;
    }
    const bool sameKind = (m_openCertType == kEncryptionPair) == encryption;
    if (m_open == nullptr || sameKind) {
        append(group);
        m_open = &m_records[m_count - 1];
        m_openCertType = group.certType;
        return true;
    }
    m_open->paired = 1;
    if (!encryption) m_open->certType = group.certType;
    return true;
}

void RequestRecords::append(const RequestParameters& group) {
    KestaRequestRecord& record = m_records[m_count++];
    record.certType = group.certType;
    record.keyType = group.keyType;
    record.hashType = group.hashType;
}

}  // namespace kesta

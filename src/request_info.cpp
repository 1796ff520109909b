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
bool TakeToken(std::string_view text, char separator, std::size_t& position,
               std::string_view& token) {
    if (position >= text.size()) return false;
    const std::size_t begin = text.find_first_not_of(separator, position);
    if (begin == std::string_view::npos) return false;
    const std::size_t end = std::min(text.find(separator, begin), text.size());
    token = text.substr(begin, end - begin);
    position = end + 1;
    return true;
}

std::string_view Trimmed(std::string_view text) {
    const auto blank = [](char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; };
    while (!text.empty() && blank(text.front())) text.remove_prefix(1);
    while (!text.empty() && blank(text.back())) text.remove_suffix(1);
    return text;
}

std::int32_t* FindParameter(std::string_view name, RequestParameters& parameters) {
    if (EqualInAnyCase(name, "CertType")) return &parameters.certType;
    if (EqualInAnyCase(name, "KeyType")) return &parameters.keyType;
    if (EqualInAnyCase(name, "HashType")) return &parameters.hashType;
    return nullptr;
}

// The one character of a value. The place of the group's end reads as a NUL, one past it throws.
std::int32_t ValueAt(std::string_view group, std::size_t position) {
    if (position > group.size()) LGN::LgnThrow(LGN::kInvalidArgument);
    const char value = position == group.size() ? '\0' : group[position];
    // Unsigned on every architecture, so that a byte above 127 means the same number on each.
    return std::int32_t{static_cast<unsigned char>(value)} - '0';
}

}  // namespace

bool GroupReader::Next(std::string_view& group) {
    return TakeToken(text_, '|', position_, group);
}

bool ParseGroup(std::string_view group, RequestParameters& parameters) {
    std::size_t position = 0;
    std::string_view name;
    while (TakeToken(group, '(', position, name)) {
        std::int32_t* parameter = FindParameter(Trimmed(name), parameters);
        if (parameter == nullptr) return false;
        *parameter = ValueAt(group, position);
        std::string_view skipped;
        if (!TakeToken(group, ')', position, skipped)) break;
    }
    return true;
}

bool RequestRecords::Add(const RequestParameters& group) {
    const bool encryption = group.certType == kEncryptionPair;
    if (encryption && group.keyType != kSm2) return false;
    if (group.keyType != kSm2) {
        append(group);
        return true;
    }
    const bool sameKind = (openCertType_ == kEncryptionPair) == encryption;
    if (open_ == nullptr || sameKind) {
        append(group);
        open_ = &records_[count_ - 1];
        openCertType_ = group.certType;
        return true;
    }
    open_->paired = 1;
    if (!encryption) open_->certType = group.certType;
    return true;
}

void RequestRecords::append(const RequestParameters& group) {
    KestaRequestRecord& record = records_[count_++];
    record.certType = group.certType;
    record.keyType = group.keyType;
    record.hashType = group.hashType;
}

}  // namespace kesta

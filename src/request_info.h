// The request-information text and the records of a batch request: pure rules, no state.
//
// A text is groups separated by "|", a group is items like CertType(1). Values carry over from
// group to group, so the reader works on parameters that the caller keeps.
#ifndef KESTA_REQUEST_INFO_H
#define KESTA_REQUEST_INFO_H

#include <cstdint>
#include <string_view>

#include "kesta/token_library.h"

namespace kesta {

struct RequestParameters {
    std::int32_t certType = 0;
    std::int32_t keyType = 0;
    std::int32_t hashType = 0;
};

// Takes the groups of a text one after another.
class GroupReader {
public:
    explicit GroupReader(std::string_view text) : text_(text) {}
    // False when no further group is found.
    bool Next(std::string_view& group);

private:
    std::string_view text_;
    std::size_t position_ = 0;
};

// Reads a group's items into parameters. False: an item's name is unknown. Throws
// LGN::CLgnException (invalid argument) where a name ends the group without a parenthesis.
bool ParseGroup(std::string_view group, RequestParameters& parameters);

// The records that groups make. An SM2 group and its encryption companion make one record.
class RequestRecords {
public:
    static constexpr int kMost = 3;

    // False: certType 3 demands keyType 2. Takes at most kMost groups.
    bool Add(const RequestParameters& group);

    // Slots that no group filled are all zero.
    KestaRequestRecord& operator[](int slot) { return records_[slot]; }
    int count() const { return count_; }

private:
    void append(const RequestParameters& group);

    KestaRequestRecord records_[kMost] = {};
    int count_ = 0;
    // The latest record that an SM2 group made, and that group's certType.
    KestaRequestRecord* open_ = nullptr;
    std::int32_t openCertType_ = 0;
};

}  // namespace kesta

#endif

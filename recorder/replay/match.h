// Holds a live call against a recorded one.
#ifndef KESTA_RECORDER_MATCH_H
#define KESTA_RECORDER_MATCH_H

#include <optional>

#include "file/reader.h"
#include "record/values.h"

namespace kesta {
namespace recorder {

struct Difference {
    std::string what;  // the parameter's name, "result" or "G_LastError"
    std::string expected;
    std::string found;
};

// What a live call looks like in a recording.
Json ArgumentsOf(const LiveCall& call, const Discretion& discretion);
Json OutputsOf(const LiveCall& call, const Discretion& discretion);
Json ResultOf(const LiveCall& call);

// Where exact is false, as for a recording without contents, hidden values are compared by length.
bool SameValue(const Json& expected, const Json& found, bool exact);
std::optional<Difference> DifferenceOf(const Json& expected, const Json& found,
                                       const Function& function, bool exact);

// A value in a message: short, and of a hidden one no more than its length.
std::string InMessage(const Json& value);

}  // namespace recorder
}  // namespace kesta

#endif

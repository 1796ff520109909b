// The entry points that a plan may name, and which effects each of them can have.
#ifndef SOFTKEY_MISBEHAVIOUR_ENTRY_TRAITS_H
#define SOFTKEY_MISBEHAVIOUR_ENTRY_TRAITS_H

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace softkey {

enum Trait : unsigned {
    kAnyEntry = 0,
    kAboutKey = 1U << 0,     // one key is meant, by its serial number or as the only one
    kUsesKey = 1U << 1,      // looks at that key or works with it
    kAnswersCode = 1U << 2,  // and not a text
    kOutput = 1U << 3,       // hands something out
    kDivisible = 1U << 4,    // half of which can be told from the whole
    kBounded = 1U << 5,      // into a room of a known size, with a NUL behind it
    kLength = 1U << 6,       // with its length
    kDelivers = 1U << 7,     // events
};

// Those of the token library, then those of the event library. A count's place in the file of
// counts is the name's place here.
const std::vector<std::string>& MisbehaviourEntryPoints();
std::optional<std::size_t> MisbehaviourEntryIndex(const std::string& name);

unsigned TraitsOf(const std::string& entry);

}  // namespace softkey

#endif

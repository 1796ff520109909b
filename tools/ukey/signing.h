// What the subcommands that sign have in common.
#ifndef UKEY_SIGNING_H
#define UKEY_SIGNING_H

#include <optional>
#include <string>

#include "input.h"
#include "selectors.h"

namespace ukey {

struct SignWish {
    int algorithm = 2;
    int hashType = 0;  // 0: the usual one of the algorithm
    Input data;

    int Hash() const { return HashTypeFor(algorithm, hashType); }
};

void AddWarning(const Options& options, std::optional<std::string>& warning, const char* sentence);

// On a terminal: that the key waits for its button, and what it shows.
class ButtonHint {
public:
    ButtonHint(const Session& session, const std::string& warning);

private:
    std::optional<Hint> hint_;
};

}  // namespace ukey

#endif

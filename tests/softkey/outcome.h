// What comes of a piece of the software key's own code.
#ifndef TESTS_SOFTKEY_OUTCOME_H
#define TESTS_SOFTKEY_OUTCOME_H

#include <string>
#include <utility>

#include "softkey/result.h"

using Outcome = std::pair<softkey::Code, std::string>;

// The code that it fails with and what it says; kOk when it does not fail.
template <typename Act>
Outcome OutcomeOf(Act act) {
    try {
        act();
        return {softkey::kOk, ""};
    } catch (const softkey::Failure& failure) {
        return {failure.code(), failure.detail()};
    }
}

#endif

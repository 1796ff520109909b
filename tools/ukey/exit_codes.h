// The command's exit codes: one for each kind of failure, stable between versions.
#ifndef UKEY_EXIT_CODES_H
#define UKEY_EXIT_CODES_H

#include <string>
#include <vector>

#include "kesta/ukey/failure.hpp"
#include "kit/errors.h"

namespace ukey {

enum class Exit : int {
    kOk = 0,
    kFailed = 1,     // the key or its library reported something else
    kUsage = 2,      // wrong options or malformed input
    kKeyAbsent = 3,  // no key, not this key, or pulled out meanwhile
    kPin = 4,        // wrong, locked, missing or not entered
    kRefused = 5,    // by a person: at the key's button, or at the question
    kBuffer = 6,     // a buffer too small, or a length that cannot be true
    kNotLoaded = 7,  // this library or the token library cannot be loaded
    kNotFound = 8,   // no such certificate, key pair or data object on the key
    kFile = 9,       // an input cannot be read or an output cannot be written
    kUnsupported = 10,
    kTimeout = 11,   // no event in time
    kFindings = 12,  // doctor found something that needs a remedy
    kDiffers = 20,   // a call of the replayed command
    kInterrupted = 130,
};

// All of them, in the order of their numbers.
extern const std::vector<kit::Status> kExitKinds;

// The one of them that stands for CODE; each has one.
const kit::Status& StatusOf(Exit code);
const char* Name(Exit code);

// The kind of a result code, by the table in use; kFailed for one that is in none.
Exit KindOfCode(int code);
Exit KindOf(const kesta::Failure& failure);

// What to do about a failure, in one sentence; empty where there is nothing to add.
std::string Advice(const kesta::Failure& failure);

}  // namespace ukey

#endif

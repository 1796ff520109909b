// The key's answers, asked for in a process of its own: a library under suspicion may crash or
// hang.
#ifndef UKEY_DOCTOR_KEY_ANSWERS_H
#define UKEY_DOCTOR_KEY_ANSWERS_H

#include <string>
#include <vector>

#include "doctor/checks.h"

namespace ukey {

// A pair of the key whose certificate is asked for.
struct KeyPair {
    unsigned certType;
    unsigned keyType;
    const char* words;
};
constexpr KeyPair kKeyPairs[] = {{1, 2, N_("signing SM2")},
                                 {3, 2, N_("encryption SM2")},
                                 {1, 1, N_("signing RSA")},
                                 {3, 1, N_("encryption RSA")}};

struct KeyAnswer {
    int code = 0;
    kesta::Kind kind = kesta::Kind::kOk;
    std::string text;  // the answer, or the message of a failure
};

// What was asked: the serial number, the PIN record, then the pair's certificates. The first that
// fails for good is the last.
struct KeyAnswers {
    std::vector<KeyAnswer> answers;
    std::string version;  // of the client library, where it was asked for
    std::string ending;   // how the process ended before it had answered all; empty: it did not
    int startError = 0;   // of errno, when there could be no process
};

KeyAnswers AskKey(const KeyQuestion& question);

// The function that the answer of that number comes from.
const char* AskedFunction(std::size_t number);

}  // namespace ukey

#endif

// For each export a call with a buffer and a length of the test's choice, and what the token
// library has to do for it to succeed.
#ifndef KESTA_API_EXPORT_DRIVERS_H
#define KESTA_API_EXPORT_DRIVERS_H

#include <functional>
#include <string>
#include <vector>

// What the calls are made with, and what the token library answers.
struct Inputs {
    std::string data;    // also the hash, the cipher text
    std::string list;    // of texts to sign
    std::string result;  // that the token library hands out
};

struct Driver {
    std::string name;
    std::string entry;  // the first entry point asked; empty when none is
    // The call and its answer. What an export has no use for is ignored.
    std::function<int(const Inputs&, char*, unsigned*)> call;
    std::function<void(const Inputs&)> answer;
    bool has_buffer;
    int length_argument = -1;            // where the entry point takes the caller's length
    std::string length_entry{};          // of which entry point; empty: the first
    std::function<int()> refused{};      // a call answered by -401
    std::function<int()> unsupported{};  // a call answered by -300
    std::size_t fixed_length = 0;        // of a result that is no matter of the token library
};

const Driver& driver_of(const std::string& name);

#endif

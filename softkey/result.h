// How the software key's own code reports that something failed: an exception that carries one
// result code. The entry points and the commands catch it at their edge.
#ifndef SOFTKEY_RESULT_H
#define SOFTKEY_RESULT_H

#include <exception>
#include <string>
#include <utility>

#include "softkey/codes.h"
#include "softkey/sentence.h"

namespace softkey {

class Failure : public std::exception {
public:
    // detail is for people: what was wrong with what. It never holds a PIN or key material.
    explicit Failure(Code code, std::string detail = {})
        : code_(code), detail_(std::move(detail)) {}
    Failure(Code code, const char* sentence) : Failure(code, Sentence(sentence)) {}

    Code code() const noexcept { return code_; }
    const std::string& detail() const noexcept { return detail_; }
    const char* what() const noexcept override { return detail_.c_str(); }

private:
    Code code_;
    std::string detail_;
};

}  // namespace softkey

#endif

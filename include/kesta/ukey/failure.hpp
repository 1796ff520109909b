// How an operation of the face fails: Failure is the description, Error the exception that carries
// it, Result<T> the form without exceptions.
#ifndef KESTA_UKEY_FAILURE_HPP
#define KESTA_UKEY_FAILURE_HPP

#include <cstdio>
#include <stdexcept>
#include <string>
#include <utility>
#include <variant>

#include "kesta_unified_zrkukey.h"

namespace kesta {

// The library's own codes are small negative numbers and are known in decimal; the token library's
// are known in hexadecimal.
inline std::string CodeText(int code) {
    if (code <= 0 && code > -1000) return std::to_string(code);
    char text[16];
    std::snprintf(text, sizeof text, "0x%08X", static_cast<unsigned>(code));
    return text;
}

// The face's own sentence for a code of the library's; empty for any other code.
inline std::string OwnMessage(int code) {
    switch (code) {
        case KESTA_OK:
            return "success";
        case KESTA_NOT_BOUND:
            return "the token library is missing or incomplete";
        case KESTA_NOT_INITIALISED:
            return "the library is not initialised";
        case KESTA_UNSUPPORTED:
            return "not supported by this library";
        case KESTA_BAD_ARGUMENT:
            return "an argument is missing, malformed or out of range";
        case KESTA_BUFFER_TOO_SMALL:
            return "the output buffer is too small";
        default:
            return {};
    }
}

struct Failure {
    enum class Origin {
        kLibrary,  // the operation was called and answered the code
        kRefused,  // the input was refused before any call; the code is the library's for it
        kAnswer,   // the operation succeeded with an answer that cannot be true
        kLoading,  // the library itself could not be loaded
    };

    int code = 0;
    std::string operation;  // the name of the function, or "Load"
    std::string message;    // one sentence without a full stop
    Origin origin = Origin::kLibrary;

    std::string Text() const { return operation + ": " + message + " (" + CodeText(code) + ")"; }
};

class Error : public std::runtime_error {
public:
    explicit Error(Failure failure)
        : std::runtime_error(failure.Text()), failure_(std::move(failure)) {}

    int code() const noexcept { return failure_.code; }
    const std::string& operation() const noexcept { return failure_.operation; }
    const std::string& message() const noexcept { return failure_.message; }
    const Failure& failure() const noexcept { return failure_; }

private:
    Failure failure_;
};

struct Nothing {};

// Either a value or a Failure. Result<void> holds Nothing.
template <class T>
class [[nodiscard]] Result {
public:
    using Value = std::conditional_t<std::is_void_v<T>, Nothing, T>;

    Result(Value value) : held_(std::in_place_index<0>, std::move(value)) {}
    Result(Failure failure) : held_(std::in_place_index<1>, std::move(failure)) {}

    bool ok() const noexcept { return held_.index() == 0; }
    explicit operator bool() const noexcept { return ok(); }
    int code() const noexcept { return ok() ? KESTA_OK : failure().code; }

    // value() of a failure throws it; failure() of a success is the caller's mistake.
    const Value& value() const& {
        ThrowIfFailed();
        return std::get<0>(held_);
    }
    Value value() && {
        ThrowIfFailed();
        return std::get<0>(std::move(held_));
    }
    const Failure& failure() const { return std::get<1>(held_); }

private:
    void ThrowIfFailed() const {
        if (!ok()) throw Error(failure());
    }

    std::variant<Value, Failure> held_;
};

}  // namespace kesta

#endif

// How an operation of the face fails: Failure is the description, Error the exception that carries
// it, Result<T> the form without exceptions.
#ifndef KESTA_UKEY_FAILURE_HPP
#define KESTA_UKEY_FAILURE_HPP

#include <cstdio>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>

#include "kesta/ukey/codes.hpp"
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
    std::optional<Kind> known{};  // where the face itself knows better than the table

    Kind kind() const { return known ? *known : CodeTable::InUse()->KindOf(code); }
    std::string Text() const { return operation + ": " + message + " (" + CodeText(code) + ")"; }
};

class Error : public std::runtime_error {
public:
    explicit Error(Failure failure)
        : std::runtime_error(failure.Text()), failure_(std::move(failure)) {}

    int code() const noexcept { return failure_.code; }
    Kind kind() const { return failure_.kind(); }
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

    Result(Value value) : value_(std::move(value)) {}
    Result(Failure failure) : failure_(std::make_shared<const Failure>(std::move(failure))) {}

    bool ok() const noexcept { return value_.has_value(); }
    explicit operator bool() const noexcept { return ok(); }
    int code() const noexcept { return ok() ? KESTA_OK : failure().code; }

    // value() of a failure throws it; failure() of a success is the caller's mistake.
    const Value& value() const& {
        ThrowIfFailed();
        return *value_;
    }
    Value value() && {
        ThrowIfFailed();
        return *std::move(value_);
    }
    const Failure& failure() const {
        if (failure_ == nullptr) throw std::logic_error("kesta::Result holds no failure");
        return *failure_;
    }

private:
    void ThrowIfFailed() const {
        if (!ok()) throw Error(failure());
    }

    // No std::variant of the two: gcc 12 warns where it cannot see which one is alive.
    std::optional<Value> value_;
    std::shared_ptr<const Failure> failure_;
};

}  // namespace kesta

#endif

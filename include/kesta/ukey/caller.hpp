// One call of the library, with everything that must not go wrong around it: the inputs' checks,
// the turn, exceptions, the output buffer and what the library says about its length.
//
// Lengths come from the token in the end, and a token may say anything. Therefore texts end at
// their NUL inside the buffer that was offered, whatever length is reported; sizes are taken from
// the bounds in the public header; and a length that exceeds its bound is a Failure.
#ifndef KESTA_UKEY_CALLER_HPP
#define KESTA_UKEY_CALLER_HPP

#include <cxxabi.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "kesta/ukey/checks.hpp"
#include "kesta/ukey/failure.hpp"
#include "kesta/ukey/functions.hpp"
#include "kesta/ukey/turns.hpp"

namespace kesta {

using Bytes = std::vector<unsigned char>;

class Caller {
public:
    explicit Caller(const Functions& functions, const Patience& patience = {})
        : functions_(functions), patience_(patience) {}

    const Functions& functions() const { return functions_; }
    const Patience& patience() const { return patience_; }

    // A function without output. Texts among the arguments are checked and handed on as C texts.
    template <class Function, class... Arguments>
    Result<void> Run(const char* operation, Function* function,
                     const Arguments&... arguments) const {
        if (auto reason = Reject(arguments...)) return Refusal(operation, *reason);
        const Turn turn(patience_);
        if (!turn.Granted()) return Busy(operation);
        return RunInTurn(operation, function, Raw(arguments)...);
    }

    // A function that asks no token: it waits for nobody's turn. It might bind the token library,
    // which is done in a turn, and not at all where somebody has that turn.
    template <class Function, class... Arguments>
    Result<void> RunBeside(const char* operation, Function* function,
                           const Arguments&... arguments) const {
        InitialiseQuietly();
        return RunInTurn(operation, function, Raw(arguments)...);
    }

    // A text whose size has a fixed bound. One call, no probe: the token is asked once.
    template <class Length, class Function, class... Arguments>
    Result<std::string> BoundedText(const char* operation, Function* function, std::size_t bound,
                                    const Arguments&... arguments) const {
        if (auto reason = Reject(arguments...)) return Refusal(operation, *reason);
        const Turn turn(patience_);
        if (!turn.Granted()) return Busy(operation);
        return TextInTurn<Length>(operation, function, bound, Raw(arguments)...);
    }

    // The same of a function that asks no token; see RunBeside.
    template <class Length, class Function, class... Arguments>
    Result<std::string> TextBeside(const char* operation, Function* function, std::size_t bound,
                                   const Arguments&... arguments) const {
        InitialiseQuietly();
        return TextInTurn<Length>(operation, function, bound, Raw(arguments)...);
    }

    struct Probe {
        std::size_t most = 0;          // what the library can answer for such an input
        unsigned* reported = nullptr;  // receives the length that the library reports
        std::size_t least = 0;         // a capacity that is offered at any rate
    };

    // A text for which a probe names the capacity.
    template <class Function, class... Arguments>
    Result<std::string> ProbedText(const char* operation, Function* function, const Probe& probe,
                                   const Arguments&... arguments) const {
        if (auto reason = Reject(arguments...)) return Refusal(operation, *reason);
        const Turn turn(patience_);
        if (!turn.Granted()) return Busy(operation);
        unsigned length = 0;
        Outcome outcome = Call(function, Raw(arguments)..., nullptr, &length);
        if (outcome.Failed()) return Describe(operation, outcome);
        if (length > probe.most) return FalseLength(operation, length, probe.most);
        const std::size_t bound = std::max<std::size_t>(length, probe.least);
        std::string text(bound + kMargin, '\0');
        length = static_cast<unsigned>(bound);
        outcome = Call(function, Raw(arguments)..., text.data(), &length);
        if (probe.reported != nullptr) *probe.reported = length;
        if (outcome.code == KESTA_BUFFER_TOO_SMALL && !outcome.raised) {
            return FalseLength(operation, length, bound);
        }
        if (outcome.Failed()) return Describe(operation, outcome);
        return Cut(operation, std::move(text), bound);
    }

    // A record of at most bound bytes; its reported length is all there is to go by.
    template <class Function, class... Arguments>
    Result<Bytes> Record(const char* operation, Function* function, std::size_t bound,
                         const Arguments&... arguments) const {
        if (auto reason = Reject(arguments...)) return Refusal(operation, *reason);
        const Turn turn(patience_);
        if (!turn.Granted()) return Busy(operation);
        Bytes record(bound + kMargin);
        auto length = static_cast<unsigned>(bound);
        const Outcome outcome = Call(function, Raw(arguments)..., record.data(), &length);
        if (outcome.Failed()) return Describe(operation, outcome);
        if (length > bound) return FalseLength(operation, length, bound);
        if (Overrun(record.begin() + static_cast<std::ptrdiff_t>(bound), record.end())) {
            return Overwritten(operation, bound);
        }
        record.resize(length);
        return record;
    }

    // Requests: a probe makes them, a second call with the same arguments fetches them. Whether
    // that call wrote to the buffer tells success, because its code can be one of another thread's.
    template <class Function, class... Arguments>
    Result<std::string> RequestText(const char* operation, Function* function,
                                    const Arguments&... arguments) const {
        if (auto reason = Reject(arguments...)) return Refusal(operation, *reason);
        // Nobody else of this program comes between: the library keeps one text only.
        const Turn turn(patience_);
        if (!turn.Granted()) return Busy(operation);
        int length = 0;
        Outcome outcome = Call(function, Raw(arguments)..., nullptr, &length);
        if (outcome.Failed()) return Describe(operation, outcome);
        if (length < 1 || static_cast<std::size_t>(length) > kLongestRequests) {
            return FalseLength(operation, static_cast<unsigned>(length), kLongestRequests);
        }
        constexpr char kUntouched = '\x01';
        const auto bound = static_cast<std::size_t>(length);
        std::string text(bound + kMargin, '\0');
        text[0] = kUntouched;
        outcome = Call(function, Raw(arguments)..., text.data(), &length);
        if (text[0] != kUntouched) return Cut(operation, std::move(text), bound);
        if (!outcome.Failed()) return FalseLength(operation, static_cast<unsigned>(length), bound);
        return Describe(operation, outcome);
    }

    static Failure Refusal(const char* operation, const std::string& reason) {
        return {KESTA_BAD_ARGUMENT, operation, reason, Failure::Origin::kRefused};
    }

    static Failure WrongAnswer(const char* operation, int code, const std::string& reason) {
        return {code, operation, reason, Failure::Origin::kAnswer};
    }

    static Failure Busy(const char* operation) {
        return {KESTA_BAD_ARGUMENT, operation, Say(Sentence::kBusy), Failure::Origin::kRefused,
                Kind::kBusy};
    }

    // The text of any code: the face's own for the library's codes, else the token library's.
    std::string Message(int code) const {
        std::string own = OwnMessage(code);
        if (!own.empty()) return own;
        const Turn turn(patience_);
        return turn.Granted() ? MessageInTurn(code) : Say(Sentence::kNoText);
    }

    struct Outcome {
        int code = 0;
        bool raised = false;  // a C++ exception came out of the library
        bool Failed() const { return raised || code != KESTA_OK; }
    };

    // For functions that do not bind the token library themselves, or not in a turn.
    Result<void> EnsureInitialised() const {
        if (__atomic_load_n(functions_.initFlag, __ATOMIC_ACQUIRE)) return Nothing{};
        return Run("Initialize", functions_.Initialize);
    }

    // The bare call. What comes out of the library as an exception is told as one.
    template <class Function, class... Arguments>
    static Outcome Call(Function* function, Arguments... arguments) {
        try {
            return {function(arguments...), false};
        }
#ifdef __GLIBCXX__
        catch (const abi::__forced_unwind&) {
            throw;  // the thread is being cancelled
        }
#endif
        catch (...) {
            return {0, true};
        }
    }

    // To be called in the turn of the operation: the message is a call too.
    Failure Describe(const char* operation, const Outcome& outcome) const {
        if (outcome.raised) {
            return {KESTA_BAD_ARGUMENT, operation, Say(Sentence::kRaised),
                    Failure::Origin::kLibrary, Kind::kFailed};
        }
        std::string own = OwnMessage(outcome.code);
        return {outcome.code, operation, own.empty() ? MessageInTurn(outcome.code) : own,
                Failure::Origin::kLibrary};
    }

    // The same outside a turn.
    Failure DescribeLate(const char* operation, const Outcome& outcome) const {
        const Turn turn({});
        return Describe(operation, outcome);
    }

private:
    // Room behind what is offered: for the NUL, and for a token library that writes too far.
    static constexpr std::size_t kMargin = 64;
    static constexpr std::size_t kLongestMessage = 4096;
    // Some hundred thousand requests: what exceeds this is no length of theirs.
    static constexpr std::size_t kLongestRequests = std::size_t{64} << 20U;

    template <class Function, class... Arguments>
    Result<void> RunInTurn(const char* operation, Function* function,
                           Arguments... arguments) const {
        const Outcome outcome = Call(function, arguments...);
        if (outcome.Failed()) return Describe(operation, outcome);
        return Nothing{};
    }

    template <class Length, class Function, class... Arguments>
    Result<std::string> TextInTurn(const char* operation, Function* function, std::size_t bound,
                                   Arguments... arguments) const {
        std::string text(bound + kMargin, '\0');
        auto length = static_cast<Length>(bound);
        const Outcome outcome = Call(function, arguments..., text.data(), &length);
        if (outcome.code == KESTA_BUFFER_TOO_SMALL && !outcome.raised) {
            return FalseLength(operation, static_cast<unsigned>(length), bound);
        }
        if (outcome.Failed()) return Describe(operation, outcome);
        return Cut(operation, std::move(text), bound);
    }

    std::string MessageInTurn(int code) const {
        // The buffer is far larger than the probe's 200, so that the call does not fail and store
        // a code over the one that is being explained.
        std::string text(kLongestMessage + kMargin, '\0');
        auto length = static_cast<int>(kLongestMessage);
        const Outcome outcome = Call(functions_.GetErrorMsg, code, text.data(), &length);
        text.resize(std::strlen(text.c_str()));
        if (outcome.Failed() || text.empty()) return Say(Sentence::kNoText);
        return text;
    }

    void InitialiseQuietly() const {
        if (__atomic_load_n(functions_.initFlag, __ATOMIC_ACQUIRE)) return;
        const Turn turn(std::chrono::milliseconds(0));
        if (turn.Granted()) static_cast<void>(Call(functions_.Initialize));
    }

    static const char* Raw(const std::string& text) {
        return text.c_str();
    }
    template <class Scalar, std::enable_if_t<std::is_scalar_v<Scalar>, int> = 0>
    static Scalar Raw(Scalar scalar) {
        return scalar;
    }

    static checks::Reason RejectOne(const std::string& text) {
        return checks::Text(text);
    }
    template <class Scalar, std::enable_if_t<std::is_scalar_v<Scalar>, int> = 0>
    static checks::Reason RejectOne(Scalar) {
        return std::nullopt;
    }

    template <class... Arguments>
    static checks::Reason Reject(const Arguments&... arguments) {
        checks::Reason reason;
        static_cast<void>(((reason = RejectOne(arguments)).has_value() || ...));
        return reason;
    }

    template <class Iterator>
    static bool Overrun(Iterator from, Iterator to) {
        return std::any_of(from, to, [](auto byte) { return byte != 0; });
    }

    // The text ends at its NUL. One character more than the bound is the NUL's place.
    static Result<std::string> Cut(const char* operation, std::string text, std::size_t bound) {
        const auto end = text.begin() + static_cast<std::ptrdiff_t>(bound);
        if (Overrun(end, text.end())) return Overwritten(operation, bound);
        text.resize(std::strlen(text.c_str()));
        return text;
    }

    static Failure FalseLength(const char* operation, unsigned length, std::size_t bound) {
        return WrongAnswer(operation, KESTA_BUFFER_TOO_SMALL,
                           Say(length == 0 ? Sentence::kFalseLengthOfSome : Sentence::kFalseLength,
                               {std::to_string(length), std::to_string(bound)}));
    }

    static Failure Overwritten(const char* operation, std::size_t bound) {
        return WrongAnswer(operation, KESTA_BUFFER_TOO_SMALL,
                           Say(Sentence::kOverrun, {std::to_string(bound)}));
    }

    Functions functions_;
    Patience patience_;
};

}  // namespace kesta

#endif

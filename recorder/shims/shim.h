// The stand-in for one function of a recorded library: tells the core that it is called, calls the
// real one, tells how that ended. An exception or a cancellation passes through.
#ifndef KESTA_RECORDER_SHIM_H
#define KESTA_RECORDER_SHIM_H

#include <dlfcn.h>

#include <exception>
#include <type_traits>

#include "boundary_calls.h"
#include "names.h"

namespace kesta {
namespace recorder {

template <typename T>
std::uint64_t RawOf(T& argument) {
    if constexpr (std::is_class_v<T>) {
        return reinterpret_cast<std::uint64_t>(&argument);
    } else if constexpr (std::is_pointer_v<T>) {
        return reinterpret_cast<std::uint64_t>(argument);
    } else {
        return static_cast<std::uint64_t>(static_cast<std::int64_t>(argument));
    }
}

template <typename Result>
constexpr ResultKind KindOf() {
    if (std::is_void_v<Result>) return ResultKind::kNone;
    return std::is_pointer_v<Result> ? ResultKind::kText : ResultKind::kNumber;
}

#ifdef KESTA_REPLAYER
// Replaying, the token libraries are not there: the core answers in their place.
constexpr bool IsAnswered(std::size_t function) {
    return BoundaryOf(function) != Boundary::kExports;
}
#else
constexpr bool IsAnswered(std::size_t) {
    return false;
}
#endif

// The exports' stand-in alone defines it otherwise.
int* LastErrorOf(std::size_t function);

class Passage {
public:
    Passage(std::size_t function, const std::uint64_t* raw, ResultKind kind, int* lastError) {
        span_.live.function = function;
        span_.live.raw = raw;
        span_.live.kind = kind;
        span_.lastError = lastError;
        kesta_boundary_enter(&span_);
    }
    ~Passage() {
        // A cancellation is no exception of the language.
        span_.live.threw = !span_.live.returned && std::uncaught_exceptions() > 0;
        kesta_boundary_leave(&span_);
    }
    Passage(const Passage&) = delete;
    Passage& operator=(const Passage&) = delete;

    template <typename Result>
    Result Answer() {
        kesta_boundary_answer(&span_);
        span_.live.returned = true;
        if constexpr (std::is_pointer_v<Result>) {
            return reinterpret_cast<Result>(span_.live.result);
        } else {
            return static_cast<Result>(span_.live.result);
        }
    }

    bool IsRefused() const { return span_.refused; }
    template <typename Result>
    Result Refusal() {
        __atomic_store_n(span_.lastError, span_.refusal, __ATOMIC_RELAXED);
        if constexpr (!std::is_void_v<Result>) return static_cast<Result>(span_.refusal);
    }

    // References stay what they are.
    template <typename Result, typename... Parameters>
    Result CarryOut(Result (*real)(Parameters...),
                    std::add_lvalue_reference_t<Parameters>... arguments) {
        if constexpr (std::is_void_v<Result>) {
            real(arguments...);
            Returned(0);
        } else {
            Result result = real(arguments...);
            Returned(RawOf(result));
            return result;
        }
    }

private:
    void Returned(std::uint64_t result) {
        span_.live.returned = true;
        span_.live.result = result;
    }

    Span span_;
};

// The function with that number, of a type.
template <std::size_t Number, typename Signature>
struct Stand;

template <std::size_t Number, typename Result, typename... Parameters>
struct Stand<Number, Result(Parameters...)> {
    static_assert(Number < kFunctionCount, "a function without a row");
    static Result (*real)(Parameters...);

    static Result call(Parameters... arguments) {
        const std::uint64_t raw[] = {RawOf(arguments)..., 0};
        Passage passage(Number, raw, KindOf<Result>(), LastErrorOf(Number));
        if constexpr (IsAnswered(Number)) {
            return passage.template Answer<Result>();
        } else {
            if constexpr (BoundaryOf(Number) == Boundary::kExports) {
                if (passage.IsRefused()) {
                    // Threads that still wait are let go.
                    if constexpr (Number == NumberOf(Boundary::kExports, "StopDetectUKey")) real();
                    return passage.template Refusal<Result>();
                }
            }
            return passage.CarryOut(real, arguments...);
        }
    }
};

template <std::size_t Number, typename Result, typename... Parameters>
Result (*Stand<Number, Result(Parameters...)>::real)(Parameters...) = nullptr;

// Finds the real library, which the stand-in's own needs have loaded: stand-in and real library
// have the same names, so the real functions are looked up one by one.
class RealLibrary {
public:
    explicit RealLibrary(Boundary boundary)
        : boundary_(boundary), handle_(dlopen(StandInFor(boundary), RTLD_LAZY | RTLD_NOLOAD)) {}
    ~RealLibrary() {
        kesta_boundary_attach(static_cast<int>(boundary_), handle_);
        if (handle_ != nullptr) dlclose(handle_);
    }
    RealLibrary(const RealLibrary&) = delete;
    RealLibrary& operator=(const RealLibrary&) = delete;

    template <typename Entry>
    void Find(const char* name, Entry*& entry) const {
        if (handle_ != nullptr) entry = reinterpret_cast<Entry*>(dlsym(handle_, name));
    }

private:
    static const char* StandInFor(Boundary boundary) {
        constexpr const char* kNames[kBoundaries] = {kRealLibrary, kRealTokenLibrary,
                                                     kRealEventLibrary};
        return kNames[static_cast<int>(boundary)];
    }

    Boundary boundary_;
    void* handle_;
};

}  // namespace recorder
}  // namespace kesta

#endif

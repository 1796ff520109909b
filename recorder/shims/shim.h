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
std::uint64_t rawOf(T& argument) {
    if constexpr (std::is_class_v<T>) {
        return reinterpret_cast<std::uint64_t>(&argument);
    } else if constexpr (std::is_pointer_v<T>) {
        return reinterpret_cast<std::uint64_t>(argument);
    } else {
        return static_cast<std::uint64_t>(static_cast<std::int64_t>(argument));
    }
}

template <typename Result>
constexpr ResultKind kindOf() {
    if (std::is_void_v<Result>) return ResultKind::kNone;
    return std::is_pointer_v<Result> ? ResultKind::kText : ResultKind::kNumber;
}

#ifdef KESTA_REPLAYER
// Replaying, the token libraries are not there: the core answers in their place.
constexpr bool isAnswered(std::size_t function) {
    return boundaryOf(function) != Boundary::kExports;
}
#else
constexpr bool isAnswered(std::size_t) {
    return false;
}
#endif

// The exports' stand-in alone defines it otherwise.
int* lastErrorOf(std::size_t function);

class Passage {
public:
    Passage(std::size_t function, const std::uint64_t* raw, ResultKind kind, int* lastError) {
        m_span.live.function = function;
        m_span.live.raw = raw;
        m_span.live.kind = kind;
        m_span.lastError = lastError;
        kesta_boundary_enter(&m_span);
    }
    ~Passage() {
        // A cancellation is no exception of the language.
        m_span.live.threw = !m_span.live.returned && std::uncaught_exceptions() > 0;
        kesta_boundary_leave(&m_span);
    }
    Passage(const Passage&) = delete;
    Passage& operator=(const Passage&) = delete;

    template <typename Result>
    Result answer() {
        kesta_boundary_answer(&m_span);
        m_span.live.returned = true;
        if constexpr (std::is_pointer_v<Result>) {
            return reinterpret_cast<Result>(m_span.live.result);
        } else {
            return static_cast<Result>(m_span.live.result);
        }
    }

    // Replaying, after a difference: the function is not called.
    bool isRefused() const { return m_span.refused; }
    template <typename Result>
    Result refusal() {
        __atomic_store_n(m_span.lastError, kReplayDiffers, __ATOMIC_RELAXED);
        if constexpr (!std::is_void_v<Result>) return static_cast<Result>(kReplayDiffers);
    }

    // References stay what they are.
    template <typename Result, typename... Parameters>
    Result carryOut(Result (*real)(Parameters...),
                    std::add_lvalue_reference_t<Parameters>... arguments) {
        if constexpr (std::is_void_v<Result>) {
            real(arguments...);
            returned(0);
        } else {
            Result result = real(arguments...);
            returned(rawOf(result));
            return result;
        }
    }

private:
    void returned(std::uint64_t result) {
        m_span.live.returned = true;
        m_span.live.result = result;
    }

    Span m_span;
};

// The function with that number, of a type.
template <std::size_t Number, typename Signature>
struct Stand;

template <std::size_t Number, typename Result, typename... Parameters>
struct Stand<Number, Result(Parameters...)> {
    static_assert(Number < kFunctionCount, "a function without a row");
    static Result (*real)(Parameters...);

    static Result call(Parameters... arguments) {
        const std::uint64_t raw[] = {rawOf(arguments)..., 0};
        Passage passage(Number, raw, kindOf<Result>(), lastErrorOf(Number));
        if constexpr (isAnswered(Number)) {
            return passage.template answer<Result>();
        } else {
            if constexpr (boundaryOf(Number) == Boundary::kExports) {
                if (passage.isRefused()) return passage.template refusal<Result>();
            }
            return passage.carryOut(real, arguments...);
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
        : m_boundary(boundary), m_handle(dlopen(standInFor(boundary), RTLD_LAZY | RTLD_NOLOAD)) {}
    ~RealLibrary() {
        kesta_boundary_attach(static_cast<int>(m_boundary), m_handle);
        if (m_handle != nullptr) dlclose(m_handle);
    }
    RealLibrary(const RealLibrary&) = delete;
    RealLibrary& operator=(const RealLibrary&) = delete;

    template <typename Entry>
    void find(const char* name, Entry*& entry) const {
        if (m_handle != nullptr) entry = reinterpret_cast<Entry*>(dlsym(m_handle, name));
    }

private:
    static const char* standInFor(Boundary boundary) {
        constexpr const char* kNames[kBoundaries] = {kRealLibrary, kRealTokenLibrary,
                                                     kRealEventLibrary};
        return kNames[static_cast<int>(boundary)];
    }

    Boundary m_boundary;
    void* m_handle;
};

}  // namespace recorder
}  // namespace kesta

#endif

// Holds the rows against the types of the functions. There is nothing here to run.
#include "table.h"

#include <type_traits>

#include "kesta/event_library.h"
#include "kesta/token_library.h"
#include "kesta/ukey/functions.hpp"

namespace kesta {
namespace recorder {
namespace {

template <typename T>
constexpr bool Fits(Shape shape) {
    switch (shape) {
        case Shape::kNumber:
            return std::is_integral_v<T>;
        case Shape::kText:
            return std::is_same_v<T, const char*> || std::is_same_v<T, char*>;
        case Shape::kTextOut:
            return std::is_same_v<T, char*>;
        case Shape::kBytesOut:
            return std::is_same_v<T, void*>;
        case Shape::kOpaque:
            return std::is_same_v<T, void*> || std::is_same_v<T, char*>;
        case Shape::kNewText:
            return std::is_same_v<T, char**>;
        case Shape::kStringObject:
            return std::is_same_v<T, KestaStringObject&>;
        case Shape::kDevice:
            return std::is_same_v<T, _S_DEV_CONFIG*>;
        case Shape::kEvent:
            return std::is_same_v<T, VALTO_EVENT_INFO*>;
        case Shape::kRequest:
            return std::is_same_v<T, KestaRequestRecord*>;
        default:
            return std::is_same_v<T, std::uint32_t*> || std::is_same_v<T, std::int32_t*>;
    }
}

template <typename Signature>
struct Check;

template <typename Result, typename... Arguments>
struct Check<Result(Arguments...)> {
    static constexpr bool Every(const Row& row) {
        std::size_t at = 0;
        // false at the end serves functions without parameters.
        const bool fit[] = {Fits<Arguments>(row.parameters[at++].shape)..., true};
        for (const bool one : fit) {
            if (!one) return false;
        }
        for (std::size_t i = 0; i < sizeof...(Arguments); ++i) {
            if (row.parameters[i].visibility == Class::kNone) return false;
        }
        return true;
    }
    static constexpr bool complete(std::size_t number) {
        return number < kFunctionCount && CountOf(RowOf(number)) == sizeof...(Arguments) &&
               Every(RowOf(number));
    }
};

#define KESTA_CHECK_EXPORT(name)                                                          \
    static_assert(Check<decltype(::name)>::complete(NumberOf(Boundary::kExports, #name)), \
                  "the row of the export " #name                                          \
                  " is missing or lacks a parameter, a class or a fit");
KESTA_UKEY_FUNCTIONS(KESTA_CHECK_EXPORT)

#define KESTA_CHECK_TOKEN(result, name, arguments)                                 \
    static_assert(Check<token::name>::complete(NumberOf(Boundary::kToken, #name)), \
                  "the row of the entry point " #name                              \
                  " is missing or lacks a parameter, a class or a fit");
KESTA_TOKEN_ENTRY_POINTS(KESTA_CHECK_TOKEN)

#define KESTA_CHECK_EVENT(result, name, arguments)                                  \
    static_assert(Check<event::name>::complete(NumberOf(Boundary::kEvents, #name)), \
                  "the row of the entry point " #name                               \
                  " is missing or lacks a parameter, a class or a fit");
KESTA_EVENT_ENTRY_POINTS(KESTA_CHECK_EVENT)

#define KESTA_COUNT(...) +1
static_assert(kFunctionCount == 0 KESTA_UKEY_FUNCTIONS(KESTA_COUNT)
                                    KESTA_TOKEN_ENTRY_POINTS(KESTA_COUNT)
                                        KESTA_EVENT_ENTRY_POINTS(KESTA_COUNT),
              "a row for each function and no other");

}  // namespace
}  // namespace recorder
}  // namespace kesta

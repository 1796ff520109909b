// JSON, as the commands print it. The work is done by nlohmann-json, which only the kit sees.
#ifndef KIT_JSON_H
#define KIT_JSON_H

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

namespace kit {

// A value; members of an object keep their order.
class Json {
public:
    using Member = std::pair<std::string, Json>;

    Json() = default;  // null
    Json(std::nullptr_t) {}
    Json(const char* text) : value_(std::string(text)) {}
    Json(std::string text) : value_(std::move(text)) {}
    Json(const std::vector<std::string>& texts);
    Json(std::initializer_list<Member> members) : value_(Members(members)) {}
    template <class T, std::enable_if_t<std::is_arithmetic_v<T>, int> = 0>
    Json(T number) {
        if constexpr (std::is_same_v<T, bool>) {
            value_ = number;
        } else if constexpr (std::is_floating_point_v<T>) {
            value_ = double{number};
        } else if constexpr (std::is_signed_v<T>) {
            value_ = static_cast<std::int64_t>(number);
        } else {
            value_ = static_cast<std::uint64_t>(number);
        }
    }

    static Json array() { return Json(Kind(Items())); }
    static Json object() { return Json(Kind(Members())); }
    // Nothing where the text is not JSON, or nested more than a hundred deep.
    static std::optional<Json> Parse(std::string_view text);

    // The member of that name, which is added when it is not there; null becomes an object.
    Json& operator[](std::string_view name);
    void push_back(Json item);  // null becomes an array
    void update(const Json& members);
    bool empty() const { return size() == 0; }
    std::size_t size() const;  // of an array or an object
    const Json* Find(std::string_view name) const;

    // On one line, in UTF-8 whatever the person's charset. Bytes that are neither are replaced,
    // control characters escaped.
    std::string Text() const;

private:
    using Items = std::vector<Json>;
    using Members = std::vector<Member>;
    // Not std::monostate: of a variant whose alternatives are all trivial, texts or lists the
    // runtime thinks that it always holds one, and destroys what a copy that ran out of memory
    // never made.
    struct Null {
        Null() noexcept {}
        Null(const Null&) noexcept {}
        Null& operator=(const Null&) noexcept { return *this; }
    };
    using Kind =
        std::variant<Null, bool, std::int64_t, std::uint64_t, double, std::string, Items, Members>;

    friend struct JsonForms;
    explicit Json(Kind value) : value_(std::move(value)) {}

    Kind value_;
};

}  // namespace kit

#endif

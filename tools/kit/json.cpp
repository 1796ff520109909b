#include "kit/json.h"

#include <nlohmann/json.hpp>

#include "kit/language.h"

namespace kit {

using Form = nlohmann::ordered_json;

// nlohmann-json takes memory to destroy what is not empty, and ends the process when there is none:
// this empties it from within, leaf by leaf.
class Emptied {
public:
    explicit Emptied(Form& form) : form_(form) {}
    ~Emptied() { Empty(form_); }
    Emptied(const Emptied&) = delete;
    Emptied& operator=(const Emptied&) = delete;

private:
    static void Empty(Form& form) {
        if (!form.is_structured()) return;
        for (Form& child : form) Empty(child);
        form.clear();
    }
    Form& form_;
};

// Between our values and those of nlohmann-json.
struct JsonForms {
    static Form To(const Json& json) {
        return std::visit([](const auto& value) { return Made(value); }, json.value_);
    }

    static Json From(const Form& form) {
        switch (form.type()) {
            case Form::value_t::boolean:
                return form.get<bool>();
            case Form::value_t::number_integer:
                return form.get<std::int64_t>();
            case Form::value_t::number_unsigned:
                return form.get<std::uint64_t>();
            case Form::value_t::number_float:
                return form.get<double>();
            case Form::value_t::string:
                return form.get<std::string>();
            case Form::value_t::array: {
                Json array = Json::array();
                for (const Form& item : form) array.push_back(From(item));
                return array;
            }
            case Form::value_t::object: {
                Json object = Json::object();
                for (const auto& item : form.items()) object[item.key()] = From(item.value());
                return object;
            }
            default:
                return {};
        }
    }

private:
    static Form Made(Json::Null) { return nullptr; }
    static Form Made(const Json::Items& items) {
        Form array = Form::array();
        for (const Json& item : items) array.push_back(To(item));
        return array;
    }
    static Form Made(const Json::Members& members) {
        Form object = Form::object();
        for (const auto& [name, value] : members) object[name] = To(value);
        return object;
    }
    static Form Made(const std::string& text) { return ToUtf8(text); }
    template <class T>
    static Form Made(const T& value) {
        return value;
    }
};

namespace {

// nlohmann-json leaves DEL and the second set of control characters as they are; a terminal obeys
// them. They can only stand within strings.
std::string Escaped(const std::string& text) {
    std::string safe;
    safe.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        const unsigned byte = static_cast<unsigned char>(text[i]);
        const unsigned next = i + 1 < text.size() ? static_cast<unsigned char>(text[i + 1]) : 0;
        const bool second = byte == 0xC2 && next >= 0x80 && next < 0xA0;
        if (byte != 0x7F && !second) {
            safe += text[i];
            continue;
        }
        const unsigned point = second ? next : byte;
        safe += "\\u00";
        safe += "0123456789abcdef"[point >> 4U];
        safe += "0123456789abcdef"[point & 0xFU];
        i += second ? 1 : 0;
    }
    return safe;
}

}  // namespace

Json::Json(const std::vector<std::string>& texts) : value_(Items(texts.begin(), texts.end())) {}

std::optional<Json> Json::Parse(std::string_view text) {
    constexpr int kDeepest = 100;  // what follows a value goes as deep as the value
    bool tooDeep = false;
    const auto follow = [&tooDeep](int depth, Form::parse_event_t, const Form&) {
        tooDeep = tooDeep || depth > kDeepest;
        return !tooDeep;
    };
    const Form form = Form::parse(text, follow, false);
    if (tooDeep || form.is_discarded()) return std::nullopt;
    return JsonForms::From(form);
}

Json& Json::operator[](std::string_view name) {
    if (std::holds_alternative<Null>(value_)) value_ = Members();
    auto& members = std::get<Members>(value_);
    for (auto& [known, value] : members) {
        if (known == name) return value;
    }
    return members.emplace_back(std::string(name), Json()).second;
}

void Json::push_back(Json item) {
    if (std::holds_alternative<Null>(value_)) value_ = Items();
    std::get<Items>(value_).push_back(std::move(item));
}

void Json::update(const Json& members) {
    for (const auto& [name, value] : std::get<Members>(members.value_)) (*this)[name] = value;
}

std::size_t Json::size() const {
    if (const auto* items = std::get_if<Items>(&value_)) return items->size();
    if (const auto* members = std::get_if<Members>(&value_)) return members->size();
    return 0;
}

const Json* Json::Find(std::string_view name) const {
    if (const auto* members = std::get_if<Members>(&value_)) {
        for (const auto& [known, value] : *members) {
            if (known == name) return &value;
        }
    }
    return nullptr;
}

std::string Json::Text() const {
    Form form = JsonForms::To(*this);
    const Emptied emptied(form);
    return Escaped(form.dump(-1, ' ', false, Form::error_handler_t::replace));
}

}  // namespace kit

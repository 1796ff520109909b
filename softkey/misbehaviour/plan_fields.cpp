#include "softkey/misbehaviour/plan_fields.h"

#include <algorithm>
#include <utility>

#include "softkey/codes.h"
#include "softkey/misbehaviour/misbehaviour_plan.h"
#include "softkey/sentence.h"

namespace softkey {
namespace {

struct NamedCode {
    const char* name;
    std::int32_t value;
};

constexpr NamedCode kNamedCodes[] = {
#define SOFTKEY_NAMED(name, value, english, chinese) {#name, value},
    SOFTKEY_CODES(SOFTKEY_NAMED)
#undef SOFTKEY_NAMED
};

std::optional<std::int32_t> CodeFromText(const std::string& text) {
    for (const NamedCode& code : kNamedCodes) {
        if (text == std::string(code.name).substr(1)) return code.value;
    }
    const bool hexadecimal = text.size() > 2 && text.size() <= 10 &&
                             text.compare(0, 2, "0x") == 0 &&
                             text.find_first_not_of("0123456789abcdefABCDEF", 2) == text.npos;
    if (!hexadecimal) return std::nullopt;
    return static_cast<std::int32_t>(std::stoul(text, nullptr, 16));
}

// Follows the parser through the text, to name the place where it stops.
class Place {
public:
    void Follow(PlanJson::parse_event_t event, const PlanJson& parsed) {
        using Event = PlanJson::parse_event_t;
        if (event == Event::key) levels_.back().key = parsed.get<std::string>();
        if (event == Event::object_start || event == Event::array_start) {
            if (levels_.size() == kDeepest) RejectField(Name(), "is nested too deeply");
            levels_.push_back({event == Event::array_start, 0, {}});
        }
        if (event == Event::object_end || event == Event::array_end) levels_.pop_back();
        const bool ended =
            event == Event::object_end || event == Event::array_end || event == Event::value;
        if (ended && !levels_.empty()) ++levels_.back().index;
    }

    std::string Name() const {
        std::string name;
        for (const Level& level : levels_) {
            if (level.list) {
                name += "[" + std::to_string(level.index) + "]";
            } else if (!level.key.empty()) {
                name += (name.empty() ? "" : ".") + level.key;
            }
        }
        return name.empty() ? "plan" : name;
    }

private:
    struct Level {
        bool list;
        std::size_t index;
        std::string key;
    };
    static constexpr std::size_t kDeepest = 8;
    std::vector<Level> levels_;
};

std::optional<std::uint64_t> WholeNumber(const PlanJson& value, std::uint64_t least,
                                         std::uint64_t most) {
    if (!value.is_number_unsigned()) return std::nullopt;
    const auto number = value.get<std::uint64_t>();
    return number < least || number > most ? std::nullopt : std::optional<std::uint64_t>(number);
}

}  // namespace

void RejectField(const std::string& field, const std::string& reason) {
    throw PlanError(Sentence("{1}: {2}", {field, reason}));
}

void RejectField(const std::string& field, const char* reason) {
    RejectField(field, Sentence(reason));
}

std::string Listed(const std::vector<std::string>& names, const char* last) {
    std::string text;
    for (std::size_t i = 0; i < names.size(); ++i) {
        if (i > 0) text += i + 1 < names.size() ? ", " : last;
        text += names[i];
    }
    return text;
}

PlanJson ReadPlanJson(const std::string& text) {
    Place place;
    try {
        return PlanJson::parse(text, [&place](int, PlanJson::parse_event_t event, PlanJson& value) {
            place.Follow(event, value);
            return true;
        });
    } catch (const PlanJson::parse_error& error) {
        throw PlanError(
            Sentence("the plan is not JSON, at byte {1}", {std::to_string(error.byte)}));
    } catch (const PlanJson::exception&) {
        RejectField(place.Name(), "is a number beyond what a number can hold");
    }
}

PlanFields::PlanFields(const PlanJson& object, std::string path)
    : object_(object), path_(std::move(path)) {
    if (!object_.is_object()) RejectField(path_.empty() ? "plan" : path_, "must be an object");
}

std::string PlanFields::Name(const std::string& field) const {
    return path_.empty() ? field : path_ + "." + field;
}

void PlanFields::AllowOnly(const std::vector<std::string>& names) const {
    for (const auto& item : object_.items()) {
        if (std::find(names.begin(), names.end(), item.key()) != names.end()) continue;
        RejectField(Name(item.key()),
                    Sentence("no such field; known are {1}", {Listed(names, ", ")}));
    }
}

std::optional<std::uint64_t> PlanFields::Number(const char* field, std::uint64_t least,
                                                std::uint64_t most) const {
    if (!Has(field)) return std::nullopt;
    const auto number = WholeNumber(Value(field), least, most);
    if (!number) {
        RejectField(Name(field),
                    Sentence("must be a whole number from {1} to {2}, not {3}",
                             {std::to_string(least), std::to_string(most), Value(field).dump()}));
    }
    return number;
}

void PlanFields::True(const char* field) const {
    if (Value(field) != true) RejectField(Name(field), "must be true where it stands");
}

std::optional<std::string> PlanFields::Text(const char* field) const {
    if (!Has(field)) return std::nullopt;
    const PlanJson& value = Value(field);
    if (!value.is_string() || value.get<std::string>().empty()) {
        RejectField(Name(field), Sentence("must be a text, not {1}", {value.dump()}));
    }
    return value.get<std::string>();
}

std::size_t PlanFields::Choice(const char* field, const std::vector<std::string>& choices) const {
    const PlanJson& value = Value(field);
    const auto found = std::find(choices.begin(), choices.end(), value);
    if (found != choices.end()) return static_cast<std::size_t>(found - choices.begin());
    std::vector<std::string> quoted;
    for (const std::string& choice : choices) quoted.push_back("\"" + choice + "\"");
    RejectField(Name(field), Sentence("must be {1}, not {2}",
                                      {Listed(quoted, translate(" or ")), value.dump()}));
}

std::int32_t PlanFields::Code(const char* field) const {
    const PlanJson& value = Value(field);
    std::optional<std::int32_t> code;
    if (value.is_string()) code = CodeFromText(value.get<std::string>());
    if (value.is_number_integer()) {
        const bool fits = value.is_number_unsigned() ? value.get<std::uint64_t>() <= INT32_MAX
                                                     : value.get<std::int64_t>() >= INT32_MIN;
        if (fits) code = value.get<std::int32_t>();
    }
    if (!code) {
        RejectField(Name(field),
                    Sentence("must be a signed 32-bit number, a text such as \"0x5B12\", or the "
                             "name of a code such as \"KeyRemoved\", not {1}",
                             {value.dump()}));
    }
    return *code;
}

std::vector<std::uint32_t> PlanFields::Numbers(const char* field) const {
    std::vector<std::uint32_t> numbers;
    if (!Has(field)) return numbers;
    const PlanJson& list = Value(field);
    if (!list.is_array() || list.empty()) {
        RejectField(Name(field), "must be a list of at least one number");
    }
    for (std::size_t i = 0; i < list.size(); ++i) {
        const auto number = WholeNumber(list[i], 0, UINT32_MAX);
        if (!number) {
            RejectField(Name(field) + "[" + std::to_string(i) + "]",
                        Sentence("must be a whole number from {1} to {2}, not {3}",
                                 {"0", "4294967295", list[i].dump()}));
        }
        numbers.push_back(static_cast<std::uint32_t>(*number));
    }
    return numbers;
}

}  // namespace softkey

// Reading the JSON of a plan, so that whatever is wrong is told under the name of its field.
#ifndef SOFTKEY_MISBEHAVIOUR_PLAN_FIELDS_H
#define SOFTKEY_MISBEHAVIOUR_PLAN_FIELDS_H

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace softkey {

using PlanJson = nlohmann::json;

// Throws PlanError, as all that follows does.
PlanJson ReadPlanJson(const std::string& text);

// Empties a document from within, leaf by leaf, when this ends: nlohmann-json takes memory to
// destroy what is not empty, and ends the process when there is none.
class Emptied {
public:
    explicit Emptied(PlanJson& json) : json_(json) {}
    ~Emptied() { Empty(json_); }
    Emptied(const Emptied&) = delete;
    Emptied& operator=(const Emptied&) = delete;

private:
    static void Empty(PlanJson& json) {
        if (!json.is_structured()) return;
        for (PlanJson& child : json) Empty(child);
        json.clear();
    }
    PlanJson& json_;
};

[[noreturn]] void RejectField(const std::string& field, const std::string& reason);
[[noreturn]] void RejectField(const std::string& field, const char* reason);  // to be translated

// "a, b and c"
std::string Listed(const std::vector<std::string>& names, const char* last);

// One object of the plan, under the name that error texts give it.
class PlanFields {
public:
    PlanFields(const PlanJson& object, std::string path);

    const std::string& path() const { return path_; }
    std::string Name(const std::string& field) const;
    bool Has(const char* field) const { return object_.contains(field); }
    const PlanJson& Value(const char* field) const { return object_.at(field); }
    PlanFields Object(const char* field) const { return {Value(field), Name(field)}; }
    void AllowOnly(const std::vector<std::string>& names) const;

    // What is not there is nothing, but for a choice and a code, which must be there.
    std::optional<std::uint64_t> Number(const char* field, std::uint64_t least,
                                        std::uint64_t most) const;
    void True(const char* field) const;
    std::optional<std::string> Text(const char* field) const;  // of at least one character
    std::size_t Choice(const char* field, const std::vector<std::string>& choices) const;
    // A number, a text such as "0x5B12", or the name of one of the software key's codes.
    std::int32_t Code(const char* field) const;
    std::vector<std::uint32_t> Numbers(const char* field) const;

private:
    const PlanJson& object_;
    std::string path_;
};

}  // namespace softkey

#endif

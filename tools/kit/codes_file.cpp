#include "kit/codes_file.h"

#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <nlohmann/json.hpp>

#include "kit/errors.h"
#include "kit/files.h"
#include "kit/text.h"

namespace kit {
namespace {

constexpr const char* kSystemFile = "/etc/kesta/codes.json";

using Value = nlohmann::json;

// What a slip is told by; the caller adds the file's name.
struct Slip {
    Value field;
};

// A number, or a text in decimal or hexadecimal. From 2^31 on: the negative number of those bits.
int CodeOf(const Value& value, const Value& row) {
    std::int64_t number = 0;
    if (value.is_number_integer()) {
        number = value.get<std::int64_t>();
    } else if (value.is_string()) {
        const auto& text = value.get_ref<const std::string&>();
        char* end = nullptr;
        errno = 0;
        number = std::strtoll(text.c_str(), &end, 0);
        if (text.empty() || *end != '\0' || errno != 0) throw Slip{row};
    } else {
        throw Slip{row};
    }
    if (number < INT32_MIN || number > UINT32_MAX) throw Slip{row};
    return static_cast<int>(static_cast<std::uint32_t>(number));
}

bool Holds(const Value& object, std::initializer_list<const char*> fields) {
    if (!object.is_object() || object.size() != fields.size()) return false;
    for (const char* const field : fields) {
        if (!object.contains(field)) return false;
    }
    return true;
}

void AddRow(kesta::CodeTable& table, const Value& row) {
    const bool one = Holds(row, {"code", "kind"});
    if (!one && !Holds(row, {"first", "last", "kind"})) throw Slip{row};
    const int first = CodeOf(row[one ? "code" : "first"], row);
    const int last = CodeOf(row[one ? "code" : "last"], row);
    const auto kind = row["kind"].is_string()
                          ? kesta::KindNamed(row["kind"].get_ref<const std::string&>())
                          : std::nullopt;
    if (!kind || first > last) throw Slip{row};
    table.Add(first, last, *kind);
}

kesta::PinRecord RecordOf(const Value& record) {
    if (!Holds(record, {"length", "triesLeft", "triesMost", "locked"})) throw Slip{record};
    for (const Value& place : record) {
        if (!place.is_number_unsigned()) throw Slip{record};
    }
    return {record["length"].get<std::size_t>(), record["triesLeft"].get<std::size_t>(),
            record["triesMost"].get<std::size_t>(), record["locked"].get<std::size_t>()};
}

kesta::CodeTable TableOf(const Value& contents) {
    if (!contents.is_object()) throw Slip{contents};
    kesta::CodeTable table;
    for (const auto& [name, value] : contents.items()) {
        if (name == "codes" && value.is_array()) {
            for (const Value& row : value) AddRow(table, row);
        } else if (name == "pinRecord") {
            table.pinRecord = RecordOf(value);
        } else {
            throw Slip{name};
        }
    }
    return table;
}

}  // namespace

kesta::CodeTable ReadCodes(const std::string& path) {
    try {
        return TableOf(Value::parse(ReadInput(path)));
    } catch (const Value::exception& error) {
        throw FileError(Fill(_("{1}: {2}"), {path, error.what()}), 0);
    } catch (const Slip& slip) {
        throw FileError(
            Fill(_("{1}: {2}"),
                 {path,
                  kesta::Say(kesta::Sentence::kCodesField,
                             {slip.field.dump(-1, ' ', false, Value::error_handler_t::replace)})}),
            0);
    }
}

void UseCodes(const std::string& path) {
    if (!path.empty()) {
        kesta::CodeTable::Use(ReadCodes(path));
    } else if (::access(kSystemFile, F_OK) == 0) {
        kesta::CodeTable::Use(ReadCodes(kSystemFile));
    }
}

}  // namespace kit

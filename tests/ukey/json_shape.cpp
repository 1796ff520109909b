// json_shape SHAPE: reads one JSON value from standard input and says where it departs from SHAPE.
//
// A shape is JSON too: {"name": SHAPE, "optional?": SHAPE}, [SHAPE] for an array of any length of
// such values, and the words "string", "text" (a string that is not empty), "number", "boolean",
// "true", "false", "any". Every member that a shape does not name is an error.
#include <iostream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace {

using Json = nlohmann::ordered_json;

class Shape {
public:
    void Compare(const Json& shape, const Json& value, const std::string& at) {
        if (shape.is_object()) return CompareObject(shape, value, at);
        if (shape.is_array()) return CompareArray(shape, value, at);
        const std::string word = shape.get<std::string>();
        if (!Fits(word, value)) errors.push_back(at + " is not " + word + ": " + value.dump());
    }

    std::vector<std::string> errors;

private:
    static bool Fits(const std::string& word, const Json& value) {
        if (word == "any") return true;
        if (word == "string") return value.is_string();
        if (word == "text") return value.is_string() && !value.get<std::string>().empty();
        if (word == "number") return value.is_number();
        if (word == "boolean") return value.is_boolean();
        if (word == "true" || word == "false") {
            return value.is_boolean() && value.get<bool>() == (word == "true");
        }
        throw std::invalid_argument("no shape is called " + word);
    }

    void CompareObject(const Json& shape, const Json& value, const std::string& at) {
        if (!value.is_object()) {
            errors.push_back(at + " is no object");
            return;
        }
        for (const auto& [key, expected] : shape.items()) {
            const bool optional = key.back() == '?';
            const std::string name = optional ? key.substr(0, key.size() - 1) : key;
            if (value.contains(name)) {
                Compare(expected, value[name], at + "." + name);
            } else if (!optional) {
                errors.push_back(at + " has no member " + name);
            }
        }
        for (const auto& item : value.items()) {
            if (!shape.contains(item.key()) && !shape.contains(item.key() + "?")) {
                errors.push_back(at + " has a member too much: " + item.key());
            }
        }
    }

    void CompareArray(const Json& shape, const Json& value, const std::string& at) {
        if (!value.is_array()) {
            errors.push_back(at + " is no array");
            return;
        }
        for (std::size_t i = 0; i < value.size(); ++i) {
            Compare(shape.at(0), value[i], at + "[" + std::to_string(i) + "]");
        }
    }
};

}  // namespace

int main(int count, char** arguments) {
    if (count != 2) {
        std::cerr << "usage: json_shape SHAPE < JSON\n";
        return 2;
    }
    try {
        Shape shape;
        shape.Compare(Json::parse(arguments[1]), Json::parse(std::cin), "$");
        for (const std::string& error : shape.errors) std::cerr << "json_shape: " << error << '\n';
        return shape.errors.empty() ? 0 : 1;
    } catch (const std::exception& error) {
        std::cerr << "json_shape: " << error.what() << '\n';
        return 1;
    }
}

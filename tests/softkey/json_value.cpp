// json_value POINTER: reads one JSON text from the standard input and prints the value there:
// texts as they are, everything else as JSON. Exit code 1: not JSON, or nothing at that place.
#include <exception>
#include <iostream>
#include <nlohmann/json.hpp>

int main(int count, char** arguments) {
    try {
        const auto json = nlohmann::json::parse(std::cin);
        const auto& value = json.at(nlohmann::json::json_pointer(count > 1 ? arguments[1] : ""));
        std::cout << (value.is_string() ? value.get<std::string>() : value.dump()) << '\n';
        return 0;
    } catch (const std::exception& error) {
        std::cerr << "json_value: " << error.what() << '\n';
        return 1;
    }
}

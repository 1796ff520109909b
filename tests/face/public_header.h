// The functions that the public header declares, read from its text: what a table of tests must be
// complete against.
#ifndef FACE_PUBLIC_HEADER_H
#define FACE_PUBLIC_HEADER_H

#include <cstddef>
#include <fstream>
#include <iterator>
#include <regex>
#include <set>
#include <stdexcept>
#include <string>

// Their names. With parameters that match the expression, where one is given.
inline std::set<std::string> DeclaredFunctions(const std::string& parameters = "") {
    std::ifstream file(PUBLIC_HEADER);
    const std::string text(std::istreambuf_iterator<char>(file), {});
    const std::regex declaration(R"(\nKESTA_API \w+ (\w+)\(([^)]*)\);)");
    const std::regex wanted(parameters);
    std::set<std::string> names;
    for (std::sregex_iterator found(text.begin(), text.end(), declaration), end; found != end;
         ++found) {
        if (std::regex_search((*found)[2].str(), wanted)) names.insert((*found)[1].str());
    }
    if (names.empty()) throw std::runtime_error("no function was found in " PUBLIC_HEADER);
    return names;
}

// The names of a table's entries.
template <class Table>
std::set<std::string> NamesOf(const Table& table) {
    std::set<std::string> names;
    for (const auto& entry : table) names.insert(entry.name);
    return names;
}

#endif

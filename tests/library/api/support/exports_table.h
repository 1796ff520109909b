// The table of the exports in the documentation, and how its cells are read.
#ifndef KESTA_API_EXPORTS_TABLE_H
#define KESTA_API_EXPORTS_TABLE_H

#include <map>
#include <string>
#include <vector>

struct TableRow {
    std::string name;
    std::string probe;        // written to the length for a null buffer
    std::string success;      // written to the length with a buffer
    std::string tooSmall;     // written to the length with -404
    std::string equalLength;  // whether a capacity equal to the length is accepted
    std::string codes;
    std::string log;
    std::string initialises;
    std::string clears;
};

// Throws std::runtime_error when the table is not there or a row has not nine cells.
std::vector<TableRow> ReadExportsTable();

using Values = std::map<std::string, unsigned>;

// The value of a cell such as "2 × (data + 4096)". Throws std::runtime_error for what it cannot
// read.
unsigned Evaluate(const std::string& cell, const Values& values);

// The words between the commas of a cell; none for "-" and "none".
std::vector<std::string> WordsOf(const std::string& cell);

#endif

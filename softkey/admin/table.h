// Columns of text, aligned for a terminal.
#ifndef SOFTKEY_ADMIN_TABLE_H
#define SOFTKEY_ADMIN_TABLE_H

#include <cstddef>
#include <string>
#include <vector>

namespace softkey::admin {

// The columns that a UTF-8 text takes on a terminal; Chinese characters take two.
std::size_t Columns(const std::string& text);

class Table {
public:
    void Row(std::vector<std::string> cells) { rows_.push_back(std::move(cells)); }
    // Two blanks between columns, none at the end of a line.
    std::string Text(const std::string& indent = {}) const;

private:
    std::vector<std::vector<std::string>> rows_;
};

}  // namespace softkey::admin

#endif

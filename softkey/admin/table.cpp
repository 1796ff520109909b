#include "softkey/admin/table.h"

#include <algorithm>

namespace softkey::admin {

std::size_t Columns(const std::string& text) {
    std::size_t columns = 0;
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        if ((byte & 0xC0) == 0x80) continue;  // within a character
        // From U+3000 on, where the characters of East Asia begin.
        columns += byte >= 0xE3 ? 2 : 1;
    }
    return columns;
}

std::string Table::Text(const std::string& indent) const {
    std::vector<std::size_t> widths;
    for (const auto& row : rows_) {
        widths.resize(std::max(widths.size(), row.size()), 0);
        for (std::size_t i = 0; i < row.size(); ++i) {
            widths[i] = std::max(widths[i], Columns(row[i]));
        }
    }
    std::string text;
    for (const auto& row : rows_) {
        std::string line = indent;
        for (std::size_t i = 0; i < row.size(); ++i) {
            line += row[i] + std::string(widths[i] - Columns(row[i]) + 2, ' ');
        }
        line.erase(line.find_last_not_of(' ') + 1);
        text += line + '\n';
    }
    return text;
}

}  // namespace softkey::admin

#include "exports_table.h"

#include <cctype>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace {

std::string trimmed(const std::string& text) {
    const std::size_t first = text.find_first_not_of(" \t`");
    if (first == std::string::npos) return "";
    return text.substr(first, text.find_last_not_of(" \t`") - first + 1);
}

TableRow row_of(const std::string& line) {
    std::istringstream stream(line.substr(1));
    std::vector<std::string> cells;
    for (std::string cell; std::getline(stream, cell, '|');) cells.push_back(trimmed(cell));
    if (cells.size() != 9) throw std::runtime_error("not nine cells: " + line);
    return {cells[0], cells[1], cells[2], cells[3], cells[4],
            cells[5], cells[6], cells[7], cells[8]};
}

// sum = product { "+" product }, product = factor { "×" factor }
class Expression {
public:
    Expression(std::string text, const Values& values) : text_(std::move(text)), values_(values) {}

    unsigned value() {
        const unsigned result = sum();
        if (at_ != text_.size()) fail();
        return result;
    }

private:
    bool take(const std::string& token) {
        while (at_ < text_.size() && text_[at_] == ' ') ++at_;
        if (text_.compare(at_, token.size(), token) != 0) return false;
        at_ += token.size();
        return true;
    }
    unsigned sum() {
        unsigned result = product();
        while (take("+")) result += product();
        return result;
    }
    unsigned product() {
        unsigned result = factor();
        while (take("\xC3\x97")) result *= factor();
        return result;
    }
    unsigned factor() {
        if (take("(")) {
            const unsigned result = sum();
            if (!take(")")) fail();
            return result;
        }
        return word();
    }
    unsigned word() {
        take(" ");
        std::string found;
        while (at_ < text_.size() && std::isalnum(static_cast<unsigned char>(text_[at_]))) {
            found += text_[at_++];
        }
        if (found.empty()) fail();
        if (std::isdigit(static_cast<unsigned char>(found[0]))) {
            return static_cast<unsigned>(std::stoul(found));
        }
        const auto value = values_.find(found);
        if (value == values_.end()) fail();
        return value->second;
    }
    [[noreturn]] void fail() const {
        throw std::runtime_error("the table's cell '" + text_ + "' cannot be read");
    }

    std::string text_;
    const Values& values_;
    std::size_t at_ = 0;
};

}  // namespace

std::vector<TableRow> read_exports_table() {
    std::ifstream file(KESTA_EXPORTS_TABLE);
    std::vector<TableRow> rows;
    bool in_table = false;
    for (std::string line; std::getline(file, line);) {
        if (line.rfind("| Export |", 0) == 0) in_table = true;
        if (in_table && line.rfind("| `", 0) == 0) rows.push_back(row_of(line));
        if (line.empty()) in_table = false;
    }
    if (rows.empty()) throw std::runtime_error(KESTA_EXPORTS_TABLE " holds no table of exports");
    return rows;
}

unsigned evaluate(const std::string& cell, const Values& values) {
    return Expression(cell, values).value();
}

std::vector<std::string> words_of(const std::string& cell) {
    std::vector<std::string> words;
    if (cell == "-" || cell == "none") return words;
    std::istringstream stream(cell);
    for (std::string word; std::getline(stream, word, ',');) words.push_back(trimmed(word));
    return words;
}

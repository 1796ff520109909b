#include "exports_table.h"

#include <cctype>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace {

std::string Trimmed(const std::string& text) {
    const std::size_t first = text.find_first_not_of(" \t`");
    if (first == std::string::npos) return "";
    return text.substr(first, text.find_last_not_of(" \t`") - first + 1);
}

TableRow RowOf(const std::string& line) {
    std::istringstream stream(line.substr(1));
    std::vector<std::string> cells;
    for (std::string cell; std::getline(stream, cell, '|');) cells.push_back(Trimmed(cell));
    if (cells.size() != 9) throw std::runtime_error("not nine cells: " + line);
    return {cells[0], cells[1], cells[2], cells[3], cells[4],
            cells[5], cells[6], cells[7], cells[8]};
}

// sum = product { "+" product }, product = factor { "×" factor }
class Expression {
public:
    Expression(std::string text, const Values& values) : text_(std::move(text)), values_(values) {}

    unsigned Value() {
        const unsigned result = Sum();
        if (at_ != text_.size()) Fail();
        return result;
    }

private:
    bool Take(const std::string& token) {
        while (at_ < text_.size() && text_[at_] == ' ') ++at_;
        if (text_.compare(at_, token.size(), token) != 0) return false;
        at_ += token.size();
        return true;
    }
    unsigned Sum() {
        unsigned result = Product();
        while (Take("+")) result += Product();
        return result;
    }
    unsigned Product() {
        unsigned result = Factor();
        while (Take("\xC3\x97")) result *= Factor();
        return result;
    }
    unsigned Factor() {
        if (Take("(")) {
            const unsigned result = Sum();
            if (!Take(")")) Fail();
            return result;
        }
        return Word();
    }
    unsigned Word() {
        Take(" ");
        std::string found;
        while (at_ < text_.size() && std::isalnum(static_cast<unsigned char>(text_[at_]))) {
            found += text_[at_++];
        }
        if (found.empty()) Fail();
        if (std::isdigit(static_cast<unsigned char>(found[0]))) {
            return static_cast<unsigned>(std::stoul(found));
        }
        const auto value = values_.find(found);
        if (value == values_.end()) Fail();
        return value->second;
    }
    [[noreturn]] void Fail() const {
        throw std::runtime_error("the table's cell '" + text_ + "' cannot be read");
    }

    std::string text_;
    const Values& values_;
    std::size_t at_ = 0;
};

}  // namespace

std::vector<TableRow> ReadExportsTable() {
    std::ifstream file(KESTA_EXPORTS_TABLE);
    std::vector<TableRow> rows;
    bool inTable = false;
    for (std::string line; std::getline(file, line);) {
        if (line.rfind("| Export |", 0) == 0) inTable = true;
        if (inTable && line.rfind("| `", 0) == 0) rows.push_back(RowOf(line));
        if (line.empty()) inTable = false;
    }
    if (rows.empty()) throw std::runtime_error(KESTA_EXPORTS_TABLE " holds no table of exports");
    return rows;
}

unsigned Evaluate(const std::string& cell, const Values& values) {
    return Expression(cell, values).Value();
}

std::vector<std::string> WordsOf(const std::string& cell) {
    std::vector<std::string> words;
    if (cell == "-" || cell == "none") return words;
    std::istringstream stream(cell);
    for (std::string word; std::getline(stream, word, ',');) words.push_back(Trimmed(word));
    return words;
}

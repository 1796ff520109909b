#include "log/reader.h"

#include <cctype>
#include <limits>

namespace ukey {
namespace {

// LogHex writes microseconds without leading zeros, and only under this tag; everything else has
// three digits of milliseconds.
constexpr std::string_view kHexTag = "szSN:";
constexpr std::string_view kIds = ": (Process is ";
constexpr std::string_view kThread = ", thread is ";

class Scanner {
public:
    explicit Scanner(std::string_view text) : text_(text) {}

    bool Take(std::string_view word) {
        if (text_.compare(0, word.size(), word) != 0) return false;
        text_.remove_prefix(word.size());
        return true;
    }

    // A number of so many digits, with a sign if it may have one.
    std::optional<std::int64_t> Number(std::size_t least, std::size_t most, bool sign = false) {
        const bool negative = sign && Take("-");
        std::size_t digits = 0;
        std::int64_t value = 0;
        while (digits < most && digits < text_.size() &&
               std::isdigit(static_cast<unsigned char>(text_[digits])) != 0) {
            value = value * 10 + (text_[digits++] - '0');
        }
        if (digits < least) return std::nullopt;
        text_.remove_prefix(digits);
        digits_ = digits;
        return negative ? -value : value;
    }

    std::size_t digits() const { return digits_; }
    std::string_view rest() const { return text_; }

private:
    std::string_view text_;
    std::size_t digits_ = 0;
};

struct Stamp {
    LogTime time;
    std::int64_t fraction = 0;
    std::size_t digits = 0;
};

std::optional<Stamp> TakeStamp(Scanner& scanner) {
    Stamp stamp;
    if (!scanner.Take("[")) return std::nullopt;
    const auto day = scanner.Number(2, 2);
    if (!day || !scanner.Take(",")) return std::nullopt;
    const auto hour = scanner.Number(2, 2);
    if (!hour || !scanner.Take(":")) return std::nullopt;
    const auto minute = scanner.Number(2, 2);
    if (!minute || !scanner.Take(":")) return std::nullopt;
    const auto second = scanner.Number(2, 2);
    if (!second || !scanner.Take(".")) return std::nullopt;
    const auto fraction = scanner.Number(3, 6);
    if (!fraction) return std::nullopt;
    stamp.digits = scanner.digits();
    if (!scanner.Take("] ")) return std::nullopt;
    stamp.time.day = static_cast<int>(*day);
    stamp.time.micros = ((*hour * 60 + *minute) * 60 + *second) * 1000000;
    stamp.fraction = *fraction;
    return stamp;
}

bool TakeIds(std::string_view text, LogRecord& record) {
    Scanner scanner(text);
    if (!scanner.Take(kIds)) return false;
    const auto process = scanner.Number(1, 10, true);
    if (!process || !scanner.Take(kThread)) return false;
    const auto thread = scanner.Number(1, 10, true);
    if (!thread || scanner.rest() != ")") return false;
    record.process = *process;
    record.thread = *thread;
    return true;
}

}  // namespace

std::optional<LogRecord> ParseHead(std::string_view line) {
    Scanner scanner(line);
    const auto stamp = TakeStamp(scanner);
    if (!stamp) return std::nullopt;
    const std::string_view rest = scanner.rest();
    const std::size_t ids = rest.rfind(kIds);
    if (ids == std::string_view::npos) return std::nullopt;
    LogRecord record;
    record.time = stamp->time;
    record.tag = rest.substr(0, ids);
    if (!TakeIds(rest.substr(ids), record)) return std::nullopt;
    const bool micros = stamp->digits > 3 || record.tag == kHexTag;
    record.time.micros += micros ? stamp->fraction : stamp->fraction * 1000;
    return record;
}

std::vector<LogRecord> LogReader::Feed(std::string_view piece) {
    std::vector<LogRecord> records;
    while (!piece.empty()) {
        const std::size_t end = piece.find('\n');
        if (end == std::string_view::npos) {
            rest_ += piece;
            break;
        }
        if (rest_.empty()) {
            TakeLine(piece.substr(0, end + 1), records);
        } else {
            rest_ += piece.substr(0, end + 1);
            TakeLine(rest_, records);
            rest_.clear();
        }
        piece.remove_prefix(end + 1);
    }
    return records;
}

// The line comes with its line break.
void LogReader::TakeLine(std::string_view line, std::vector<LogRecord>& records) {
    constexpr std::string_view kBreak = "\r\n";
    const bool broken = line.size() >= 2 && line.substr(line.size() - 2) == kBreak;
    if (broken) {
        if (auto head = ParseHead(line.substr(0, line.size() - 2))) {
            Close(records);
            open_ = std::move(head);
            return;
        }
    }
    const bool first = open_ && open_->body.empty();
    if (!open_ || (first && line.substr(0, 2) != "\t[")) {
        strangeBytes_ += line.size();
        return;
    }
    open_->body += line;
}

bool LogReader::Complete() const {
    constexpr std::string_view kEnd = "]\r\n";
    return open_ && open_->body.size() >= 2 + kEnd.size() &&
           open_->body.compare(open_->body.size() - kEnd.size(), kEnd.size(), kEnd) == 0;
}

// What is left open is complete, or was cut off where another writer came between.
void LogReader::Close(std::vector<LogRecord>& records) {
    if (Complete()) {
        open_->body = open_->body.substr(2, open_->body.size() - 5);
        records.push_back(std::move(*open_));
    } else if (open_) {
        strangeBytes_ += open_->body.size() + 1;
    }
    open_.reset();
}

std::vector<LogRecord> LogReader::Pause() {
    std::vector<LogRecord> records;
    if (rest_.empty() && Complete()) Close(records);
    return records;
}

}  // namespace ukey

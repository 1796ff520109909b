#include "log/reader.h"

#include <algorithm>
#include <cctype>

namespace ukey {
namespace {

// LogHex writes microseconds without leading zeros, and only under this tag; everything else has
// three digits of milliseconds.
constexpr std::string_view kHexTag = "szSN:";
constexpr std::string_view kIds = ": (Process is ";
constexpr std::string_view kThread = ", thread is ";
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

std::string_view WithoutBreak(std::string_view line) {
    if (!line.empty() && line.back() == '\n') line.remove_suffix(1);
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    return line;
}

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
        const bool whole = end != std::string_view::npos;
        const std::string_view part = piece.substr(0, whole ? end + 1 : piece.size());
        piece.remove_prefix(part.size());
        if (whole && rest_.empty()) {
            TakeLine(part, records);
            continue;
        }
        rest_ += part;
        // Of an endless line there is no need to see the end.
        if (!whole && rest_.size() < kLongestBody) break;
        TakeLine(rest_, records);
        rest_.clear();
    }
    return records;
}

// The head may stand behind the rest of a record that a full disk has cut off, behind the zeros
// that a crash of the machine leaves, or behind the mark that some editors put in front.
bool LogReader::TakeHead(std::string_view line, std::vector<LogRecord>& records) {
    const std::string_view text = WithoutBreak(line);
    if (text.empty() || text.back() != ')') return false;
    const std::size_t ids = text.rfind(kIds);
    if (ids == std::string_view::npos) return false;
    // From the right: what was cut off may look like the beginning of a head.
    std::size_t start = ids;
    std::optional<LogRecord> head;
    while (!head && start != 0) {
        start = text.rfind('[', start - 1);
        if (start == std::string_view::npos) return false;
        head = ParseHead(text.substr(start));
    }
    if (!head) return false;
    if (open_) {
        TakeBody(line.substr(0, start));
    } else if (line.substr(0, start) != kByteOrderMark) {
        strangeBytes_ += start;
    }
    Close(records);
    open_ = std::move(head);
    open_->at = position_ + start;
    headSize_ = line.size() - start;
    end_.clear();
    return true;
}

void LogReader::TakeBody(std::string_view text) {
    const std::size_t room = kLongestBody - std::min(kLongestBody, open_->body.size());
    open_->body += text.substr(0, room);
    if (text.size() > room) open_->cut += text.size() - room;
    end_ += text.substr(text.size() - std::min<std::size_t>(text.size(), 3));
    if (end_.size() > 3) end_.erase(0, end_.size() - 3);
}

void LogReader::TakeLine(std::string_view line, std::vector<LogRecord>& records) {
    if (!TakeHead(line, records)) {
        const bool first = open_ && open_->body.empty();
        if (!open_ || (first && line.substr(0, 2) != "\t[")) {
            strangeBytes_ += line.size();
        } else {
            TakeBody(line);
        }
    }
    position_ += line.size();
}

// How long the text between the brackets is; npos while the closing one is not there.
std::size_t LogReader::Content() const {
    if (!open_) return std::string::npos;
    const std::size_t ended = WithoutBreak(end_).size();
    const std::size_t behind = end_.size() - ended + 1;
    const std::size_t size = open_->body.size() + open_->cut;
    if (ended == 0 || end_[ended - 1] != ']' || size < 2 + behind) return std::string::npos;
    return size - 2 - behind;
}

// What is left open is complete, or was cut off where another writer came between.
void LogReader::Close(std::vector<LogRecord>& records) {
    if (!open_) return;
    const std::size_t content = Content();
    if (content != std::string::npos) {
        open_->body.erase(0, 2);
        if (open_->body.size() > content) open_->body.resize(content);
        open_->cut = content - open_->body.size();
        records.push_back(std::move(*open_));
    } else {
        strangeBytes_ += headSize_ + open_->body.size() + open_->cut;
    }
    open_.reset();
}

std::vector<LogRecord> LogReader::Pause() {
    std::vector<LogRecord> records;
    if (rest_.empty() && Content() != std::string::npos) Close(records);
    return records;
}

std::vector<LogRecord> LogReader::Finish() {
    std::vector<LogRecord> records;
    if (!rest_.empty()) TakeLine(rest_, records);
    rest_.clear();
    Close(records);
    return records;
}

}  // namespace ukey

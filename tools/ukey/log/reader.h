// The diagnostic log's records, put together from the two lines that each of them has.
#ifndef UKEY_LOG_READER_H
#define UKEY_LOG_READER_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ukey {

struct LogTime {
    int day = 0;              // of the month; the log names neither month nor year
    std::int64_t micros = 0;  // since midnight
};

struct LogRecord {
    LogTime time;
    std::string tag;
    std::int64_t process = 0;
    std::int64_t thread = 0;
    std::string body;
};

// A head line without its line break, or nothing when it is none.
std::optional<LogRecord> ParseHead(std::string_view line);

// Takes the log in pieces of any size and hands out records as they become complete. A body may
// hold line breaks: it ends with "]" before a line break where the next line is a head, or where
// the log ends for now.
class LogReader {
public:
    std::vector<LogRecord> Feed(std::string_view piece);
    // The log ends here, at least for now: a record whose "]" was seen is complete.
    std::vector<LogRecord> Pause();
    // Bytes that belong to no record.
    std::size_t strangeBytes() const { return strangeBytes_; }

private:
    void TakeLine(std::string_view line, std::vector<LogRecord>& records);
    bool Complete() const;
    void Close(std::vector<LogRecord>& records);

    std::string rest_;  // an incomplete line
    std::optional<LogRecord> open_;
    std::size_t strangeBytes_ = 0;
};

}  // namespace ukey

#endif

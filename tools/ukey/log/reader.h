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
    std::size_t cut = 0;   // bytes of the body that were too many to be kept
    std::uint64_t at = 0;  // where in the log it begins
};

// A head line without its line break, or nothing when it is none.
std::optional<LogRecord> ParseHead(std::string_view line);

// Takes the log in pieces of any size and hands out records as they become complete. Lines end with
// CR LF, or with LF alone in a log that an editor or a mail has rewritten. A body may hold line
// breaks: it ends with "]" at the end of a line where the next line is a head, or where the log
// ends for now. Whatever the log holds, no more than a few MiB of it are kept.
class LogReader {
public:
    static constexpr std::size_t kLongestBody = std::size_t{1} << 20U;

    std::vector<LogRecord> Feed(std::string_view piece);
    // The log ends here for now: a record whose "]" was seen is complete.
    std::vector<LogRecord> Pause();
    // The log ends here for good: the last line may lack its line break.
    std::vector<LogRecord> Finish();
    // Bytes that belong to no record.
    std::size_t strangeBytes() const { return strangeBytes_; }

private:
    void TakeLine(std::string_view line, std::vector<LogRecord>& records);
    void TakeBody(std::string_view text);
    bool TakeHead(std::string_view line, std::vector<LogRecord>& records);
    std::size_t Content() const;
    void Close(std::vector<LogRecord>& records);

    std::string rest_;  // an incomplete line
    std::optional<LogRecord> open_;
    std::string end_;           // the last bytes of the open record's body
    std::size_t headSize_ = 0;  // of the open record
    std::uint64_t position_ = 0;
    std::size_t strangeBytes_ = 0;
};

}  // namespace ukey

#endif

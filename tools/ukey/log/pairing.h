// Calls of the library, put together from the records that each of them wrote.
#ifndef UKEY_LOG_PAIRING_H
#define UKEY_LOG_PAIRING_H

#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "log/reader.h"

namespace ukey {

struct LogCall {
    std::string operation;
    std::int64_t process = 0;
    std::int64_t thread = 0;
    std::optional<LogTime> begin;  // of the first record, when that is not the end
    std::optional<LogTime> end;
    std::optional<int> code;  // none when no end was logged
    std::vector<LogRecord> records;
    std::size_t number = 0;  // in the order in which calls begin

    // Between begin and end; nothing when one of them is not known.
    std::optional<std::int64_t> Micros() const;
};

// What to know of a record: which function wrote it, and whether it is its beginning or its end.
struct RecordRole {
    std::string operation;  // empty: that of the call in progress
    bool begin = false;
    std::optional<int> endCode;
};
RecordRole RoleOf(const LogRecord& record);

// Key material in a record's body replaced by its length.
std::string Masked(const LogRecord& record);

// Calls follow each other on a thread, and threads of a process run side by side. Some functions
// log no end, or not in every case: their calls are over when the thread does something else.
class LogPairing {
public:
    using Notice = std::function<void(const LogCall&)>;

    // begun may be empty; over is told of each call once.
    LogPairing(Notice begun, Notice over) : begun_(std::move(begun)), over_(std::move(over)) {}

    void Take(LogRecord record);
    // The log is over: the calls in progress have no end.
    void Finish();

private:
    using Thread = std::pair<std::int64_t, std::int64_t>;

    LogCall& Open(const Thread& thread, const std::string& operation, const LogRecord& record);
    void Over(const Thread& thread);

    Notice begun_;
    Notice over_;
    std::map<Thread, LogCall> open_;
    std::size_t count_ = 0;
};

}  // namespace ukey

#endif

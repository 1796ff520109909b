// Calls of the library, put together from the records that each of them wrote.
#ifndef UKEY_LOG_PAIRING_H
#define UKEY_LOG_PAIRING_H

#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "kit/text.h"
#include "log/reader.h"

namespace ukey {

struct LogCall {
    std::string operation;
    std::int64_t process = 0;
    std::int64_t thread = 0;
    std::optional<LogTime> begin;  // of the first record, when that is not the end
    std::optional<LogTime> end;
    std::optional<int> code;         // none when no end was logged
    std::vector<LogRecord> records;  // where they are kept
    std::size_t number = 0;          // in the order in which calls begin
    std::uint64_t from = 0;          // where in the log it begins
    std::size_t size = 0;            // about how much memory it takes

    // Between begin and end; nothing when one of them is not known.
    std::optional<std::int64_t> Micros() const;
};

// What to know of a record: which function wrote it, and whether it is its beginning or its end.
struct RecordRole {
    std::string_view
        operation;  // within the record's tag or a literal; empty: the call in progress
    bool begin = false;
    bool alone = false;  // both, and without a result
    std::optional<int> endCode;
};
RecordRole RoleOf(const LogRecord& record);

// Key material in a record's body replaced by its length.
inline constexpr const char* kHidden = kit::N_("<{1} characters hidden>");
std::string Masked(const LogRecord& record, const char* words = kHidden);

// Calls follow each other on a thread, and threads of a process run side by side. Some functions
// log no end, or not in every case: their calls are over when the thread does something else. A
// process that died in a call never does: when the calls in progress take more memory than the
// limit, the oldest of them are given up, and are over without an end.
class LogPairing {
public:
    using Notice = std::function<void(const LogCall&)>;
    using Taker = std::function<void(LogCall&&)>;
    static constexpr std::size_t kLimit = std::size_t{4} << 20U;

    // begun may be empty; over is told of each call once.
    LogPairing(Notice begun, Taker over, bool keepRecords = true, std::size_t limit = kLimit)
        : begun_(std::move(begun)),
          over_(std::move(over)),
          keepRecords_(keepRecords),
          limit_(limit) {}

    void Take(LogRecord record);
    // The log is over: the calls in progress have no end.
    void Finish();

private:
    using Thread = std::pair<std::int64_t, std::int64_t>;
    using Calls = std::map<Thread, LogCall>;

    Calls::iterator Open(const Thread& thread, std::string_view operation, const LogRecord& record);
    void Keep(LogCall& call, LogRecord record);
    void Over(Calls::iterator call);

    const Notice begun_;
    const Taker over_;
    const bool keepRecords_;
    const std::size_t limit_;
    Calls open_;
    std::map<std::size_t, Calls::iterator> byAge_;  // of open_, by their numbers
    std::size_t size_ = 0;                          // of all open calls
    std::size_t count_ = 0;
};

}  // namespace ukey

#endif

// The end of the diagnostic log: what failed last, which processes called, the records without what
// must not leave the machine.
#ifndef UKEY_REPORT_LOG_TAIL_H
#define UKEY_REPORT_LOG_TAIL_H

#include <deque>
#include <map>

#include "log/pairing.h"
#include "report/mask.h"

namespace ukey {

// How much of the log is looked at, whatever its size; tests take less.
struct TailLimits {
    std::uint64_t window = std::uint64_t{4} << 20U;  // that is read
    std::size_t records = std::size_t{256} << 10U;   // that is handed on
    std::size_t failures = 50;
    std::size_t processes = 20;
};

struct LogProcess {
    std::int64_t number = 0;
    LogTime first;
    LogTime last;
    std::size_t calls = 0;
    std::size_t failed = 0;
};

struct LogTail {
    std::string fault;       // why there is nothing; empty where the log could be read
    std::uint64_t size = 0;  // of the whole log
    std::uint64_t read = 0;
    std::size_t strangeBytes = 0;      // that belong to no record
    std::deque<LogCall> failures;      // the last, in the order in which they ended
    std::deque<LogProcess> processes;  // the last, in the order in which they began
    std::deque<LogRecord> records;     // the last
};

LogTail ReadTail(const std::string& path, const TailLimits& limits = {});

// The record as it stands in a log, without identifiers and keys: what is not known to be harmless
// is replaced by its length.
std::string MaskedRecord(const LogRecord& record, Mask& mask);

// The name of a function that the library has, else "other".
std::string KnownFunction(const LogCall& call);

}  // namespace ukey

#endif

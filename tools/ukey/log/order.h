// Calls in the order in which they begin, whatever the length of the log.
#ifndef UKEY_LOG_ORDER_H
#define UKEY_LOG_ORDER_H

#include <map>

#include "log/pairing.h"
#include "log/source.h"

namespace ukey {

// How much may be kept at once; tests take less.
struct LogLimits {
    std::uint64_t window = std::uint64_t{2} << 20U;  // of the log, while a call in it goes on
    std::size_t ahead = std::size_t{12} << 20U;      // memory for calls that were looked up
    std::size_t pairing = LogPairing::kLimit;
};

// Calls become known when they are over, and one that goes on for long holds up those that began
// behind it. Those wait here; when they have waited for too much of the log, the log is read once
// more, ahead, to see how the long calls end.
class LogOrder {
public:
    // records: whether calls are to have them.
    LogOrder(const LogSource& source, bool records, const LogLimits& limits = {})
        : source_(source), records_(records), limits_(limits) {}

    // Every call of the log once, in order.
    void Read(const LogPairing::Notice& call);
    // Bytes that belong to no record; records that were read.
    std::size_t strangeBytes() const { return strangeBytes_; }
    std::size_t calls() const { return next_ - 1; }

private:
    using Calls = std::map<std::size_t, LogCall>;
    using Progress = std::function<void(std::uint64_t)>;

    void Scan(const LogPairing::Taker& over, const Progress& progress);
    void LookAhead();
    void HandOut(const LogPairing::Notice& call);

    const LogSource& source_;
    const bool records_;
    const LogLimits limits_;
    std::size_t next_ = 1;
    Calls waiting_;
    Calls ahead_;  // calls that go on for long
    std::size_t strangeBytes_ = 0;
};

}  // namespace ukey

#endif

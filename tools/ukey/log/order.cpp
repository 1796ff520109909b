#include "log/order.h"

#include <iterator>

namespace ukey {

// progress is told where in the log the latest record begins, after it was taken.
void LogOrder::Scan(const LogPairing::Taker& over, const Progress& progress) {
    LogReader reader;
    LogPairing pairing(nullptr, over, records_, limits_.pairing);
    const auto take = [&](std::vector<LogRecord> records) {
        for (LogRecord& record : records) {
            const std::uint64_t at = record.at;
            pairing.Take(std::move(record));
            progress(at);
        }
    };
    std::uint64_t offset = 0;
    for (std::string piece; source_.ReadAt(offset, piece); offset += piece.size()) {
        take(reader.Feed(piece));
    }
    take(reader.Finish());
    progress(offset);
    pairing.Finish();
    strangeBytes_ = reader.strangeBytes();
}

// Those of the calls still to come that go on for half a window or more, the earliest of them.
void LogOrder::LookAhead() {
    ahead_.clear();
    std::uint64_t now = 0;
    std::size_t size = 0;
    Scan(
        [&](LogCall&& call) {
            if (call.number < next_ || now - call.from < limits_.window / 2) return;
            const std::size_t number = call.number;
            size += call.size;
            ahead_.emplace(number, std::move(call));
            while (size > limits_.ahead && ahead_.size() > 1) {
                const auto latest = std::prev(ahead_.end());
                size -= latest->second.size;
                ahead_.erase(latest);
            }
        },
        [&](std::uint64_t at) { now = at; });
}

void LogOrder::HandOut(const LogPairing::Notice& call) {
    for (auto first = waiting_.begin(); first != waiting_.end() && first->first == next_;
         first = waiting_.erase(first)) {
        call(first->second);
        ++next_;
    }
}

void LogOrder::Read(const LogPairing::Notice& call) {
    Scan(
        [&](LogCall&& over) {
            if (over.number < next_) return;  // it was looked up
            const std::size_t number = over.number;
            waiting_.emplace(number, std::move(over));
            HandOut(call);
        },
        [&](std::uint64_t at) {
            while (!waiting_.empty() && at - waiting_.begin()->second.from > limits_.window) {
                if (ahead_.count(next_) == 0) LookAhead();
                const auto known = ahead_.find(next_);
                ++next_;
                if (known == ahead_.end()) continue;  // the log was changed meanwhile
                call(known->second);
                ahead_.erase(known);
                HandOut(call);
            }
        });
}

}  // namespace ukey

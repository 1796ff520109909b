#include "report/log_tail.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "log/source.h"
#include "log/writers.h"
#include "names.h"

namespace ukey {
namespace {

template <class Item>
void KeepLast(std::deque<Item>& items, std::size_t most) {
    while (items.size() > most) items.pop_front();
}

// About what it takes as text.
std::size_t SizeOf(const LogRecord& record) {
    constexpr std::size_t kHead = 64;
    return kHead + record.tag.size() + record.body.size();
}

class Tail {
public:
    Tail(LogTail& tail, const TailLimits& limits)
        : tail_(tail),
          limits_(limits),
          pairing_(
              nullptr, [this](LogCall&& call) { Count(std::move(call)); }, false) {}

    void Take(std::vector<LogRecord> records) {
        for (LogRecord& record : records) {
            size_ += SizeOf(record);
            tail_.records.push_back(record);
            while (size_ > limits_.records) {
                size_ -= SizeOf(tail_.records.front());
                tail_.records.pop_front();
            }
            pairing_.Take(std::move(record));
        }
    }

    void Finish() { pairing_.Finish(); }

private:
    void Count(LogCall&& call) {
        const LogTime begin = call.begin ? *call.begin : call.end.value_or(LogTime());
        const bool failed = call.code && *call.code != 0;
        auto process = std::find_if(tail_.processes.begin(), tail_.processes.end(),
                                    [&](const LogProcess& p) { return p.number == call.process; });
        if (process == tail_.processes.end()) {
            tail_.processes.push_back({call.process, begin, begin, 0, 0});
            KeepLast(tail_.processes, limits_.processes);
            process = std::prev(tail_.processes.end());
        }
        process->last = call.end.value_or(begin);
        ++process->calls;
        if (!failed) return;
        ++process->failed;
        tail_.failures.push_back(std::move(call));
        KeepLast(tail_.failures, limits_.failures);
    }

    LogTail& tail_;
    const TailLimits& limits_;
    LogPairing pairing_;
    std::size_t size_ = 0;
};

// Other than plain files may never end, or wait for ever.
std::string Fault(const std::string& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) {
        return errno == ENOENT ? _("there is no log") : std::strerror(errno);
    }
    if (!S_ISREG(status.st_mode)) return _("the log is no plain file");
    return ::access(path.c_str(), R_OK) == 0 ? "" : std::strerror(errno);
}

void ReadEnd(const LogSource& source, LogTail& tail, const TailLimits& limits) {
    Tail taker(tail, limits);
    LogReader reader;
    std::uint64_t offset = source.size() - std::min(source.size(), limits.window);
    std::size_t before = 0;  // the rest of the record that the window begins in
    const bool cut = offset != 0;
    tail.size = source.size();
    tail.read = source.size() - offset;
    for (std::string piece; source.ReadAt(offset, piece); offset += piece.size()) {
        taker.Take(reader.Feed(piece));
        if (cut && before == 0) before = reader.strangeBytes();
    }
    taker.Take(reader.Finish());
    taker.Finish();
    tail.strangeBytes = reader.strangeBytes() - before;
}

}  // namespace

LogTail ReadTail(const std::string& path, const TailLimits& limits) {
    LogTail tail;
    tail.fault = Fault(path);
    if (!tail.fault.empty()) return tail;
    try {
        ReadEnd(LogSource(path), tail, limits);
    } catch (const FileError& error) {
        tail.fault = error.what();
    }
    return tail;
}

std::string KnownFunction(const LogCall& call) {
    return IsLogged(call.operation) ? call.operation : "other";
}

}  // namespace ukey

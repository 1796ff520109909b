#include "log/failures.h"

#include "log/source.h"
#include "log/writers.h"

namespace ukey {
namespace {

constexpr std::size_t kMostPairs = 1000;

}  // namespace

void ReadFailures(const std::string& path, const LogPairing::Notice& failed) {
    const LogSource source(path);
    LogReader reader;
    LogPairing pairing(
        nullptr,
        [&](LogCall&& call) {
            if (call.code && *call.code != 0) failed(call);
        },
        false);
    std::uint64_t offset = 0;
    for (std::string piece; source.ReadAt(offset, piece); offset += piece.size()) {
        for (LogRecord& record : reader.Feed(piece)) pairing.Take(std::move(record));
    }
    for (LogRecord& record : reader.Finish()) pairing.Take(std::move(record));
    pairing.Finish();
}

LogFailures CountFailures(const std::string& path) {
    LogFailures counts;
    ReadFailures(path, [&](const LogCall& call) {
        const std::pair<std::string, int> key(call.operation, *call.code);
        const bool known = IsLogged(call.operation);
        const bool room = counts.size() < kMostPairs || counts.count(key) != 0;
        ++counts[known && room ? key : std::pair<std::string, int>("other", 0)];
    });
    return counts;
}

}  // namespace ukey

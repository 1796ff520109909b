// The log as `ukey log` reads it: in pieces of any size it is the same records, each belongs to one
// call, and no key that the library would import is shown.
#include <set>
#include <string>

#include "draw.h"
#include "fuzz_target.h"
#include "log/pairing.h"
#include "oracles/bundle_steps.h"

namespace {

using calls::Draw;
using ukey::LogRecord;
using Records = std::vector<LogRecord>;

constexpr const char* kBundle = "begin, strP7: ";

// What logs are made of. A byte of the input stands for one of these, or for itself.
const std::string kPieces[] = {
    "[07,12:03:04.056] GetPrintNumber: (Process is 12, thread is -7)\r\n\t[Begin pnSNLen = "
    "00000000]\r\n",
    "[07,12:03:04.056] ",
    "[07,12:03:04.05612] ",
    "[99,99:99:99.000] ",
    "GetDllVersion",
    "SKF_WaitForDevEvent",
    "szSN:",
    "CZRKUSBKey::ImportEncX509Cert  strPriKeyTemp:",
    "CZRKUSBKey::Batch_ImportX509Cert",
    ": (Process is 12, thread is -7)",
    ": (Process is 4294967296, thread is 8)",
    "\r\n",
    "\r\n\t[",
    "]\r\n",
    "]\n",
    "Begin",
    "begin, strP7: ",
    "End G_LastError: 0000FE6F",
    "end, err: -5",
    "strPriKeyTemp:",
    "SignCert(",
    "EncPriKey(",
    "EncCert(",
    "0123456789ABCDEF",
    ")",
    "|",
    "\xEF\xBB\xBF",
    std::string(5, '\0'),
};

std::string AnyLog(const std::uint8_t* data, std::size_t size) {
    std::string log;
    for (std::size_t i = 0; i < size; ++i) {
        // Pieces stand in the place of bytes that texts seldom have.
        const std::size_t piece = data[i] - std::size_t{0x80};
        log += piece < std::size(kPieces) ? kPieces[piece] : std::string(1, char(data[i]));
    }
    return log;
}

void Add(Records& records, Records more) {
    for (LogRecord& record : more) records.push_back(std::move(record));
}

Records ReadWhole(const std::string& log, std::size_t& strange) {
    ukey::LogReader reader;
    Records records = reader.Feed(log);
    Add(records, reader.Finish());
    strange = reader.strangeBytes();
    return records;
}

Records ReadInPieces(const std::string& log, Draw& draw, std::size_t& strange) {
    ukey::LogReader reader;
    Records records;
    for (std::size_t at = 0; at < log.size();) {
        const std::size_t size = 1 + draw.below(40);
        Add(records, reader.Feed(std::string_view(log).substr(at, size)));
        at += size;
    }
    Add(records, reader.Finish());
    strange = reader.strangeBytes();
    return records;
}

bool Same(const LogRecord& one, const LogRecord& other) {
    return one.at == other.at && one.tag == other.tag && one.body == other.body &&
           one.process == other.process && one.thread == other.thread &&
           one.time.day == other.time.day && one.time.micros == other.time.micros;
}

// Each record stands in the log, behind the one before it.
void CheckPlaces(const std::string& log, const Records& records, std::size_t strange) {
    std::size_t at = 0, shown = strange;
    for (const LogRecord& record : records) {
        FUZZ_EXPECT(record.at >= at && log[record.at] == '[');
        FUZZ_EXPECT(record.cut == 0 && log.find(record.body, record.at) != std::string::npos);
        at = record.at + 1;
        shown += record.tag.size() + record.body.size();
    }
    FUZZ_EXPECT(shown <= log.size());
}

void CheckCalls(const Records& records, std::size_t limit) {
    std::set<std::size_t> begun, over;
    std::size_t kept = 0;
    ukey::LogPairing pairing(
        [&](const ukey::LogCall& call) { FUZZ_EXPECT(begun.insert(call.number).second); },
        [&](ukey::LogCall&& call) {
            FUZZ_EXPECT(over.insert(call.number).second && !call.records.empty());
            kept += call.records.size();
        },
        true, limit);
    for (const LogRecord& record : records) pairing.Take(record);
    pairing.Finish();
    FUZZ_EXPECT(kept == records.size());
    for (const std::size_t number : begun) FUZZ_EXPECT(over.count(number) == 1);
    FUZZ_EXPECT(over.empty() || *over.rbegin() == over.size());
}

// The same text with other keys, as the library finds them.
std::string WithOtherKeys(std::string bundle) {
    const std::string opener = "EncPriKey(";
    std::size_t at = bundle.find(opener);
    while (at != std::string::npos) {
        const std::size_t close = bundle.find(')', at);
        if (close == std::string::npos) break;
        const std::size_t begin = at + opener.size();
        bundle.replace(begin, close - begin, close - begin, 'z');
        at = bundle.find(opener, close);
    }
    return bundle;
}

void CheckSecrets(const LogRecord& record) {
    const std::string masked = ukey::Masked(record);
    if (record.body.rfind(kBundle, 0) == 0) {
        const std::string bundle = record.body.substr(std::string(kBundle).size());
        if (steps::Classify(bundle) != 3) return;
        LogRecord other = record;
        other.body = kBundle + WithOtherKeys(bundle);
        FUZZ_EXPECT(ukey::Masked(other) == masked);
    } else if (record.body.rfind("strPriKeyTemp:", 0) == 0 ||
               record.tag.find("strPriKey") != std::string::npos) {
        FUZZ_EXPECT(masked.size() < 60);
    }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string log = AnyLog(data, size);
    Draw draw(data, size);
    std::size_t strange = 0, strangeInPieces = 0;
    const Records records = ReadWhole(log, strange);
    const Records same = ReadInPieces(log, draw, strangeInPieces);
    FUZZ_EXPECT(records.size() == same.size() && strange == strangeInPieces);
    for (std::size_t i = 0; i < records.size(); ++i) FUZZ_EXPECT(Same(records[i], same[i]));
    CheckPlaces(log, records, strange);
    for (const std::size_t limit : {std::size_t{1}, std::size_t{2000}, std::size_t{1} << 20})
        CheckCalls(records, limit);
    for (const LogRecord& record : records) CheckSecrets(record);
    return 0;
}

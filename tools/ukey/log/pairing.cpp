#include "log/pairing.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>

#include "log/writers.h"

namespace ukey {
namespace {

// What a call takes beside its texts, with its places in two maps.
constexpr std::size_t kCallSize = sizeof(LogCall) + 160;

constexpr std::int64_t kDay = std::int64_t{24} * 60 * 60 * 1000000;

bool StartsWith(std::string_view text, std::string_view start) {
    return text.compare(0, start.size(), start) == 0;
}

// Begins are spelled in several ways; a body that goes on does so after a blank or a comma.
bool IsBegin(std::string_view body) {
    if (!StartsWith(body, "Begin") && !StartsWith(body, "begin")) return false;
    return body.size() == 5 || body[5] == ' ' || body[5] == ',';
}

std::optional<int> EndCode(const std::string& body) {
    struct Form {
        std::string_view start;
        int base;
    };
    static constexpr Form kForms[] = {
        {"End G_LastError: ", 16}, {"end, G_LastError = ", 10}, {"end, err: ", 10}};
    for (const Form& form : kForms) {
        if (!StartsWith(body, form.start)) continue;
        const char* const start = body.c_str() + form.start.size();
        char* end = nullptr;
        const long long value = std::strtoll(start, &end, form.base);
        if (end != start) return static_cast<int>(static_cast<unsigned>(value));
    }
    return std::nullopt;
}

std::string Hidden(const char* words, std::size_t length) {
    return kit::Fill(words, {std::to_string(length)});
}

bool IsCertificateSection(std::string_view name) {
    std::string lower;
    for (const char c : name) {
        lower += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    return lower == "signcert" || lower == "enccert";
}

// Whatever a section holds is hidden unless it is known to be a certificate. A parenthesis within
// one may open a section where another was not closed: the library finds a key there.
std::string MaskedBundle(std::string_view bundle, const char* words) {
    std::string text;
    while (!bundle.empty()) {
        const std::size_t open = bundle.find('(');
        if (open == std::string_view::npos) break;
        const std::size_t bar = bundle.rfind('|', open);
        const std::size_t start = bar == std::string_view::npos ? 0 : bar + 1;
        const std::size_t end = std::min(bundle.find(')', open), bundle.size());
        text += bundle.substr(0, open + 1);
        const std::string_view content = bundle.substr(open + 1, end - open - 1);
        const bool shown = IsCertificateSection(bundle.substr(start, open - start)) &&
                           content.find('(') == std::string_view::npos;
        text += shown ? std::string(content) : Hidden(words, content.size());
        bundle.remove_prefix(end);
    }
    return text + std::string(bundle);
}

}  // namespace

std::optional<std::int64_t> LogCall::Micros() const {
    if (!begin || !end) return std::nullopt;
    std::int64_t micros = end->micros - begin->micros;
    // Without month and year, a later day is taken for the next one.
    if (end->day != begin->day) micros += kDay * std::max(1, end->day - begin->day);
    if (micros < 0) return std::nullopt;  // the clock was set back
    return micros;
}

RecordRole RoleOf(const LogRecord& record) {
    const LogWriter writer = WriterOf(record.tag);
    RecordRole role;
    role.operation = writer.operation;
    role.begin = writer.alone || IsBegin(record.body);
    role.alone = writer.alone;
    role.endCode = EndCode(record.body);
    return role;
}

std::string Masked(const LogRecord& record, const char* words) {
    constexpr std::string_view kKey = "strPriKeyTemp:";
    constexpr std::string_view kBundle = "begin, strP7: ";
    const std::string_view body = record.body;
    if (StartsWith(body, kKey)) {
        return std::string(kKey) + Hidden(words, body.size() - kKey.size());
    }
    if (record.tag.find("strPriKey") != std::string::npos) return Hidden(words, body.size());
    if (!StartsWith(body, kBundle)) return record.body;
    return std::string(kBundle) + MaskedBundle(body.substr(kBundle.size()), words);
}

LogPairing::Calls::iterator LogPairing::Open(const Thread& thread, std::string_view operation,
                                             const LogRecord& record) {
    const auto opened = open_.emplace(thread, LogCall()).first;
    LogCall& call = opened->second;
    call.operation = operation;
    call.number = ++count_;
    call.process = record.process;
    call.thread = record.thread;
    call.from = record.at;
    call.size = kCallSize + operation.size();
    size_ += call.size;
    byAge_.emplace(call.number, opened);
    return opened;
}

void LogPairing::Keep(LogCall& call, LogRecord record) {
    if (!keepRecords_) return;
    const std::size_t size = sizeof record + record.tag.capacity() + record.body.capacity();
    call.size += size;
    size_ += size;
    call.records.push_back(std::move(record));
}

void LogPairing::Over(Calls::iterator call) {
    LogCall taken = std::move(call->second);
    byAge_.erase(taken.number);
    open_.erase(call);
    size_ -= taken.size;
    over_(std::move(taken));
}

void LogPairing::Take(LogRecord record) {
    const Thread thread(record.process, record.thread);
    const RecordRole role = RoleOf(record);
    auto call = open_.find(thread);
    const bool open = call != open_.end();
    const bool another =
        open && !role.operation.empty() && call->second.operation != role.operation;
    if (open && (another || role.begin)) {
        Over(call);
        call = open_.end();
    }
    const bool first = call == open_.end();
    if (first) call = Open(thread, role.operation.empty() ? record.tag : role.operation, record);
    if (first && !role.endCode) call->second.begin = record.time;
    if (role.endCode) {
        call->second.end = record.time;
        call->second.code = role.endCode;
    }
    Keep(call->second, std::move(record));
    if (first && !role.endCode && begun_) begun_(call->second);
    if (role.endCode || role.alone) Over(call);
    while (size_ > limit_) Over(byAge_.begin()->second);
}

void LogPairing::Finish() {
    while (!open_.empty()) Over(byAge_.begin()->second);
}

}  // namespace ukey

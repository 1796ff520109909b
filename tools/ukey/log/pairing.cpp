#include "log/pairing.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>

namespace ukey {
namespace {

constexpr std::int64_t kDay = std::int64_t{24} * 60 * 60 * 1000000;

bool StartsWith(std::string_view text, std::string_view start) {
    return text.compare(0, start.size(), start) == 0;
}

// Most tags are the function's name; these are not.
std::string OperationOf(const std::string& tag) {
    struct Alias {
        std::string_view start;
        const char* operation;
    };
    static constexpr Alias kAliases[] = {
        {"SKF_WaitForDevEvent", "WaitForKeyEvent"},
        {"X_getCurrentSlots", "WaitForKeyEvent"},
        {"VALTO_EVENT_INFO::", "WaitForKeyEvent"},
        {"CZRKUSBKey::ImportEncX509Cert", "ImportEncX509Cert"},
        {"CZRKUSBKey::Batch_ImportX509Cert", "Batch_ImportX509Cert"},
        {"CGMUsbKeyCommonEx", "Batch_ImportX509Cert"},
        {"szSN:", ""},
    };
    for (const Alias& alias : kAliases) {
        if (StartsWith(tag, alias.start)) return alias.operation;
    }
    return tag;
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

std::string Hidden(std::size_t length) {
    return "<" + std::to_string(length) + " characters hidden>";
}

bool IsCertificateSection(std::string_view name) {
    std::string lower;
    for (const char c : name) {
        lower += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    return lower == "signcert" || lower == "enccert";
}

// Whatever a section holds is hidden unless it is known to be a certificate.
std::string MaskedBundle(std::string_view bundle) {
    std::string text;
    while (!bundle.empty()) {
        const std::size_t open = bundle.find('(');
        if (open == std::string_view::npos) break;
        const std::size_t bar = bundle.rfind('|', open);
        const std::size_t start = bar == std::string_view::npos ? 0 : bar + 1;
        const std::size_t end = std::min(bundle.find(')', open), bundle.size());
        text += bundle.substr(0, open + 1);
        const std::string_view content = bundle.substr(open + 1, end - open - 1);
        const bool shown = IsCertificateSection(bundle.substr(start, open - start));
        text += shown ? std::string(content) : Hidden(content.size());
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
    RecordRole role;
    role.operation = OperationOf(record.tag);
    role.begin = IsBegin(record.body);
    role.endCode = EndCode(record.body);
    return role;
}

std::string Masked(const LogRecord& record) {
    constexpr std::string_view kKey = "strPriKeyTemp:";
    constexpr std::string_view kBundle = "begin, strP7: ";
    const std::string_view body = record.body;
    if (StartsWith(body, kKey)) {
        return std::string(kKey) + Hidden(body.size() - kKey.size());
    }
    if (record.tag.find("strPriKey") != std::string::npos) return Hidden(body.size());
    if (!StartsWith(body, kBundle)) return record.body;
    return std::string(kBundle) + MaskedBundle(body.substr(kBundle.size()));
}

LogCall& LogPairing::Open(const Thread& thread, const std::string& operation,
                          const LogRecord& record) {
    LogCall& call = open_[thread];
    call = LogCall();
    call.operation = operation;
    call.number = ++count_;
    call.process = record.process;
    call.thread = record.thread;
    return call;
}

void LogPairing::Over(const Thread& thread) {
    const auto found = open_.find(thread);
    if (found == open_.end()) return;
    const LogCall call = std::move(found->second);
    open_.erase(found);
    over_(call);
}

void LogPairing::Take(LogRecord record) {
    const Thread thread(record.process, record.thread);
    RecordRole role = RoleOf(record);
    auto found = open_.find(thread);
    if (role.operation.empty() && found != open_.end()) role.operation = found->second.operation;
    if (role.operation.empty()) role.operation = record.tag;
    const bool another = found != open_.end() && found->second.operation != role.operation;
    if (another || role.begin) {
        Over(thread);
        found = open_.end();
    }
    const bool first = found == open_.end();
    LogCall& call = first ? Open(thread, role.operation, record) : found->second;
    if (first && !role.endCode) call.begin = record.time;
    if (role.endCode) {
        call.end = record.time;
        call.code = role.endCode;
    }
    call.records.push_back(std::move(record));
    if (first && !role.endCode && begun_) begun_(call);
    if (role.endCode) Over(thread);
}

void LogPairing::Finish() {
    while (!open_.empty()) Over(open_.begin()->first);
}

}  // namespace ukey

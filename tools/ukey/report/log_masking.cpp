// What the library writes to the log, and which of it may leave the machine.
#include <cstdio>
#include <regex>

#include "log/writers.h"
#include "report/log_tail.h"

namespace ukey {
namespace {

// A body that is longer is none of these.
constexpr std::size_t kLongestBody = 512;

// The one tag whose records tell microseconds, without leading zeros.
constexpr const char* kHexTag = "szSN:";

// Tags that are no function's name.
constexpr const char* kTags[] = {
    "SKF_WaitForDevEvent",
    "X_getCurrentSlots",
    "VALTO_EVENT_INFO::SLOT_DEVICEARRIVAL  ",
    "VALTO_EVENT_INFO::SLOT_DEVICEREMOVE ",
    "CZRKUSBKey::ImportEncX509Cert  strPriKeyTemp:",
    "CZRKUSBKey::Batch_ImportX509Cert",
    "CZRKUSBKey::Batch_ImportX509Cert  strPriKeyTemp:",
    "CGMUsbKeyCommonEx",
    kHexTag,
};

bool IsKnownTag(const std::string& tag) {
    for (const char* const known : kTags) {
        if (tag == known) return true;
    }
    return IsLogged(tag);
}

// Numbers, versions, words of the library's own.
const std::regex& Harmless() {
    static const std::regex bodies(
        "[Bb]egin|before|after"
        "|Begin pn\\w{2,10} = [0-9a-f]{8}"
        "|End G_LastError: [0-9A-F]{8}"
        "|(end,| end in catch ,)? ?G_LastError = -?\\d{1,10}, line = \\d{3}"
        "| event\\.ei\\.slotEvent\\.u32SlotID = -?\\d{1,10}, line = \\d{3}"
        "|end, err: -?\\d{1,10}, Cert GM(WritePKCS7|ImportPriKey) error\\."
        "|pszVersion: [0-9.]{1,32}"
        "|pszVidPid: [0-9A-F]{4}&[0-9A-F]{4}");
    return bodies;
}

// A body that begins so names a key; the second part is shown where it is a request.
const std::regex& Naming() {
    static const std::regex bodies("(m_SN: |Begin szSN = )([^,]*)(,requestInfo = )?(.*)");
    return bodies;
}

const std::regex& Request() {
    static const std::regex text("( *(Cert|Key|Hash)Type\\(\\d\\) *\\|?){0,20}", std::regex::icase);
    return text;
}

// The bytes that LogHex wrote; empty where it is no such text.
std::string FromHexadecimal(const std::string& text) {
    std::string bytes;
    if (text.size() % 2 != 0 || text.find_first_not_of("0123456789ABCDEF") != std::string::npos) {
        return {};
    }
    for (std::size_t i = 0; i < text.size(); i += 2) {
        bytes += static_cast<char>(std::stoi(text.substr(i, 2), nullptr, 16));
    }
    return bytes;
}

std::string MaskedBody(const LogRecord& record, Mask& mask) {
    const std::string& body = record.body;
    if (body.empty()) return body;
    std::smatch parts;
    if (!IsKnownTag(record.tag) || body.size() > kLongestBody) return mask.Hidden("text", body);
    if (record.tag == kHexTag) {
        const std::string serial = FromHexadecimal(body);
        if (serial.empty()) return mask.Hidden("text", body);
        return mask.masking() ? mask.Name("serial", serial) : body;
    }
    if (std::regex_match(body, Harmless())) return body;
    if (!std::regex_match(body, parts, Naming())) return mask.Hidden("text", body);
    const std::string behind = parts[4];
    return std::string(parts[1]) + mask.Name("serial", parts[2]) + std::string(parts[3]) +
           (behind.empty() || std::regex_match(behind, Request()) ? behind
                                                                  : mask.Hidden("text", behind));
}

}  // namespace

std::string MaskedRecord(const LogRecord& record, Mask& mask) {
    const std::int64_t seconds = record.time.micros / 1000000;
    const std::int64_t micros = record.time.micros % 1000000;
    char time[64];
    std::snprintf(time, sizeof time, "[%02d,%02d:%02d:%02d.%03d] ", record.time.day,
                  static_cast<int>(seconds / 3600), static_cast<int>(seconds / 60 % 60),
                  static_cast<int>(seconds % 60),
                  static_cast<int>(record.tag == kHexTag ? micros : micros / 1000));
    return time + (IsKnownTag(record.tag) ? record.tag : "other") + ": (Process is " +
           std::to_string(record.process) + ", thread is " + std::to_string(record.thread) +
           ")\r\n\t[" + MaskedBody(record, mask) + "]\r\n";
}

}  // namespace ukey

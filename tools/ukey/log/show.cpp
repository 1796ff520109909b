#include "log/show.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "kesta/ukey/failure.hpp"
#include "kit/language.h"

namespace ukey {
namespace {

constexpr std::size_t kLongestBody = 160;
constexpr std::size_t kMostRemembered = 20000;

// The serial number that LogHex wrote, as text again; empty when it is none.
std::string FromHex(const std::string& hex) {
    std::string text;
    if (hex.empty() || hex.size() % 2 != 0) return {};
    for (std::size_t i = 0; i < hex.size(); i += 2) {
        const std::string pair = hex.substr(i, 2);
        if (pair.find_first_not_of("0123456789ABCDEF") != std::string::npos) return {};
        text += static_cast<char>(std::stoi(pair, nullptr, 16));
    }
    return text;
}

std::string Padded(std::string text, std::size_t width) {
    const std::size_t columns = Columns(text);
    if (columns < width) text.append(width - columns, ' ');
    return text;
}

// How many bytes the character at the start takes; 0 where the bytes are no UTF-8.
std::size_t SizeOf(std::string_view text) {
    const auto lead = static_cast<unsigned char>(text.front());
    const std::size_t size = lead < 0x80   ? 1
                             : lead < 0xC2 ? 0
                             : lead < 0xE0 ? 2
                             : lead < 0xF0 ? 3
                                           : 4;
    if (lead >= 0xF5 || size > text.size()) return 0;
    for (std::size_t i = 1; i < size; ++i) {
        if ((static_cast<unsigned char>(text[i]) & 0xC0U) != 0x80U) return 0;
    }
    return size;
}

// For a terminal: texts come from the key and from clients, in whatever charset they had. What is
// no character of UTF-8 is shown as its bytes, and a long text is cut, never within a character.
std::string Legible(std::string_view text, std::size_t most, std::size_t whole) {
    std::string shown;
    const std::string utf8 = ToUtf8(text);
    for (std::string_view rest = utf8; !rest.empty();) {
        if (shown.size() >= most && whole > kLongestBody) {
            return Fill(_("{1}... ({2} characters)"), {shown, std::to_string(whole)});
        }
        const std::size_t size = SizeOf(rest);
        if (size == 0) {
            char escaped[8];
            std::snprintf(escaped, sizeof escaped, "\\x%02X",
                          static_cast<unsigned>(static_cast<unsigned char>(rest.front())));
            shown += escaped;
        } else {
            shown += Printable(rest.substr(0, size));
        }
        rest.remove_prefix(std::max<std::size_t>(size, 1));
    }
    return shown;
}

// The columns, in the head and in each line.
std::string Line(const std::string& time, const std::string& thread, const std::string& call,
                 const std::string& took, const std::string& result) {
    return Padded(time, 15) + "  " + Padded(thread, 14) + "  " + Padded(call, 20) + "  " +
           Padded(took, 8) + "  " + result;
}

std::string Legible(std::string_view text) {
    return Legible(text, text.size() * 4, 0);
}

}  // namespace

std::string TimeText(const LogTime& time) {
    const std::int64_t millis = time.micros / 1000;
    char text[48];
    std::snprintf(text, sizeof text, "%02d %02d:%02d:%02d.%03d", time.day,
                  static_cast<int>(millis / 3600000), static_cast<int>(millis / 60000 % 60),
                  static_cast<int>(millis / 1000 % 60), static_cast<int>(millis % 1000));
    return text;
}

std::string DurationText(std::int64_t micros) {
    const double millis = static_cast<double>(micros) / 1000;
    char text[48];
    if (micros < 1000) return _("<1 ms");  // the log has no more than milliseconds
    if (micros < 1000000) {
        std::snprintf(text, sizeof text, "%.0f ms", millis);
    } else if (micros < std::int64_t{120} * 1000000) {
        std::snprintf(text, sizeof text, "%.1f s", millis / 1000);
    } else {
        const std::int64_t seconds = micros / 1000000;
        return Fill(_("{1} min {2} s"),
                    {std::to_string(seconds / 60), std::to_string(seconds % 60)});
    }
    return text;
}

std::string LogShow::Message(int code) {
    const auto found = messages_.find(code);
    if (found != messages_.end()) return found->second;
    if (messages_.size() >= kMostRemembered) messages_.clear();
    return messages_[code] = message_(code);
}

std::string LogShow::Body(const LogRecord& record, const char* hidden) const {
    if (record.tag == "szSN:") {
        const std::string serial = FromHex(record.body);
        if (!serial.empty()) return record.body + " = " + serial;
    }
    return showKeys_ ? record.body : Masked(record, hidden);
}

std::string LogShow::ThreadName(const LogCall& call) {
    // Of a log with that many threads the numbers begin anew.
    if (threads_.size() >= kMostRemembered) {
        threads_.clear();
        threadCount_.clear();
    }
    std::size_t& number = threads_[{call.process, call.thread}];
    if (number == 0) number = ++threadCount_[call.process];
    return std::to_string(call.process) + "/" + std::to_string(number);
}

std::string LogShow::Result(const LogCall& call, const std::string& state) {
    if (state == "begun") return Paint(STDOUT_FILENO, Colour::kDim, _("begins"));
    if (!call.code) return Paint(STDOUT_FILENO, Colour::kDim, _("no end logged"));
    if (*call.code == 0) return Paint(STDOUT_FILENO, Colour::kGreen, _("ok"));
    const std::string message = Message(*call.code);
    return Paint(STDOUT_FILENO, Colour::kRed, kesta::CodeText(*call.code)) +
           (message.empty() ? "" : "  " + Printable(message));
}

void LogShow::PrintHead() {
    PrintLine(
        Paint(STDOUT_FILENO, Colour::kDim,
              Line(_("Day and time"), _("Process/thread"), _("Call"), _("Took"), _("Result"))));
}

void LogShow::Print(const LogCall& call, const std::string& state) {
    const LogTime time = call.begin ? *call.begin : *call.end;
    const auto micros = call.Micros();
    PrintLine(Line(TimeText(time), ThreadName(call), Legible(call.operation),
                   micros ? DurationText(*micros) : "-", Result(call, state)));
    if (!withRecords_) return;
    for (const LogRecord& record : call.records) {
        const std::string body = Body(record, _(kHidden));
        PrintLine("    " + TimeText(record.time).substr(3) + "  " +
                  Padded(Legible(record.tag), 20) + "  " +
                  Legible(body, kLongestBody - 40, body.size() + record.cut));
    }
}

Json LogShow::ToJson(const LogCall& call, const std::string& state) {
    Json object = {{"operation", call.operation},
                   {"process", call.process},
                   {"thread", call.thread},
                   {"state", state}};
    if (call.begin) object["begin"] = TimeText(*call.begin);
    if (call.end) object["end"] = TimeText(*call.end);
    if (const auto micros = call.Micros()) object["microseconds"] = *micros;
    if (call.code) {
        object["code"] = *call.code;
        object["codeText"] = kesta::CodeText(*call.code);
        object["message"] = Message(*call.code);
    }
    if (withRecords_) {
        object["records"] = Json::array();
        for (const LogRecord& record : call.records) {
            Json entry = {{"time", TimeText(record.time)},
                          {"tag", record.tag},
                          {"body", Body(record, kHidden)}};
            if (record.cut != 0) entry["cut"] = record.cut;
            object["records"].push_back(std::move(entry));
        }
    }
    return object;
}

}  // namespace ukey

#include "log/show.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "kesta/ukey/failure.hpp"

namespace ukey {
namespace {

constexpr std::size_t kLongestBody = 160;

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

std::string Shortened(const std::string& text) {
    if (text.size() <= kLongestBody) return text;
    return text.substr(0, kLongestBody - 40) + "... (" + std::to_string(text.size()) +
           " characters)";
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
    if (micros < 1000) return "<1 ms";  // the log has no more than milliseconds
    if (micros < 1000000) {
        std::snprintf(text, sizeof text, "%.0f ms", millis);
    } else if (micros < std::int64_t{120} * 1000000) {
        std::snprintf(text, sizeof text, "%.1f s", millis / 1000);
    } else {
        const std::int64_t seconds = micros / 1000000;
        std::snprintf(text, sizeof text, "%d min %d s", static_cast<int>(seconds / 60),
                      static_cast<int>(seconds % 60));
    }
    return text;
}

std::string LogShow::Message(int code) {
    const auto found = messages_.find(code);
    if (found != messages_.end()) return found->second;
    return messages_[code] = message_(code);
}

std::string LogShow::Body(const LogRecord& record) const {
    if (record.tag == "szSN:") {
        const std::string serial = FromHex(record.body);
        if (!serial.empty()) return record.body + " = " + serial;
    }
    return showKeys_ ? record.body : Masked(record);
}

std::string LogShow::ThreadName(const LogCall& call) {
    std::size_t& number = threads_[{call.process, call.thread}];
    if (number == 0) number = ++threadCount_[call.process];
    return std::to_string(call.process) + "/" + std::to_string(number);
}

std::string LogShow::Result(const LogCall& call, const std::string& state) {
    if (state == "begun") return Paint(STDOUT_FILENO, Colour::kDim, "begins");
    if (!call.code) return Paint(STDOUT_FILENO, Colour::kDim, "no end logged");
    if (*call.code == 0) return Paint(STDOUT_FILENO, Colour::kGreen, "ok");
    const std::string message = Message(*call.code);
    return Paint(STDOUT_FILENO, Colour::kRed, kesta::CodeText(*call.code)) +
           (message.empty() ? "" : "  " + Printable(message));
}

void LogShow::PrintHead() {
    PrintLine(Paint(STDOUT_FILENO, Colour::kDim,
                    "Day and time     Process/thread  Call                  Took      Result"));
}

void LogShow::Print(const LogCall& call, const std::string& state) {
    const LogTime time = call.begin ? *call.begin : call.records.front().time;
    const auto micros = call.Micros();
    PrintLine(TimeText(time) + "  " + Padded(ThreadName(call), 14) + "  " +
              Padded(Printable(call.operation), 20) + "  " +
              Padded(micros ? DurationText(*micros) : "-", 8) + "  " + Result(call, state));
    if (!withRecords_) return;
    for (const LogRecord& record : call.records) {
        PrintLine("    " + TimeText(record.time).substr(3) + "  " +
                  Padded(Printable(record.tag), 20) + "  " + Shortened(Printable(Body(record))));
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
            object["records"].push_back(
                {{"time", TimeText(record.time)}, {"tag", record.tag}, {"body", Body(record)}});
        }
    }
    return object;
}

}  // namespace ukey

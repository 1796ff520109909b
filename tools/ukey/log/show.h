// How calls and records of the log are shown.
#ifndef UKEY_LOG_SHOW_H
#define UKEY_LOG_SHOW_H

#include <functional>
#include <map>
#include <string>
#include <utility>

#include "log/pairing.h"
#include "names.h"

namespace ukey {

// "07 12:03:04.056"
std::string TimeText(const LogTime& time);
// "12 ms", "3.2 s", "4 min 10 s"
std::string DurationText(std::int64_t micros);

class LogShow {
public:
    using MessageOf = std::function<std::string(int)>;

    LogShow(bool showKeys, bool withRecords, MessageOf message)
        : showKeys_(showKeys), withRecords_(withRecords), message_(std::move(message)) {}

    // state: "begun", "ended", or "no-end" for a call that logged none.
    Json ToJson(const LogCall& call, const std::string& state);
    // Names of the columns.
    static void PrintHead();
    void Print(const LogCall& call, const std::string& state);

private:
    std::string Result(const LogCall& call, const std::string& state);
    std::string Message(int code);
    std::string Body(const LogRecord& record, const char* hidden) const;
    std::string ThreadName(const LogCall& call);

    const bool showKeys_;
    const bool withRecords_;
    const MessageOf message_;
    std::map<int, std::string> messages_;
    // Thread ids are addresses; a person tells 1 from 2 more easily.
    std::map<std::pair<std::int64_t, std::int64_t>, std::size_t> threads_;
    std::map<std::int64_t, std::size_t> threadCount_;
};

}  // namespace ukey

#endif

// The diagnostic log, read back as records. What does not have exactly a record's shape is an
// error of the test that reads it.
#ifndef KESTA_API_LOG_FILE_H
#define KESTA_API_LOG_FILE_H

#include <string>
#include <vector>

constexpr const char* log_path = "/tmp/ValtoPinpad_KESTA.log";

struct LogRecord {
    int day, hour, minute, second;
    std::string fraction;  // digits as written: three by LogEntry, three to six by LogHex
    std::string tag;
    int process, thread;
    std::string body;
};

using Lines = std::vector<std::string>;

std::string LogText();                // the file as it is; empty when absent
std::vector<LogRecord> LogRecords();  // throws std::runtime_error on a bad shape
std::vector<LogRecord> ParseLog(std::string text);
Lines LogLines();  // "tag|body" of each record
void ForgetLog();
bool LogExists();

#endif

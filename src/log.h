// One record of the diagnostic log. LogEntry and LogHex, declared in commonfunction.h, write them.
#ifndef KESTA_LOG_H
#define KESTA_LOG_H

#include <cstdarg>
#include <cstddef>

namespace kesta {

// A record from its head to its closing bracket. It is formatted into one buffer and written by one
// call when it ends. Every failure is silent: where the file cannot be opened, or a long record
// finds no memory, nothing is written.
class LogRecord {
public:
    // What stands behind the point of the time. LogHex has always written microseconds where
    // LogEntry writes milliseconds; readers of the log know the two apart by it.
    enum class Fraction { kMilliseconds, kMicroseconds };

    LogRecord(const char* tag, Fraction fraction);
    ~LogRecord();
    LogRecord(const LogRecord&) = delete;
    LogRecord& operator=(const LogRecord&) = delete;

    // False where there is nothing to write to.
    bool IsOpen() const { return file_ >= 0; }
    void AddFormatted(const char* format, va_list arguments);
    void AddHexadecimal(const unsigned char* bytes, std::size_t count);

private:
    void AddHead(const char* tag, Fraction fraction);
    // True when so many characters more have room.
    bool Reserve(std::size_t more);

    int cancelState_ = 0;
    int file_ = -1;
    bool whole_ = true;  // false once something found no room
    char* text_ = buffer_;
    std::size_t size_ = 0;
    std::size_t capacity_ = sizeof buffer_;
    char buffer_[4096];
};

}  // namespace kesta

#endif

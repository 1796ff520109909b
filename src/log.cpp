// The diagnostic log: one file, opened, appended to and closed for every record.
//
// A record costs a status call, an open, one write and a close, and next to nothing beside them.
// That is why it is formatted by hand where that is easy, and why the time is broken down by
// localtime_r (localtime would look at the machine's time zone file each time).
#include "log.h"

#include <fcntl.h>
#include <pthread.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string_view>

#include "commonfunction.h"
#include "kesta/places.h"

namespace kesta {

namespace {

using places::kLogFile;
using places::kLogLimit;

void WriteAll(int file, const char* bytes, std::size_t size) {
    while (size != 0) {
        const ssize_t n = write(file, bytes, size);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return;
        bytes += n;
        size -= static_cast<std::size_t>(n);
    }
}

// Day, hour, minute and second, six bits each from the top; what a record says of its time.
std::uint64_t Packed(const tm& time) {
    const auto bits = [](int part, int shift) { return static_cast<std::uint64_t>(part) << shift; };
    return bits(time.tm_mday, 18) | bits(time.tm_hour, 12) | bits(time.tm_min, 6) |
           bits(time.tm_sec, 0);
}

// Local time, packed, in the zone that TZ names at this moment: a client may change it. tzset costs
// no system call while TZ stays as it was; without TZ it costs one, so it is asked once and when TZ
// goes. Without TZ a second is broken down once, for all records that are written in it.
std::uint64_t LocalTime(time_t seconds) {
    static std::atomic<bool> wasNamed{true};  // by whoever asked for local time before the log did
    static std::atomic<std::uint64_t> latest{0};  // the second above its packed time
    const bool named = getenv("TZ") != nullptr;
    const bool asked = wasNamed.exchange(named, std::memory_order_relaxed) || named;
    const std::uint64_t known = latest.load(std::memory_order_relaxed);
    const auto second = static_cast<std::uint64_t>(seconds) << 24;
    if (!asked && (known ^ second) >> 24 == 0) return known;
    if (asked) tzset();
    tm local{};
    localtime_r(&seconds, &local);
    const std::uint64_t time = second | Packed(local);
    latest.store(asked ? 0 : time, std::memory_order_relaxed);
    return time;
}

// What a head holds beside its tag, at most.
constexpr std::size_t kLongestHead = 128;
constexpr std::string_view kEnd = "]\r\n";

char* Put(char* to, std::string_view text) {
    std::memcpy(to, text.data(), text.size());
    return to + text.size();
}

// With zeroes in front up to so many digits.
char* PutDecimal(char* to, long value, int digits) {
    char text[24];
    const char* const end = std::to_chars(text, text + sizeof text, value).ptr;
    for (auto missing = digits - (end - text); missing > 0; --missing) *to++ = '0';
    return Put(to, {text, static_cast<std::size_t>(end - text)});
}

}  // namespace

LogRecord::LogRecord(const char* tag, Fraction fraction) {
    // A waiting thread may be cancelled; the unwinding must not begin in the destructor below.
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &cancelState_);
    struct stat status;
    if (stat(kLogFile, &status) == 0 && status.st_size > kLogLimit) remove(kLogFile);
    file_ = open(kLogFile, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
    if (IsOpen()) AddHead(tag, fraction);
}

LogRecord::~LogRecord() {
    if (IsOpen()) {
        if (Reserve(kEnd.size()))
            size_ = static_cast<std::size_t>(Put(text_ + size_, kEnd) - text_);
        if (whole_) WriteAll(file_, text_, size_);
        close(file_);
        // It may be the text of a key; what found no room stands behind the rest, cut.
        explicit_bzero(text_, whole_ ? size_ : capacity_);
        if (text_ != buffer_) std::free(text_);
    }
    pthread_setcancelstate(cancelState_, nullptr);
}

void LogRecord::AddFormatted(const char* format, va_list arguments) {
    va_list again;
    va_copy(again, arguments);
    const std::size_t left = capacity_ - size_;
    const int printed = vsnprintf(text_ + size_, left, format, arguments);
    const auto length = static_cast<std::size_t>(std::max(printed, 0));
    if (length < left) {
        size_ += length;
    } else if (Reserve(length + 1)) {
        vsnprintf(text_ + size_, length + 1, format, again);
        size_ += length;
    }
    va_end(again);
}

void LogRecord::AddHexadecimal(const unsigned char* bytes, std::size_t count) {
    if (!Reserve(count * 2)) return;
    for (std::size_t i = 0; i < count; ++i) {
        for (const int digit : {bytes[i] >> 4, bytes[i] & 15}) {
            text_[size_++] = "0123456789ABCDEF"[digit];
        }
    }
}

void LogRecord::AddHead(const char* tag, Fraction fraction) {
    timeval now{};
    gettimeofday(&now, nullptr);
    const std::uint64_t time = LocalTime(now.tv_sec);
    const std::string_view name = tag == nullptr ? "(null)" : tag;
    if (!Reserve(name.size() + kLongestHead)) return;
    char* to = text_;
    char separator = '[';
    for (const int shift : {18, 12, 6, 0}) {
        *to++ = separator;
        const int part = static_cast<int>(time >> shift & 63);
        *to++ = static_cast<char>('0' + part / 10);
        *to++ = static_cast<char>('0' + part % 10);
        separator = separator == '[' ? ',' : ':';
    }
    *to++ = '.';
    const bool milliseconds = fraction == Fraction::kMilliseconds;
    to = PutDecimal(to, milliseconds ? now.tv_usec / 1000 : now.tv_usec, 3);
    to = Put(Put(Put(to, "] "), name), ": (Process is ");
    to = Put(PutDecimal(to, getpid(), 1), ", thread is ");
    const auto thread = static_cast<std::int32_t>(static_cast<std::uint32_t>(pthread_self()));
    to = Put(PutDecimal(to, thread, 1), ")\r\n\t[");
    size_ = static_cast<std::size_t>(to - text_);
}

bool LogRecord::Reserve(std::size_t more) {
    if (more <= capacity_ - size_) return true;
    const std::size_t capacity = size_ + more + 64;
    auto* const text = static_cast<char*>(whole_ ? std::malloc(capacity) : nullptr);
    whole_ = text != nullptr;
    if (!whole_) return false;
    std::memcpy(text, text_, size_);
    explicit_bzero(text_, capacity_);
    if (text_ != buffer_) std::free(text_);
    text_ = text;
    capacity_ = capacity;
    return true;
}

}  // namespace kesta

void LogEntry(const char* tag, const char* format, ...) {
    kesta::LogRecord record(tag, kesta::LogRecord::Fraction::kMilliseconds);
    if (!record.IsOpen()) return;
    va_list arguments;
    va_start(arguments, format);
    record.AddFormatted(format, arguments);
    va_end(arguments);
}

void LogHex(const char* tag, const void* data, int length) {
    kesta::LogRecord record(tag, kesta::LogRecord::Fraction::kMicroseconds);
    if (!record.IsOpen() || data == nullptr || length <= 0) return;
    record.AddHexadecimal(static_cast<const unsigned char*>(data),
                          static_cast<std::size_t>(length));
}

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

void writeAll(int file, const char* bytes, std::size_t size) {
    while (size != 0) {
        const ssize_t n = write(file, bytes, size);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return;
        bytes += n;
        size -= static_cast<std::size_t>(n);
    }
}

// Day, hour, minute and second, six bits each from the top; what a record says of its time.
std::uint64_t packed(const tm& time) {
    const auto bits = [](int part, int shift) { return static_cast<std::uint64_t>(part) << shift; };
    return bits(time.tm_mday, 18) | bits(time.tm_hour, 12) | bits(time.tm_min, 6) |
           bits(time.tm_sec, 0);
}

// Local time, packed, in the zone that TZ names at this moment: a client may change it. tzset costs
// no system call while TZ stays as it was; without TZ it costs one, so it is asked once and when TZ
// goes. Without TZ a second is broken down once, for all records that are written in it.
std::uint64_t localTime(time_t seconds) {
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
    const std::uint64_t time = second | packed(local);
    latest.store(asked ? 0 : time, std::memory_order_relaxed);
    return time;
}

// What a head holds beside its tag, at most.
constexpr std::size_t kLongestHead = 128;
constexpr std::string_view kEnd = "]\r\n";

char* put(char* to, std::string_view text) {
    std::memcpy(to, text.data(), text.size());
    return to + text.size();
}

// With zeroes in front up to so many digits.
char* putDecimal(char* to, long value, int digits) {
    char text[24];
    const char* const end = std::to_chars(text, text + sizeof text, value).ptr;
    for (auto missing = digits - (end - text); missing > 0; --missing) *to++ = '0';
    return put(to, {text, static_cast<std::size_t>(end - text)});
}

}  // namespace

LogRecord::LogRecord(const char* tag, Fraction fraction) {
    // A waiting thread may be cancelled; the unwinding must not begin in the destructor below.
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &m_cancelState);
    struct stat status;
    if (stat(kLogFile, &status) == 0 && status.st_size > kLogLimit) remove(kLogFile);
    m_file = open(kLogFile, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
    if (isOpen()) addHead(tag, fraction);
}

LogRecord::~LogRecord() {
    if (isOpen()) {
        if (reserve(kEnd.size()))
            m_size = static_cast<std::size_t>(put(m_text + m_size, kEnd) - m_text);
        if (m_whole) writeAll(m_file, m_text, m_size);
        close(m_file);
        // It may be the text of a key.
        explicit_bzero(m_text, m_size);
        if (m_text != m_buffer) std::free(m_text);
    }
    pthread_setcancelstate(m_cancelState, nullptr);
}

void LogRecord::addFormatted(const char* format, va_list arguments) {
    va_list again;
    va_copy(again, arguments);
    const std::size_t left = m_capacity - m_size;
    const int printed = vsnprintf(m_text + m_size, left, format, arguments);
    const auto length = static_cast<std::size_t>(printed < 0 ? 0 : printed);
    if (length < left) {
        m_size += length;
    } else if (reserve(length + 1)) {
        vsnprintf(m_text + m_size, length + 1, format, again);
        m_size += length;
    }
    va_end(again);
}

void LogRecord::addHexadecimal(const unsigned char* bytes, std::size_t count) {
    if (!reserve(count * 2)) return;
    for (std::size_t i = 0; i < count; ++i) {
        for (const int digit : {bytes[i] >> 4, bytes[i] & 15}) {
            m_text[m_size++] = "0123456789ABCDEF"[digit];
        }
    }
}

void LogRecord::addHead(const char* tag, Fraction fraction) {
    timeval now{};
    gettimeofday(&now, nullptr);
    const std::uint64_t time = localTime(now.tv_sec);
    const std::string_view name = tag == nullptr ? "(null)" : tag;
    if (!reserve(name.size() + kLongestHead)) return;
    char* to = m_text;
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
    to = putDecimal(to, milliseconds ? now.tv_usec / 1000 : now.tv_usec, 3);
    to = put(put(put(to, "] "), name), ": (Process is ");
    to = put(putDecimal(to, getpid(), 1), ", thread is ");
    const auto thread = static_cast<std::int32_t>(static_cast<std::uint32_t>(pthread_self()));
    to = put(putDecimal(to, thread, 1), ")\r\n\t[");
    m_size = static_cast<std::size_t>(to - m_text);
}

bool LogRecord::reserve(std::size_t more) {
    if (more <= m_capacity - m_size) return true;
    const std::size_t capacity = m_size + more + 64;
    auto* const text = static_cast<char*>(m_whole ? std::malloc(capacity) : nullptr);
    m_whole = text != nullptr;
    if (!m_whole) return false;
    std::memcpy(text, m_text, m_size);
    explicit_bzero(m_text, m_size);
    if (m_text != m_buffer) std::free(m_text);
    m_text = text;
    m_capacity = capacity;
    return true;
}

}  // namespace kesta

void LogEntry(const char* tag, const char* format, ...) {
    kesta::LogRecord record(tag, kesta::LogRecord::Fraction::kMilliseconds);
    if (!record.isOpen()) return;
    va_list arguments;
    va_start(arguments, format);
    record.addFormatted(format, arguments);
    va_end(arguments);
}

void LogHex(const char* tag, const void* data, int length) {
    kesta::LogRecord record(tag, kesta::LogRecord::Fraction::kMicroseconds);
    if (!record.isOpen() || data == nullptr || length <= 0) return;
    record.addHexadecimal(static_cast<const unsigned char*>(data),
                          static_cast<std::size_t>(length));
}

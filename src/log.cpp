// The diagnostic log: one file, opened, appended to and closed for every record.
//
// A record costs a status call, an open, one write and a close. That is why the stream is built on
// a descriptor of its own (fopen would seek and ask for the file's block size) and why the time is
// broken down by localtime_r (localtime would look at the machine's time zone file each time).
#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "commonfunction.h"
#include "kesta/places.h"

namespace {

using kesta::places::kLogFile;
using kesta::places::kLogLimit;

ssize_t writeAll(void* cookie, const char* bytes, size_t size) {
    const int file = *static_cast<int*>(cookie);
    size_t done = 0;
    while (done < size) {
        const ssize_t n = write(file, bytes + done, size - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return 0;
        done += static_cast<size_t>(n);
    }
    return static_cast<ssize_t>(size);
}

// Local time in the zone that TZ names at this moment: a client may change it. tzset costs no
// system call while TZ stays as it was; without TZ it costs one, so it is asked once and when TZ
// goes.
tm localTime(time_t seconds) {
    static std::atomic<bool> wasNamed{true};  // by whoever asked for local time before the log did
    const bool named = getenv("TZ") != nullptr;
    if (wasNamed.exchange(named, std::memory_order_relaxed) || named) tzset();
    tm local{};
    localtime_r(&seconds, &local);
    return local;
}

// One record, from its head to its closing bracket. Every failure is silent.
class Record {
public:
    enum class Fraction { kMilliseconds, kMicroseconds };

    Record(const char* tag, Fraction fraction) {
        // A waiting thread may be cancelled; the unwinding must not begin in the destructor below.
        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &m_cancelState);
        struct stat status;
        if (stat(kLogFile, &status) == 0 && status.st_size > kLogLimit) remove(kLogFile);
        m_file = open(kLogFile, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
        if (m_file < 0) return;
        m_stream = fopencookie(&m_file, "w", {nullptr, writeAll, nullptr, nullptr});
        if (m_stream == nullptr) return;
        setvbuf(m_stream, m_buffer, _IOFBF, sizeof m_buffer);
        writeHead(tag, fraction);
    }

    ~Record() {
        if (m_stream != nullptr) {
            fputs("]\r\n", m_stream);
            fclose(m_stream);
        }
        if (m_file >= 0) close(m_file);
        pthread_setcancelstate(m_cancelState, nullptr);
    }

    Record(const Record&) = delete;
    Record& operator=(const Record&) = delete;

    // Null when there is nothing to write to.
    FILE* stream() const { return m_stream; }

private:
    void writeHead(const char* tag, Fraction fraction) {
        timeval now{};
        gettimeofday(&now, nullptr);
        const tm local = localTime(now.tv_sec);
        fprintf(m_stream, "[%02d,%02d:%02d:%02d.", local.tm_mday, local.tm_hour, local.tm_min,
                local.tm_sec);
        // LogHex has always written microseconds where LogEntry writes milliseconds; readers of
        // the log know the two apart by it.
        if (fraction == Fraction::kMilliseconds) {
            fprintf(m_stream, "%03ld] %s: ", static_cast<long>(now.tv_usec / 1000), tag);
        } else {
            fprintf(m_stream, "%03d] %s: ", static_cast<int>(now.tv_usec), tag);
        }
        fprintf(m_stream, "(Process is %d, thread is %d)\r\n\t[", getpid(),
                static_cast<int>(static_cast<std::uint32_t>(pthread_self())));
    }

    int m_cancelState = PTHREAD_CANCEL_ENABLE;
    int m_file = -1;
    FILE* m_stream = nullptr;
    char m_buffer[4096];
};

}  // namespace

void LogEntry(const char* tag, const char* format, ...) {
    const Record record(tag, Record::Fraction::kMilliseconds);
    if (record.stream() == nullptr) return;
    va_list arguments;
    va_start(arguments, format);
    vfprintf(record.stream(), format, arguments);
    va_end(arguments);
}

void LogHex(const char* tag, const void* data, int length) {
    const Record record(tag, Record::Fraction::kMicroseconds);
    if (record.stream() == nullptr || data == nullptr) return;
    const auto* bytes = static_cast<const unsigned char*>(data);
    for (int i = 0; i < length; ++i) fprintf(record.stream(), "%02X", bytes[i]);
}

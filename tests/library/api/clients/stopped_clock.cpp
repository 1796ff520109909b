// A client whose clock stands where the test puts it: what a record says of an instant can be told
// exactly. The program's gettimeofday takes the place of the runtime's for the library too.
#include <sys/time.h>

#include <cstdlib>
#include <ctime>

#include "api_test.h"
#include "exports_cpp.h"

namespace {

constexpr std::time_t the_7th_at_12_03_04 = 1754568184;  // 2025-08-07 12:03:04 UTC
std::time_t seconds = the_7th_at_12_03_04;
long microseconds = 0;

std::string FractionOfEntry(long now) {
    microseconds = now;
    ForgetLog();
    LogEntry("Tag", "x");
    return LogRecords().at(0).fraction;
}

}  // namespace

extern "C" __attribute__((visibility("default"))) int gettimeofday(struct timeval* now,
                                                                   void*) noexcept {
    now->tv_sec = seconds;
    now->tv_usec = microseconds;
    return 0;
}

class StoppedClock : public testing::Test {
protected:
    StoppedClock() {
        setenv("TZ", "UTC", 1);
        tzset();
    }
};

TEST_F(StoppedClock, is_told_by_LogEntry_with_milliseconds) {
    microseconds = 56789;
    LogEntry("Tag", "x");
    EXPECT_THAT(LogText(), testing::StartsWith("[07,12:03:04.056] Tag: (Process is "));
}

TEST_F(StoppedClock, is_told_by_LogHex_with_undivided_microseconds) {
    microseconds = 56789;
    LogHex("Tag", "x", 1);
    EXPECT_THAT(LogText(), testing::StartsWith("[07,12:03:04.56789] Tag: (Process is "));
}

TEST_F(StoppedClock, has_milliseconds_cut_not_rounded) {
    EXPECT_EQ(FractionOfEntry(999999), "999");
    EXPECT_EQ(FractionOfEntry(1999), "001");
    EXPECT_EQ(FractionOfEntry(999), "000");
}

TEST_F(StoppedClock, has_three_to_six_digits_of_microseconds) {
    for (const auto& [now, digits] : {std::pair(0L, "000"), std::pair(7L, "007"),
                                      std::pair(1000L, "1000"), std::pair(999999L, "999999")}) {
        microseconds = now;
        ForgetLog();
        LogHex("Tag", "x", 1);
        EXPECT_EQ(LogRecords().at(0).fraction, digits);
    }
}

// Without TZ a second is broken down once and kept.
TEST_F(StoppedClock, is_read_anew_for_each_second) {
    setenv("TZ", "", 1);
    LogEntry("Tag", "x");
    unsetenv("TZ");
    for (const int later : {0, 0, 1, 0, 1, 2, 3, 59, 0}) {
        seconds = the_7th_at_12_03_04 + later;
        ForgetLog();
        LogEntry("Tag", "x");
        const LogRecord record = LogRecords().at(0);
        EXPECT_EQ((4 + later) % 60, record.second) << later;
    }
}

/* Waits by a clock of the caller's choice, which the C library has offered since 2.30 only. */
#define _POSIX_C_SOURCE 200809L
#include <errno.h>
#include <pthread.h>
#include <time.h>

enum { nanoseconds = 1000000000, longest_sleep = 50000000 };

static int is_past(const struct timespec* moment, const struct timespec* now) {
    return now->tv_sec > moment->tv_sec ||
           (now->tv_sec == moment->tv_sec && now->tv_nsec >= moment->tv_nsec);
}

/* Waits in short steps of the clock that the floor waits by, so that a change of that clock delays
 * the end by one step at most. A return between is a spurious wake-up, which every caller expects.
 */
int pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex, clockid_t clock,
                           const struct timespec* end) {
    struct timespec now;
    if (clock == CLOCK_REALTIME) {
        return pthread_cond_timedwait(condition, mutex, end);
    }
    if (clock_gettime(clock, &now) != 0) {
        return EINVAL;
    }
    if (is_past(end, &now)) {
        return ETIMEDOUT;
    }
    struct timespec step;
    clock_gettime(CLOCK_REALTIME, &step);
    step.tv_nsec += longest_sleep;
    if (step.tv_nsec >= nanoseconds) {
        step.tv_nsec -= nanoseconds;
        ++step.tv_sec;
    }
    const int result = pthread_cond_timedwait(condition, mutex, &step);
    if (result != ETIMEDOUT) {
        return result;
    }
    clock_gettime(clock, &now);
    return is_past(end, &now) ? ETIMEDOUT : 0;
}

/* Asks the stand-ins for newer functions of the C library what the functions themselves would do.
 * Prints one line for each answer that is wrong; none is 0. */
#define _GNU_SOURCE 1
#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <stdio.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

static int wrong = 0;

static void expect(int is_so, const char* claim) {
    if (!is_so) {
        printf("not so: %s\n", claim);
        wrong = 1;
    }
}

static void ask_for_status(void) {
    struct stat file, link, open_file, relative;
    FILE* const stream = fopen("five", "w");
    fputs("bytes", stream);
    fclose(stream);
    expect(symlink("five", "link") == 0, "a link can be made");
    const int fd = open("five", O_RDONLY);

    expect(stat("link", &file) == 0 && S_ISREG(file.st_mode) && file.st_size == 5,
           "stat follows a link and tells the size");
    expect(lstat("link", &link) == 0 && S_ISLNK(link.st_mode), "lstat looks at the link");
    expect(fstat(fd, &open_file) == 0 && open_file.st_ino == file.st_ino,
           "fstat tells the same file");
    expect(
        fstatat(AT_FDCWD, "link", &relative, AT_SYMLINK_NOFOLLOW) == 0 && S_ISLNK(relative.st_mode),
        "fstatat minds its flags");
    expect(stat("nothing", &file) == -1 && errno == ENOENT, "stat sets errno");
    close(fd);
}

static double now(void) {
    struct timespec time;
    clock_gettime(CLOCK_MONOTONIC, &time);
    return (double)time.tv_sec + (double)time.tv_nsec / 1e9;
}

static pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
static pthread_cond_t condition = PTHREAD_COND_INITIALIZER;
static int signalled = 0;

static void* signal_later(void* unused) {
    usleep(100000);
    pthread_mutex_lock(&mutex);
    signalled = 1;
    pthread_cond_signal(&condition);
    pthread_mutex_unlock(&mutex);
    return unused;
}

/* Waits as callers do, until the time is over or what they wait for has come. */
static int wait_until_signalled(long milliseconds) {
    struct timespec end;
    int result = 0;
    clock_gettime(CLOCK_MONOTONIC, &end);
    end.tv_nsec += milliseconds * 1000000;
    end.tv_sec += end.tv_nsec / 1000000000;
    end.tv_nsec %= 1000000000;
    while (!signalled && result == 0) {
        result = pthread_cond_clockwait(&condition, &mutex, CLOCK_MONOTONIC, &end);
    }
    return result;
}

static void wait_by_the_clock(void) {
    pthread_t thread;
    pthread_mutex_lock(&mutex);
    double began = now();
    expect(wait_until_signalled(230) == ETIMEDOUT, "a wait without a signal times out");
    expect(now() - began >= 0.23, "it does not time out early");
    expect(now() - began < 5, "it times out");

    pthread_create(&thread, NULL, signal_later, NULL);
    began = now();
    expect(wait_until_signalled(20000) == 0, "a signal ends a wait");
    expect(now() - began < 10, "it ends it at once");
    pthread_mutex_unlock(&mutex);
    pthread_join(thread, NULL);
}

int main(void) {
    ask_for_status();
    wait_by_the_clock();
    return wrong;
}

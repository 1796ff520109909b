// A client whose threads are cancelled: before a call, and within a wait for events.
// Says what became of each; with or without a recorder it is the same.
#define _POSIX_C_SOURCE 200809L  // nanosleep
#include <pthread.h>
#include <stdatomic.h>
#include <stdio.h>
#include <time.h>

#include "kesta_unified_zrkukey.h"

static atomic_int waiting;

static void tell(const char* what, void* ended) {
    printf("%s: %s\n", what, ended == PTHREAD_CANCELED ? "cancelled" : "returned");
    fflush(stdout);
}

// The call is no point of cancellation: the library holds it back while it writes to its log.
static void* call_with_a_cancellation_pending(void* called) {
    char version[16];
    unsigned length = sizeof version;
    pthread_cancel(pthread_self());
    GetDllVersion(version, &length);
    *(int*)called = 1;
    pthread_testcancel();
    return NULL;
}

static void* wait_for_an_event(void* unused) {
    unsigned type = 0, length = 17;
    char media[17];
    (void)unused;
    waiting = 1;
    WaitForKeyEvent(&type, media, &length);
    return NULL;
}

static void call_on_a_cancelled_thread(void) {
    pthread_t thread;
    void* ended = NULL;
    int called = 0;
    pthread_create(&thread, NULL, call_with_a_cancellation_pending, &called);
    pthread_join(thread, &ended);
    tell(called ? "behind the call" : "in the call", ended);
}

int main(void) {
    const struct timespec moment = {0, 500000000};
    pthread_t thread;
    void* ended = NULL;
    Initialize();
    call_on_a_cancelled_thread();
    pthread_create(&thread, NULL, wait_for_an_event, NULL);
    while (!waiting) nanosleep(&moment, NULL);
    nanosleep(&moment, NULL);
    pthread_cancel(thread);
    pthread_join(thread, &ended);
    tell("in the wait", ended);
    // The process goes on, on this thread and on another.
    call_on_a_cancelled_thread();
    printf("stop: %d\n", StopDetectUKey());
    return 0;
}

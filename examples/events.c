/*
 * events: tells of keys that are inserted and removed. A worker thread waits for them; the main
 * thread ends the wait.
 */
#define _POSIX_C_SOURCE 200809L

#include <pthread.h>
#include <signal.h>
#include <stdatomic.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "kesta_unified_zrkukey.h"

struct worker {
    long wanted; /* end after that many events; 0: never */
    int status;  /* what it came to; to be read when the thread has been joined */
    atomic_bool finished;
};

static int usage(FILE* stream) {
    fputs(
        "usage: events [COUNT [SECONDS]]\n"
        "\n"
        "Prints a line for each key that is inserted or removed, until COUNT events have been\n"
        "seen (0: no limit), or SECONDS have passed, or the program is interrupted.\n"
        "\n"
        "example:\n"
        "  events 2 30\n"
        "exit status: 3 when it ended before COUNT events were seen.\n",
        stream);
    return stream == stdout ? EXIT_SUCCESS : 2;
}

/* Tells what failed, with the code and its message text. */
static int failed(const char* what, int code) {
    char text[1024] = "no message text";
    int room = sizeof text;
    if (GetErrorMsg(code, text, &room) != KESTA_OK && code == KESTA_NOT_BOUND) {
        strcpy(text, "the token library is not installed");
    }
    fprintf(stderr, "events: %s: %s (%d)\n", what, text, code);
    return EXIT_FAILURE;
}

/* Tells of one event. False when the wait was stopped or has failed. */
static bool next_event(struct worker* self) {
    char media_id[17] = "";
    unsigned int kind = 0, length = 0;
    int code = WaitForKeyEvent(&kind, media_id, &length);
    if (kind == KESTA_EVENT_STOPPED) return false;
    if (code != KESTA_OK && kind == 0) {
        self->status = failed("waiting for a key", code);
        return false;
    }
    if (kind == KESTA_EVENT_ARRIVAL) printf("inserted %s\n", media_id);
    if (kind == KESTA_EVENT_REMOVAL) printf("removed %s\n", media_id);
    /* An arrived key that cannot be read is an event all the same. */
    if (code != KESTA_OK) failed("reading the inserted key", code);
    return true;
}

static void* wait_for_events(void* argument) {
    struct worker* self = argument;
    long seen = 0;
    while ((self->wanted == 0 || seen < self->wanted) && next_event(self)) ++seen;
    if (self->wanted != 0 && seen < self->wanted && self->status == EXIT_SUCCESS) self->status = 3;
    atomic_store(&self->finished, true);
    return NULL;
}

/* Returns when the worker has finished, at the latest some moments after an interrupt or when the
 * time is up. */
static void supervise(struct worker* worker, const sigset_t* interrupts, long seconds) {
    const struct timespec moment = {0, 50 * 1000 * 1000};
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    const time_t end = now.tv_sec + seconds;
    bool stopping = false;
    while (!atomic_load(&worker->finished)) {
        if (sigtimedwait(interrupts, NULL, &moment) > 0) stopping = true;
        clock_gettime(CLOCK_MONOTONIC, &now);
        if (seconds > 0 && now.tv_sec >= end) stopping = true;
        /* A stop that comes just before the wait begins is lost: repeat it. */
        if (stopping) StopDetectUKey();
    }
}

/* A count of at least 0; -1 for any other text. */
static long number(const char* text) {
    char* end;
    long value = strtol(text, &end, 10);
    return *text != '\0' && *end == '\0' && value >= 0 ? value : -1;
}

int main(int argc, char** argv) {
    if (argc == 2 && strcmp(argv[1], "--help") == 0) return usage(stdout);
    struct worker worker = {.wanted = argc > 1 ? number(argv[1]) : 0};
    long seconds = argc > 2 ? number(argv[2]) : 0;
    if (argc > 3 || worker.wanted < 0 || seconds < 0) return usage(stderr);
    setvbuf(stdout, NULL, _IOLBF, 0);

    int code = Initialize();
    if (code != KESTA_OK) return failed("loading the token library", code);

    sigset_t interrupts;
    sigemptyset(&interrupts);
    sigaddset(&interrupts, SIGINT);
    sigaddset(&interrupts, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &interrupts, NULL);

    pthread_t thread;
    if (pthread_create(&thread, NULL, wait_for_events, &worker) != 0) {
        fputs("events: cannot start a thread\n", stderr);
        return EXIT_FAILURE;
    }
    supervise(&worker, &interrupts, seconds);
    pthread_join(thread, NULL);
    return worker.status;
}

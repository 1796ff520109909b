// Does what may end a wait from outside while another thread is inside WaitForKeyEvent, many times
// over, each time in a child of its own. Such a child must end with the code that it chose.
//   leaves_while_waiting WAY PLACE [ROUNDS]
//   WAY    exit, return, _exit: leaves the process; fork: its child asks the library;
//          cancel: cancels the thread, and asks the library
//   PLACE  call: inside the event library; sleep: between its calls; throw: while the event library
//          throws; events: while one wait follows the other; last: a wait behind the destructors of
//          the library
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "waiting_thread.h"

// ThreadSanitizer would wait a second at each exit, and end what forks beside a thread.
extern "C" __attribute__((visibility("default"))) const char* __tsan_default_options() {
    return "atexit_sleep_ms=0:die_after_fork=0";
}

namespace {

constexpr int chosen_code = 23;
std::atomic<int> polls{0};
pthread_t waiting_thread;

void AnswerPolls(const std::string& place) {
    recording::Answer& answer = TheRecorder().On("ValtoT_WaitForEvent").Returns(1);
    if (place == "events" || place == "last") answer.Returns(0).Writes(2, EventRecord(2, 5));
    answer.Does([place](const recording::Call&) {
        ++polls;
        if (place == "throw") throw 1;
        while (place == "call") pause();
    });
}

void* WaitForEver(void*) {
    for (;;) {
        unsigned kind = 0, length = 0;
        char mediaId[17];
        WaitForKeyEvent(&kind, mediaId, &length);
    }
}

// A wait that ends with an event at once, as a client's next one does, or that of a thread that
// outlives the destructors.
void WaitForOneEvent() {
    unsigned kind = 0, length = 0;
    char mediaId[17] = {};
    const int code = WaitForKeyEvent(&kind, mediaId, &length);
    if (code != 0 || kind != 2 || std::string(mediaId) != "0123456789ABCDEF") std::abort();
}

void StartWaiting(const std::string& place) {
    OfferSlots({5});
    TheRecorder().On("ValtoT_GetDeviceInfo").Writes(2, DeviceRecord("0123456789ABCDEF"));
    AnswerPolls(place);
    if (place == "last") {
        WaitForOneEvent();  // fills the slot map
        TheRecorder().WhenLeaving(WaitForOneEvent);
        return;
    }
    pthread_create(&waiting_thread, nullptr, WaitForEver, nullptr);
    const int enough = place == "call" ? 1 : 2;
    while (polls < enough) usleep(500);
}

bool EndedAsChosen(pid_t child) {
    int status = 0;
    if (waitpid(child, &status, 0) != child) return false;
    if (WIFEXITED(status) && WEXITSTATUS(status) == chosen_code) return true;
    std::fprintf(stderr, "the process ended with status 0x%X\n", static_cast<unsigned>(status));
    return false;
}

void ask_the_library() {
    TheRecorder().On("ValtoT_WaitForEvent").Returns(0).Writes(2, EventRecord(2, 5)).Does({});
    if (VerifyPIN("A1") != 0 || StopDetectUKey() != 0) std::abort();
    WaitForOneEvent();
}

void ask_in_a_child() {
    const pid_t child = fork();
    if (child == 0) {
        ask_the_library();
        std::exit(chosen_code);
    }
    if (!EndedAsChosen(child)) std::abort();
}

void cancel_and_ask() {
    void* result = nullptr;
    pthread_cancel(waiting_thread);
    pthread_join(waiting_thread, &result);
    if (result != PTHREAD_CANCELED) std::abort();
    ask_the_library();
}

void Leave(const std::string& way) {
    if (way == "fork") ask_in_a_child();
    if (way == "cancel") cancel_and_ask();
    if (way == "_exit") _exit(chosen_code);
    if (way != "return") std::exit(chosen_code);
}

}  // namespace

int main(int count, char** arguments) {
    if (count < 3) return EXIT_FAILURE;
    const std::string way = arguments[1], place = arguments[2];
    const int rounds = count > 3 ? std::atoi(arguments[3]) : 20;
    for (int round = 0; round < rounds; ++round) {
        const pid_t child = fork();
        if (child == 0) {
            StartWaiting(place);
            Leave(way);
            return chosen_code;
        }
        if (!EndedAsChosen(child)) return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}

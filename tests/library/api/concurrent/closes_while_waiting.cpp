// A client that loads the library itself and closes it while another thread is inside
// WaitForKeyEvent, many times over, each time in a child of its own. The thread's wait goes on to
// its event, and the child ends with the code that it chose.
//   closes_while_waiting LIBRARY PLACE [ROUNDS]
//   PLACE  call: inside the event library; sleep: between its calls; events: while one wait follows
//          the other
#include <dlfcn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

#include "recording.h"

extern "C" __attribute__((visibility("default"))) const char* __tsan_default_options() {
    return "atexit_sleep_ms=0";
}

namespace {

using Wait = int(unsigned*, char*, unsigned*);

constexpr int chosen_code = 23;
std::atomic<int> polls{0};
std::atomic<bool> closed{false};

void answer_polls(const std::string& place) {
    recording::TheRecorder().AnswerWith([place](const recording::Call& call) {
        recording::Answer answer;
        if (call.entry != "ValtoT_WaitForEvent") return answer;
        // Kind 1 at byte 0: a key arrives.
        answer.Returns(place == "events" || closed ? 0 : 1).Writes(2, std::string("\1\0\0\0", 4));
        return answer.Does([place](const recording::Call&) {
            ++polls;
            while (place == "call" && !closed) usleep(200);
        });
    });
}

void close_beside_a_wait(const char* library, const std::string& place) {
    void* const handle = dlopen(library, RTLD_NOW);
    if (handle == nullptr) std::abort();
    Wait* const wait = reinterpret_cast<Wait*>(dlsym(handle, "WaitForKeyEvent"));
    answer_polls(place);
    std::thread waiting([&] {
        unsigned kind = 0, length = 0;
        char media_id[17];
        while (!closed || kind != 1) wait(&kind, media_id, &length);
    });
    const int enough = place == "call" ? 1 : 2;
    while (polls < enough) usleep(500);
    if (dlclose(handle) != 0) std::abort();
    closed = true;
    waiting.join();
}

}  // namespace

int main(int count, char** arguments) {
    if (count < 3) return EXIT_FAILURE;
    const int rounds = count > 3 ? std::atoi(arguments[3]) : 20;
    for (int round = 0; round < rounds; ++round) {
        const pid_t child = fork();
        if (child == 0) {
            close_beside_a_wait(arguments[1], arguments[2]);
            std::exit(chosen_code);
        }
        int status = 0;
        waitpid(child, &status, 0);
        if (!WIFEXITED(status) || WEXITSTATUS(status) != chosen_code) {
            std::fprintf(stderr, "the process ended with status 0x%X\n",
                         static_cast<unsigned>(status));
            return EXIT_FAILURE;
        }
    }
    return EXIT_SUCCESS;
}

#include "kit/interrupt.h"

namespace kit {
namespace {

volatile sig_atomic_t came = 0;

extern "C" void Note(int) {
    came = 1;
}

}  // namespace

Interrupt::Interrupt() {
    came = 0;
    struct sigaction action {};
    action.sa_handler = Note;
    ::sigaction(SIGINT, &action, &oldInterrupt_);
    ::sigaction(SIGTERM, &action, &oldTerminate_);
}

Interrupt::~Interrupt() {
    ::sigaction(SIGINT, &oldInterrupt_, nullptr);
    ::sigaction(SIGTERM, &oldTerminate_, nullptr);
}

bool Interrupt::Came() {
    return came != 0;
}

}  // namespace kit

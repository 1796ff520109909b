// The keyboard's interrupt, for the commands that go on until they are told to stop.
#ifndef UKEY_INTERRUPT_H
#define UKEY_INTERRUPT_H

#include <signal.h>

namespace ukey {

// While it lives, an interrupt or a request to end sets a flag instead of ending the process.
class Interrupt {
public:
    Interrupt();
    ~Interrupt();
    Interrupt(const Interrupt&) = delete;
    Interrupt& operator=(const Interrupt&) = delete;
    static bool Came();

private:
    struct sigaction oldInterrupt_ {};
    struct sigaction oldTerminate_ {};
};

}  // namespace ukey

#endif

// The keyboard's interrupt, for the commands that go on until they are told to stop.
#ifndef KIT_INTERRUPT_H
#define KIT_INTERRUPT_H

#include <signal.h>

namespace kit {

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

}  // namespace kit

#endif

// Keeps a fork apart from what the key is doing. A thread that computes holds locks, ours and those
// of OpenSSL and SQLite, which nobody would open in the child; so a fork waits until no call is at
// work. It does not wait for a person: whoever waits for one steps out of the gate meanwhile.
#ifndef SOFTKEY_TOKEN_FORK_GATE_H
#define SOFTKEY_TOKEN_FORK_GATE_H

namespace softkey {

// A call at work.
class AtWork {
public:
    AtWork();
    ~AtWork();
    AtWork(const AtWork&) = delete;
    AtWork& operator=(const AtWork&) = delete;
};

// A pause in a call at work, in which it holds nothing.
class Pausing {
public:
    Pausing();
    ~Pausing();
    Pausing(const Pausing&) = delete;
    Pausing& operator=(const Pausing&) = delete;
};

// True, once, in a process that was forked since it was asked last.
bool WasForked();
// Whether that will be true when it is asked next.
bool IsNewChild();

}  // namespace softkey

#endif

#include "softkey/token/fork_gate.h"

#include <pthread.h>

#include <atomic>

namespace softkey {
namespace {

std::atomic<bool> wasForked{false};

void Prepare(pthread_rwlock_t* gate) {
    pthread_rwlockattr_t attributes;
    pthread_rwlockattr_init(&attributes);
    // Calls that follow each other closely must not keep a fork waiting.
    pthread_rwlockattr_setkind_np(&attributes, PTHREAD_RWLOCK_PREFER_WRITER_NONRECURSIVE_NP);
    pthread_rwlock_init(gate, &attributes);
    pthread_rwlockattr_destroy(&attributes);
}

// Never destroyed, as it has no destructor: a thread may be inside when the process ends. It needs
// no memory either: nobody catches what is thrown here.
pthread_rwlock_t* Made() {
    static pthread_rwlock_t gate;
    static const bool prepared = (Prepare(&gate), true);
    static_cast<void>(prepared);
    return &gate;
}

// The lock knows its writer by a thread's number, which is another in the child: it is made anew.
void ReopenInChild() {
    wasForked = true;
    Prepare(Made());
}

pthread_rwlock_t& Gate() {
    static const int registered =
        pthread_atfork([] { pthread_rwlock_wrlock(Made()); }, [] { pthread_rwlock_unlock(Made()); },
                       ReopenInChild);
    static_cast<void>(registered);
    return *Made();
}

}  // namespace

AtWork::AtWork() {
    pthread_rwlock_rdlock(&Gate());
}

AtWork::~AtWork() {
    pthread_rwlock_unlock(&Gate());
}

Pausing::Pausing() {
    pthread_rwlock_unlock(&Gate());
}

Pausing::~Pausing() {
    pthread_rwlock_rdlock(&Gate());
}

bool WasForked() {
    return IsNewChild() && wasForked.exchange(false);
}

bool IsNewChild() {
    return wasForked.load(std::memory_order_relaxed);
}

}  // namespace softkey

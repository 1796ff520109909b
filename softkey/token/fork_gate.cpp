#include "softkey/token/fork_gate.h"

#include <pthread.h>

#include <atomic>

namespace softkey {
namespace {

std::atomic<bool> wasForked{false};

// Calls that follow each other closely must not keep a fork waiting: it goes first.
constexpr pthread_rwlock_t kOpen = PTHREAD_RWLOCK_WRITER_NONRECURSIVE_INITIALIZER_NP;

// Never destroyed, as it has no destructor: a thread may be inside when the process ends.
pthread_rwlock_t gate = kOpen;

// The lock knows its writer by a thread's number, which is another in the child: it is made anew.
void ReopenInChild() {
    wasForked = true;
    gate = kOpen;
}

pthread_rwlock_t& Gate() {
    static const int registered = pthread_atfork(
        [] { pthread_rwlock_wrlock(&gate); }, [] { pthread_rwlock_unlock(&gate); }, ReopenInChild);
    static_cast<void>(registered);
    return gate;
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

// libR7Token_KESTA.so of the software key. One feed serves the process: each event reaches it once,
// whichever of its threads waits. Nothing here is ever destroyed, since a thread may still be
// waiting while the process runs its exit handlers.
#include "kesta/event_library.h"

#include <dlfcn.h>
#include <pthread.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <deque>
#include <exception>
#include <mutex>
#include <new>
#include <optional>
#include <stdexcept>
#include <thread>

#include "softkey/codes.h"
#include "softkey/events/event_feed.h"
#include "softkey/misbehaviour/misbehaviour.h"
#include "softkey/result.h"
#include "softkey/store/home.h"
#include "softkey/token/look_request.h"

#define KESTA_EVENT_EXPORT extern "C" __attribute__((visibility("default")))

namespace softkey {
namespace {

// A key that has just arrived is asked with these flags.
constexpr std::uint32_t kOfArrival = 0xE0000;

struct Shared {
    std::mutex mutex;
    EventFeed feed;
    std::deque<Event> echoes;   // false events that a plan asked for; they come before true ones
    std::optional<Event> last;  // the event that was delivered last
    bool contextOpen = false;
};

// No fork falls into a locked stretch, since nobody would open the lock in the child.
Shared& State() {
    static Shared* const state = [] {
        static Shared* made = nullptr;
        made = new Shared;
        pthread_atfork([] { made->mutex.lock(); }, [] { made->mutex.unlock(); },
                       [] { made->mutex.unlock(); });
        return made;
    }();
    return *state;
}

// Asks the token library, when this process has it, to drop the secrets of a key that is gone.
void PassRemovalOn() {
    void* const library = dlopen("libKestaZRK.so", RTLD_LAZY | RTLD_NOLOAD);
    if (library == nullptr) return;
    const auto look =
        reinterpret_cast<int (*)(const char*, void*, std::uint32_t*)>(dlsym(library, "GetPinInfo"));
    if (look != nullptr) look(kLookRequest, nullptr, nullptr);
    dlclose(library);
}

// Runs the work of one entry point and turns what it throws into a code.
template <typename Work>
int Guarded(Work work) {
    try {
        return work();
    } catch (const Failure& failure) {
        return failure.code();
    } catch (const std::bad_alloc&) {
        return kNoMemory;
    } catch (const std::exception&) {
        return kStateUnreachable;
    }
}

Misbehaviour Plan(const char* entryPoint) {
    const Misbehaviour plan = NextMisbehaviour(StateHome(), entryPoint);
    if (plan.delayMs != 0) std::this_thread::sleep_for(std::chrono::milliseconds(plan.delayMs));
    return plan;
}

void FillRecord(const std::string& mediaId, _S_DEV_CONFIG& record) {
    std::memset(&record, 0, sizeof record);
    std::memcpy(record.szMediaId, mediaId.data(),
                std::min(mediaId.size(), sizeof record.szMediaId));
}

int ListSlots(bool presentOnly, std::uint32_t* slotIds, std::uint32_t& count) {
    Shared& state = State();
    const std::lock_guard<std::mutex> lock(state.mutex);
    const std::uint32_t room = slotIds == nullptr ? 0 : count;
    std::uint32_t found = 0;
    for (const KeyRecord& key : state.feed.Keys()) {
        if (presentOnly && !key.inserted) continue;
        if (found < room) slotIds[found] = key.slot;
        if (found < room || slotIds == nullptr) ++found;
    }
    count = found;
    return kOk;
}

int DescribeDevice(std::uint32_t slotId, std::uint32_t flags, _S_DEV_CONFIG& record) {
    Shared& state = State();
    const std::lock_guard<std::mutex> lock(state.mutex);
    // The key whose arrival was delivered a moment ago may be gone already; its event knows it.
    const auto& last = state.last;
    if (flags == kOfArrival && last && last->slot == slotId && last->kind == EventKind::kInserted) {
        FillRecord(last->mediaId, record);
        return kOk;
    }
    for (const KeyRecord& key : state.feed.Keys()) {
        if (key.slot != slotId || !key.inserted) continue;
        FillRecord(key.mediaId, record);
        return kOk;
    }
    return kKeyAbsent;
}

enum class Waiting { kNothing, kEcho, kEvent };

Waiting WhatIsWaiting() {
    Shared& state = State();
    Waiting waiting = Waiting::kEcho;
    bool removal = false;
    {
        const std::lock_guard<std::mutex> lock(state.mutex);
        if (!state.contextOpen) throw Failure(kNoContext);
        if (state.echoes.empty()) {
            waiting = state.feed.Next() != nullptr ? Waiting::kEvent : Waiting::kNothing;
        }
        removal = state.feed.SawRemoval();
    }
    if (removal) PassRemovalOn();
    return waiting;
}

// Queues the false events by which the plan lets a true one be followed.
void QueueEchoes(const Misbehaviour& plan, const Event& event, std::deque<Event>& echoes) {
    Event opposite = event;
    opposite.kind = event.kind == EventKind::kInserted ? EventKind::kRemoved : EventKind::kInserted;
    for (std::uint32_t i = 0; i < plan.repeat; ++i) echoes.push_back(event);
    for (std::uint32_t i = 0; i < plan.bounce; ++i) {
        echoes.push_back(opposite);
        echoes.push_back(event);
    }
}

int Deliver(const Misbehaviour& plan, VALTO_EVENT_INFO& info) {
    Shared& state = State();
    const std::lock_guard<std::mutex> lock(state.mutex);
    if (!state.echoes.empty()) {
        state.last = state.echoes.front();
        state.echoes.pop_front();
    } else if (state.feed.Next() != nullptr) {
        state.last = state.feed.Take();
        QueueEchoes(plan, *state.last, state.echoes);
    } else {
        return kNoEvent;  // another thread was quicker
    }
    std::memset(&info, 0, sizeof info);
    info.u32EventType = static_cast<std::uint32_t>(state.last->kind);
    info.ei.slotEvent.u32SlotID = state.last->slot;
    return kOk;
}

}  // namespace
}  // namespace softkey

using namespace softkey;

KESTA_EVENT_EXPORT int ValtoT_GetSlotList(std::uint32_t present, std::uint32_t* slotIds,
                                          std::uint32_t* count) {
    return Guarded([&]() -> int {
        if (count == nullptr) return kBadArgument;
        const Misbehaviour plan = Plan("ValtoT_GetSlotList");
        if (plan.code) return *plan.code;
        const int result = ListSlots(present != 0, slotIds, *count);
        if (plan.length) *count = *plan.length;
        return result;
    });
}

KESTA_EVENT_EXPORT int ValtoT_GetDeviceInfo(std::uint32_t slotId, std::uint32_t flags,
                                            _S_DEV_CONFIG* record) {
    return Guarded([&]() -> int {
        if (record == nullptr) return kBadArgument;
        const Misbehaviour plan = Plan("ValtoT_GetDeviceInfo");
        if (plan.code) return *plan.code;
        return DescribeDevice(slotId, flags, *record);
    });
}

KESTA_EVENT_EXPORT int ValtoT_ContextInit(std::uint32_t* context) {
    return Guarded([&]() -> int {
        if (context == nullptr) return kBadArgument;
        const Misbehaviour plan = Plan("ValtoT_ContextInit");
        if (plan.code) return *plan.code;
        Shared& state = State();
        const std::lock_guard<std::mutex> lock(state.mutex);
        state.feed.Begin();
        state.contextOpen = true;
        *context = 1;
        return kOk;
    });
}

// A plan counts the deliveries of true events, not the polls, so that it says the same on every
// run.
KESTA_EVENT_EXPORT int ValtoT_WaitForEvent(std::uint32_t, std::uint32_t, VALTO_EVENT_INFO* event,
                                           std::uint32_t*) {
    bool throws = false;
    const int result = Guarded([&]() -> int {
        if (event == nullptr) return kBadArgument;
        const Waiting waiting = WhatIsWaiting();
        if (waiting == Waiting::kNothing) return kNoEvent;
        Misbehaviour plan;
        if (waiting == Waiting::kEvent) plan = Plan("ValtoT_WaitForEvent");
        throws = plan.throws;
        if (throws) return kNoEvent;
        return plan.code ? *plan.code : Deliver(plan, *event);
    });
    if (throws) throw std::runtime_error("the misbehaviour plan wants an exception here");
    return result;
}

KESTA_EVENT_EXPORT int ValtoT_ContextFinal(void) {
    return Guarded([]() -> int {
        const Misbehaviour plan = Plan("ValtoT_ContextFinal");
        if (plan.code) return *plan.code;
        Shared& state = State();
        const std::lock_guard<std::mutex> lock(state.mutex);
        if (!state.contextOpen) return kNoContext;
        state.contextOpen = false;
        return kOk;
    });
}

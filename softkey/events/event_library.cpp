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
#include <mutex>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

#include "softkey/codes.h"
#include "softkey/events/event_feed.h"
#include "softkey/misbehaviour/misbehaviour.h"
#include "softkey/misbehaviour/spoiled_output.h"
#include "softkey/store/home.h"
#include "softkey/token/guarded.h"
#include "softkey/token/look_request.h"

#define KESTA_EVENT_EXPORT extern "C" __attribute__((visibility("default")))

namespace softkey {
namespace {

// A key that has just arrived is asked with these flags.
constexpr std::uint32_t kOfArrival = 0xE0000;

// An event that a plan keeps back until so many others were delivered.
struct HeldEvent {
    Event event;
    std::uint32_t others;
};

struct Shared {
    std::mutex mutex;
    EventFeed feed;
    std::deque<Event> echoes;  // events that a plan asked for; they come before true ones
    std::deque<HeldEvent> held;
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

// The serial number of the key in a slot, as far as there is one.
std::string SerialIn(std::uint32_t slotId) {
    Shared& state = State();
    const std::lock_guard<std::mutex> lock(state.mutex);
    for (const KeyRecord& key : state.feed.Keys()) {
        if (key.slot == slotId) return key.serial;
    }
    return {};
}

template <typename Work>
int AsPlanned(const Misbehaviour& plan, Work work) {
    WaitAsPlanned(plan, StateHome(),
                  [](std::chrono::milliseconds time) { std::this_thread::sleep_for(time); });
    FailAsPlanned(plan);
    if (plan.code) return *plan.code;
    const int result = work(plan);
    return result == kOk && plan.codeAfter ? *plan.codeAfter : result;
}

template <typename Work>
int Enter(const char* entryPoint, const void* required, Work work) {
    const WholeOpenssl openssl;
    return Guarded([&]() -> int {
        if (required == nullptr) return kBadArgument;
        return AsPlanned(NextMisbehaviour(StateHome(), entryPoint), work);
    });
}

void FillRecord(const std::string& mediaId, const Misbehaviour& plan, _S_DEV_CONFIG& record) {
    if (plan.AnswerIsLost()) return;
    std::memset(&record, 0, sizeof record);
    const SpoiledText text(plan, mediaId, sizeof record.szMediaId);
    std::memcpy(record.szMediaId, text.written.data(),
                std::min(text.written.size(), sizeof record.szMediaId));
}

bool Has(const std::vector<std::uint32_t>& slots, std::uint32_t slot) {
    return std::find(slots.begin(), slots.end(), slot) != slots.end();
}

// Those of the keys, then those of devices that are none.
std::vector<std::uint32_t> Slots(Shared& state, bool presentOnly) {
    std::vector<std::uint32_t> slots;
    for (const KeyRecord& key : state.feed.Keys()) {
        if (key.inserted || !presentOnly) slots.push_back(key.slot);
    }
    for (const std::uint32_t slot : ForeignSlots(StateHome())) {
        if (!Has(slots, slot)) slots.push_back(slot);
    }
    return slots;
}

int ListSlots(bool presentOnly, const Misbehaviour& plan, std::uint32_t* slotIds,
              std::uint32_t& count) {
    Shared& state = State();
    const std::lock_guard<std::mutex> lock(state.mutex);
    std::vector<std::uint32_t> slots = Slots(state, presentOnly);
    if (plan.AnswerIsLost()) return kOk;
    if (slotIds != nullptr) slots.resize(std::min<std::size_t>(slots.size(), count));
    if (plan.output == Misbehaviour::Output::kCut) slots.resize(slots.size() / 2);
    if (plan.output == Misbehaviour::Output::kGarbage) {
        for (std::uint32_t& slot : slots)
            std::memcpy(&slot, Noise(sizeof slot).data(), sizeof slot);
    }
    if (slotIds != nullptr) std::copy(slots.begin(), slots.end(), slotIds);
    count = plan.length.value_or(static_cast<std::uint32_t>(slots.size()));
    return kOk;
}

int DescribeDevice(std::uint32_t slotId, std::uint32_t flags, const Misbehaviour& plan,
                   _S_DEV_CONFIG& record) {
    Shared& state = State();
    const std::lock_guard<std::mutex> lock(state.mutex);
    // The key whose arrival was delivered a moment ago may be gone already; its event knows it.
    const auto& last = state.last;
    if (flags == kOfArrival && last && last->slot == slotId && last->kind == EventKind::kInserted &&
        !last->serial.empty()) {
        FillRecord(last->mediaId, plan, record);
        return kOk;
    }
    for (const KeyRecord& key : state.feed.Keys()) {
        if (key.slot != slotId || !key.inserted) continue;
        FillRecord(key.mediaId, plan, record);
        return kOk;
    }
    return Has(ForeignSlots(StateHome()), slotId) ? kNotSupported : kKeyAbsent;
}

enum class Waiting { kNothing, kEcho, kEvent };

// What is there to be delivered; of an event also which key it is about.
Waiting WhatIsWaiting(std::string& serial) {
    Shared& state = State();
    Waiting waiting = Waiting::kEcho;
    bool removal = false;
    {
        const std::lock_guard<std::mutex> lock(state.mutex);
        if (!state.contextOpen) throw Failure(kNoContext);
        if (state.echoes.empty()) {
            const Event* const next = state.feed.Next();
            waiting = next != nullptr ? Waiting::kEvent : Waiting::kNothing;
            if (next != nullptr) serial = next->serial;
        }
        removal = state.feed.SawRemoval();
    }
    if (removal) PassRemovalOn();
    return waiting;
}

// Queues the false events by which the plan lets a true one be followed, and those that it kept
// back until now.
void QueueEchoes(const Misbehaviour& plan, const Event& event, Shared& state) {
    Event opposite = event;
    opposite.kind = event.kind == EventKind::kInserted ? EventKind::kRemoved : EventKind::kInserted;
    for (std::uint32_t i = 0; i < plan.repeat; ++i) state.echoes.push_back(event);
    for (std::uint32_t i = 0; i < plan.bounce; ++i) {
        state.echoes.push_back(opposite);
        state.echoes.push_back(event);
    }
    for (HeldEvent& held : state.held) {
        if (--held.others == 0) state.echoes.push_back(held.event);
    }
    const auto isDue = [](const HeldEvent& held) { return held.others == 0; };
    state.held.erase(std::remove_if(state.held.begin(), state.held.end(), isDue), state.held.end());
}

// False when there was none, or the plan loses it or keeps it back.
bool TakeEvent(const Misbehaviour& plan, Shared& state) {
    if (!state.echoes.empty()) {
        state.last = state.echoes.front();
        state.echoes.pop_front();
        return true;
    }
    if (state.feed.Next() == nullptr) return false;  // another thread was quicker
    Event event = state.feed.Take();
    if (plan.loses) return false;
    if (plan.late != 0) {
        state.held.push_back({std::move(event), plan.late});
        return false;
    }
    state.last = std::move(event);
    QueueEchoes(plan, *state.last, state);
    return true;
}

int Deliver(const Misbehaviour& plan, VALTO_EVENT_INFO& info) {
    Shared& state = State();
    const std::lock_guard<std::mutex> lock(state.mutex);
    if (!TakeEvent(plan, state)) return kNoEvent;
    if (plan.AnswerIsLost()) return kOk;
    std::memset(&info, 0, sizeof info);
    if (plan.output == Misbehaviour::Output::kGarbage) {
        std::memcpy(&info, Noise(sizeof info).data(), sizeof info);
        return kOk;
    }
    info.u32EventType = static_cast<std::uint32_t>(state.last->kind);
    info.ei.slotEvent.u32SlotID = state.last->slot;
    return kOk;
}

}  // namespace
}  // namespace softkey

using namespace softkey;

KESTA_EVENT_EXPORT int ValtoT_GetSlotList(std::uint32_t present, std::uint32_t* slotIds,
                                          std::uint32_t* count) {
    return Enter("ValtoT_GetSlotList", count, [&](const Misbehaviour& plan) {
        return ListSlots(present != 0, plan, slotIds, *count);
    });
}

KESTA_EVENT_EXPORT int ValtoT_GetDeviceInfo(std::uint32_t slotId, std::uint32_t flags,
                                            _S_DEV_CONFIG* record) {
    return Guarded([&]() -> int {
        if (record == nullptr) return kBadArgument;
        return AsPlanned(
            NextMisbehaviour(StateHome(), "ValtoT_GetDeviceInfo",
                             [slotId] { return SerialIn(slotId); }),
            [&](const Misbehaviour& plan) { return DescribeDevice(slotId, flags, plan, *record); });
    });
}

KESTA_EVENT_EXPORT int ValtoT_ContextInit(std::uint32_t* context) {
    return Enter("ValtoT_ContextInit", context, [&](const Misbehaviour&) -> int {
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
    return Guarded([&]() -> int {
        if (event == nullptr) return kBadArgument;
        std::string serial;
        const Waiting waiting = WhatIsWaiting(serial);
        if (waiting == Waiting::kNothing) return kNoEvent;
        Misbehaviour plan;
        if (waiting == Waiting::kEvent) {
            plan = NextMisbehaviour(StateHome(), "ValtoT_WaitForEvent", [&] { return serial; });
        }
        return AsPlanned(plan, [&](const Misbehaviour& now) { return Deliver(now, *event); });
    });
}

KESTA_EVENT_EXPORT int ValtoT_ContextFinal(void) {
    return Enter("ValtoT_ContextFinal", "", [](const Misbehaviour&) -> int {
        Shared& state = State();
        const std::lock_guard<std::mutex> lock(state.mutex);
        if (!state.contextOpen) return kNoContext;
        state.contextOpen = false;
        return kOk;
    });
}

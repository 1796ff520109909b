#include "event_wait.h"

#include <cxxabi.h>
#include <dlfcn.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <ctime>
#include <iterator>
#include <new>

#include "commonfunction.h"
#include "hand_out.h"

namespace kesta {

namespace {

constexpr const char* kArrivalTag = "VALTO_EVENT_INFO::SLOT_DEVICEARRIVAL  ";
constexpr const char* kRemovalTag = "VALTO_EVENT_INFO::SLOT_DEVICEREMOVE ";
constexpr const char* kLineFormat = " G_LastError = %d, line = %d";
constexpr const char* kEndFormat = "end, G_LastError = %d, line = %d";

// What the records of a wait call "line": numbers that were lines of this code once. Those who
// read the log know the place by its number, so the numbers stay while the code moves.
enum Line {
    kSizeTold = 560,
    kContextRefused = 571,
    kPollThrew = 582,
    kArrival = 596,
    kArrivalSlot = 600,
    kArrivalRead = 603,
    kRemoval = 606,
    kRemovalNamed = 609,
    kWaitEnded = 616,
};

bool PollOnce(VALTO_EVENT_INFO& event, std::uint32_t& context) {
    try {
        return ValtoT_WaitForEvent(1, 0, &event, &context) == 0;
    } catch (const abi::__forced_unwind&) {
        throw;  // the thread is being cancelled
    } catch (...) {
        LogEntry(kWaitTag, " end in catch ,G_LastError = %d, line = %d", LastError(), kPollThrew);
        return false;
    }
}

void PollUntilEventOrStop(VALTO_EVENT_INFO& event, std::uint32_t& context,
                          const std::atomic<bool>& running) {
    constexpr timespec kInterval = {0, 20000000};
    while (running.load(std::memory_order_acquire)) {
        if (PollOnce(event, context)) return;
        nanosleep(&kInterval, nullptr);
    }
}

// Names the arrived key. A failed read leaves the name empty and becomes the wait's result.
int AnswerArrival(std::uint32_t slot, unsigned int* eventType, std::string& mediaId) {
    LogEntry(kArrivalTag, kLineFormat, LastError(), kArrival);
    *eventType = KESTA_EVENT_ARRIVAL;
    _S_DEV_CONFIG record = {};
    LogEntry(kArrivalTag, " event.ei.slotEvent.u32SlotID = %d, line = %d", static_cast<int>(slot),
             kArrivalSlot);
    const int result = SetLastError(ValtoT_GetDeviceInfo(slot, 0xE0000, &record));
    LogEntry(kArrivalTag, kLineFormat, result, kArrivalRead);
    mediaId = MediaIdOf(record);
    return result;
}

int AnswerRemoval(std::uint32_t slot, SlotMap& slots, unsigned int* eventType,
                  std::string& mediaId) {
    LogEntry(kRemovalTag, "G_LastError = %d, line = %d", LastError(), kRemoval);
    *eventType = KESTA_EVENT_REMOVAL;
    // An unknown slot is entered without a name, and the name of a removed key stays.
    mediaId = slots[slot];
    LogEntry(kRemovalTag, kLineFormat, LastError(), kRemovalNamed);
    return SetLastError(KESTA_OK);
}

// A process that forked while another thread filled its slots inherits them half changed: they are
// left as they lie, not destroyed.
void Empty(SlotMap& slots) {
    static pid_t filledBy = 0;
    const bool inherited = filledBy != 0 && filledBy != getpid();
    filledBy = getpid();
    if (inherited) {
        new (&slots) SlotMap;
    } else {
        slots.clear();
    }
}

}  // namespace

std::string MediaIdOf(const _S_DEV_CONFIG& record) {
    return std::string(record.szMediaId, strnlen(record.szMediaId, sizeof record.szMediaId));
}

void ReadCurrentSlots(SlotMap& slots) {
    constexpr std::uint32_t kOffered = 10;
    std::uint32_t ids[16] = {};
    Empty(slots);
    std::uint32_t count = kOffered;
    if (ValtoT_GetSlotList(1, ids, &count) != 0) return;
    count = std::min<std::uint32_t>(count, std::size(ids));
    for (std::uint32_t i = 0; i < count; ++i) {
        // Four bytes longer than the record, for libraries that fill a longer one.
        alignas(_S_DEV_CONFIG) unsigned char buffer[sizeof(_S_DEV_CONFIG) + 4];
        auto* record = reinterpret_cast<_S_DEV_CONFIG*>(buffer);
        if (ValtoT_GetDeviceInfo(ids[i], 0, record) != 0) continue;
        slots[ids[i]] = MediaIdOf(*record);
    }
}

void StayLoaded() {
    static std::atomic<bool> stays{false};
    Dl_info self;
    if (stays.exchange(true, std::memory_order_relaxed) || dladdr(&stays, &self) == 0) return;
    dlopen(self.dli_fname, RTLD_LAZY | RTLD_NOLOAD | RTLD_NODELETE);
}

int AnswerMediaIdSize(unsigned int* length) {
    const int result = AnswerSize(length, limits::kMediaIdBuffer);
    LogEntry(kWaitTag, kEndFormat, result, kSizeTold);
    return result;
}

int WaitForEvent(SlotMap& slots, std::atomic<bool>& running, const WaitAnswer& answer) {
    running.store(true, std::memory_order_release);
    std::uint32_t context = 0;
    SetLastError(KESTA_OK);
    const int opened = SetLastError(ValtoT_ContextInit(&context));
    if (opened != KESTA_OK) {
        LogEntry(kWaitTag, kEndFormat, opened, kContextRefused);
        return opened;
    }
    VALTO_EVENT_INFO event;
    std::memset(&event, 0, sizeof event);
    PollUntilEventOrStop(event, context, running);
    if (!running.load(std::memory_order_acquire)) {
        // A stopped wait leaves its context open: the next wait goes on where it was.
        *answer.eventType = KESTA_EVENT_STOPPED;
        return opened;
    }
    std::string mediaId;
    const std::uint32_t slot = event.ei.slotEvent.u32SlotID;
    int result = LastError();  // of an event of another kind, which is not told apart
    if (event.u32EventType == SLOT_DEVICEARRIVAL) {
        result = AnswerArrival(slot, answer.eventType, mediaId);
    } else if (event.u32EventType == SLOT_DEVICEREMOVE) {
        result = AnswerRemoval(slot, slots, answer.eventType, mediaId);
    }
    ValtoT_ContextFinal();
    *answer.mediaIdLength = static_cast<unsigned int>(mediaId.size());
    std::memcpy(answer.mediaId, mediaId.c_str(), mediaId.size() + 1);
    LogEntry(kWaitTag, kEndFormat, result, kWaitEnded);
    return result;
}

}  // namespace kesta

// Slots and the wait for keys that come and go, as the token event library tells of them.
#ifndef KESTA_EVENT_WAIT_H
#define KESTA_EVENT_WAIT_H

#include <atomic>
#include <cstdint>
#include <map>
#include <string>

#include "kesta/event_library.h"

namespace kesta {

// The media id of the key in each slot.
using SlotMap = std::map<unsigned int, std::string>;

constexpr const char* kWaitTag = "SKF_WaitForDevEvent";

// The record's media id, of 16 characters at most.
std::string MediaIdOf(const _S_DEV_CONFIG& record);

// The slots that are present and can be read.
void ReadCurrentSlots(SlotMap& slots);

// The outputs of a wait.
struct WaitAnswer {
    unsigned int* eventType;
    char* mediaId;
    unsigned int* mediaIdLength;
};

// From now on the library stays in the process, although its client closes it: a thread that waits
// comes back into it. Before the first wait it can be unloaded.
void StayLoaded();

// Answers the question for the size of a media id, with its NUL.
int AnswerMediaIdSize(unsigned int* length);

// Polls until a key comes or goes, or until running becomes false. slots, read when the wait
// began, names keys that are gone: they can no longer be asked.
int WaitForEvent(SlotMap& slots, std::atomic<bool>& running, const WaitAnswer& answer);

}  // namespace kesta

#endif

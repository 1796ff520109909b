// Answers of the token event library, as raw memory: offsets are counted here, not taken from the
// library's records.
#ifndef KESTA_API_EVENT_TEST_H
#define KESTA_API_EVENT_TEST_H

#include <map>
#include <string>

#include "api_test.h"

// Every byte that nobody should look at.
constexpr char irrelevant = '\xEE';

inline std::string LittleEndian(unsigned number) {
    std::string bytes;
    for (int shift = 0; shift < 32; shift += 8) bytes += static_cast<char>(number >> shift & 0xFF);
    return bytes;
}

// The kind at byte 0, the slot id at byte 12, 332 bytes.
inline std::string EventRecord(unsigned kind, unsigned slot) {
    std::string record(332, irrelevant);
    record.replace(0, 4, LittleEndian(kind));
    record.replace(12, 4, LittleEndian(slot));
    return record;
}

// The media id at byte 248, a NUL behind it if there is room, 396 bytes.
inline std::string DeviceRecord(const std::string& mediaId) {
    std::string record(396, irrelevant);
    record.replace(248, mediaId.size(), mediaId);
    if (mediaId.size() < 16) record[248 + mediaId.size()] = '\0';
    return record;
}

inline void Deliver(unsigned kind, unsigned slot) {
    TheRecorder().On("ValtoT_WaitForEvent").Returns(0).Writes(2, EventRecord(kind, slot));
}

// The slots that a scan finds; a media id for each device read, in order.
inline void OfferSlots(const std::vector<unsigned>& slots) {
    std::string ids;
    for (const unsigned slot : slots) ids += LittleEndian(slot);
    TheRecorder()
        .On("ValtoT_GetSlotList")
        .Writes(1, ids)
        .WritesNumber(2, static_cast<unsigned>(slots.size()));
}

using SlotMap = std::map<unsigned int, std::string>;

// A wait with the keys that its scan finds, into a buffer of the 17 bytes that a probe asks for.
struct Waited {
    explicit Waited(const std::vector<unsigned>& slots = {}) : mediaId(17) {
        OfferSlots(slots);
        code = WaitForKeyEvent(&kind, mediaId.data(), &length);
    }
    CanaryBuffer mediaId;
    unsigned kind = 77;
    unsigned length = 77;
    int code;
};

#endif

// Answers of the token event library, as raw memory: offsets are counted here, not taken from the
// library's records.
#ifndef KESTA_API_EVENT_TEST_H
#define KESTA_API_EVENT_TEST_H

#include <map>
#include <string>

#include "api_test.h"

// Every byte that nobody should look at.
constexpr char irrelevant = '\xEE';

inline std::string little_endian(unsigned number) {
    std::string bytes;
    for (int shift = 0; shift < 32; shift += 8) bytes += static_cast<char>(number >> shift & 0xFF);
    return bytes;
}

// The kind at byte 0, the slot id at byte 12, 332 bytes.
inline std::string event_record(unsigned kind, unsigned slot) {
    std::string record(332, irrelevant);
    record.replace(0, 4, little_endian(kind));
    record.replace(12, 4, little_endian(slot));
    return record;
}

// The media id at byte 248, a NUL behind it if there is room, 396 bytes.
inline std::string device_record(const std::string& media_id) {
    std::string record(396, irrelevant);
    record.replace(248, media_id.size(), media_id);
    if (media_id.size() < 16) record[248 + media_id.size()] = '\0';
    return record;
}

inline void deliver(unsigned kind, unsigned slot) {
    recorder().on("ValtoT_WaitForEvent").returns(0).writes(2, event_record(kind, slot));
}

// The slots that a scan finds; a media id for each device read, in order.
inline void offer_slots(const std::vector<unsigned>& slots) {
    std::string ids;
    for (const unsigned slot : slots) ids += little_endian(slot);
    recorder()
        .on("ValtoT_GetSlotList")
        .writes(1, ids)
        .writes_number(2, static_cast<unsigned>(slots.size()));
}

using SlotMap = std::map<unsigned int, std::string>;

// A wait with the keys that its scan finds, into a buffer of the 17 bytes that a probe asks for.
struct Waited {
    explicit Waited(const std::vector<unsigned>& slots = {}) : media_id(17) {
        offer_slots(slots);
        code = WaitForKeyEvent(&kind, media_id.data(), &length);
    }
    CanaryBuffer media_id;
    unsigned kind = 77;
    unsigned length = 77;
    int code;
};

#endif

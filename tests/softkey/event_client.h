// A client of the event library, and the state whose keys the tests move, for the tests of events.
#ifndef TESTS_SOFTKEY_EVENT_CLIENT_H
#define TESTS_SOFTKEY_EVENT_CLIENT_H

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "kesta/event_library.h"
#include "softkey/store/keys.h"
#include "softkey/store/store.h"
#include "temporary_folder.h"

inline void AddKey(softkey::Store& store, const std::string& serial, std::uint32_t slot,
                   const std::string& mediaId, bool inserted = true) {
    softkey::KeyRecord key;
    key.serial = serial;
    key.label = serial;
    key.mediaId = mediaId;
    key.slot = slot;
    key.inserted = inserted;
    softkey::PinSeal seal;
    seal.cost = 1024;
    softkey::KeyTable(store).Add(key, seal);
}

// "+1" for an arrival in slot 1, "-1" for a removal from it.
inline std::string Text(const VALTO_EVENT_INFO& event) {
    const std::string slot = std::to_string(event.ei.slotEvent.u32SlotID);
    if (event.u32EventType == SLOT_DEVICEARRIVAL) return "+" + slot;
    if (event.u32EventType == SLOT_DEVICEREMOVE) return "-" + slot;
    return "?" + slot;
}

inline std::uint32_t OpenContext() {
    std::uint32_t context = 0;
    EXPECT_EQ(0, ValtoT_ContextInit(&context));
    return context;
}

// The events that stand ready, in order, joined by blanks.
inline std::string Drain(std::uint32_t context) {
    std::string text;
    VALTO_EVENT_INFO event = {};
    while (ValtoT_WaitForEvent(1, 0, &event, &context) == 0) {
        text += (text.empty() ? "" : " ") + Text(event);
    }
    return text;
}

// Polls as the library does until that many events came, or ten seconds went by.
inline std::string WaitFor(std::size_t count, std::uint32_t context) {
    std::string text;
    VALTO_EVENT_INFO event = {};
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (count > 0 && std::chrono::steady_clock::now() < deadline) {
        if (ValtoT_WaitForEvent(1, 0, &event, &context) == 0) {
            text += (text.empty() ? "" : " ") + Text(event);
            --count;
        } else {
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
    }
    return text;
}

class EventClient : public testing::Test {
protected:
    ~EventClient() override { ValtoT_ContextFinal(); }

    TemporaryFolder folder_;
    const std::string home_ = folder_.File("home");
    std::unique_ptr<softkey::Store> store_;

    void MakeKeys() {
        store_ = softkey::Store::Open(home_);
        AddKey(*store_, "A", 1, "MEDIA-A");
        AddKey(*store_, "B", 4, "MEDIA-B-16-BYTES");
        AddKey(*store_, "C", 9, "MEDIA-C", false);
    }

private:
    ScopedVariable variable_{"KESTA_SOFTKEY_HOME", home_.c_str()};
};

#endif

#include "answer.h"

#include <algorithm>
#include <cstring>
#include <mutex>
#include <set>
#include <string>

#include "kesta/event_library.h"
#include "kesta/token_library.h"

namespace kesta {
namespace recorder {
namespace {

template <typename T>
T* Address(std::uint64_t raw) {
    return reinterpret_cast<T*>(raw);
}

// Digits of the tag, over and over: good as a serial number, as Base64, as hexadecimal.
std::string StandIn(std::size_t length, const Json::binary_t& tag) {
    constexpr const char* kDigits = "0123456789ABCDEF";
    std::string text;
    for (std::size_t i = 0; i < length; ++i) {
        const unsigned byte = tag.empty() ? 0U : tag[i / 2 % tag.size()];
        text += kDigits[i % 2 == 0 ? byte >> 4 : byte & 15];
    }
    return text;
}

// Longer than any request.
constexpr std::size_t kLongestText = 1 << 20;

// A stand-in is no longer than there is room for, whatever length was recorded.
std::string BytesOf(const Json& kept, std::size_t room) {
    if (kept.is_binary()) return {kept.get_binary().begin(), kept.get_binary().end()};
    if (!kept.is_array() || kept.size() != 2) return {};
    return StandIn(std::min(kept[0].get<std::size_t>(), room), kept[1].get_binary());
}

class Answer {
public:
    Answer(const Call& recorded, LiveCall& live) : recorded_(recorded), live_(live) {}

    void Give() {
        const Row& row = live_.row();
        for (std::size_t i = 0; i < CountOf(row); ++i) {
            const Json& kept = recorded_.outputs.at(i);
            if (live_.raw[i] != 0 && !kept.is_null()) Write(row.parameters[i], i, kept);
        }
        Result();
    }

private:
    void Write(const Parameter& parameter, std::size_t i, const Json& kept) {
        const std::uint64_t raw = live_.raw[i];
        switch (parameter.shape) {
            case Shape::kTextOut:
                return Text(Address<char>(raw), RoomOf(parameter), kept);
            case Shape::kBytesOut:
                return Bytes(Address<char>(raw), BytesOf(kept, live_.room));
            case Shape::kNewText:
                return NewText(*Address<char*>(raw), BytesOf(kept, kLongestText));
            case Shape::kNumbersOut:
                for (std::size_t n = 0; n < kept.size() && n < live_.room; ++n) {
                    Address<std::uint32_t>(raw)[n] = kept[n];
                }
                return;
            case Shape::kDevice:
                return Device(*Address<_S_DEV_CONFIG>(raw), kept);
            case Shape::kEvent:
                return Event(*Address<VALTO_EVENT_INFO>(raw), kept);
            case Shape::kStringObject:
                return;  // its reader does not look at it, and its text is not kept
            default:
                *Address<std::uint32_t>(raw) = kept;
        }
    }

    std::size_t RoomOf(const Parameter& parameter) const {
        return parameter.bound == Bound::kSize ? parameter.size : live_.room;
    }

    static void Text(char* to, std::size_t room, const Json& kept) {
        const std::string characters = BytesOf(kept, room);
        const std::size_t count = std::min(room, characters.size());
        std::memcpy(to, characters.data(), count);
        if (count < room) to[count] = '\0';
    }

    void Bytes(char* to, const std::string& content) const {
        std::memcpy(to, content.data(), std::min<std::size_t>(live_.room, content.size()));
    }

    static void NewText(char*& to, const std::string& characters) {
        to = new char[characters.size() + 1];
        std::memcpy(to, characters.c_str(), characters.size() + 1);
    }

    static void Device(_S_DEV_CONFIG& record, const Json& kept) {
        std::memset(&record, 0, sizeof record);
        const std::string media = BytesOf(kept.at(0), sizeof record.szMediaId);
        std::memcpy(record.szMediaId, media.data(),
                    std::min(media.size(), sizeof record.szMediaId));
    }

    static void Event(VALTO_EVENT_INFO& info, const Json& kept) {
        std::memset(&info, 0, sizeof info);
        info.u32EventType = kept.at(0);
        info.ei.slotEvent.u32SlotID = kept.at(1);
    }

    void Result() {
        if (live_.kind == ResultKind::kNumber) {
            live_.result = static_cast<std::uint64_t>(recorded_.result.get<std::int64_t>());
        } else if (recorded_.result.is_binary()) {
            live_.result = reinterpret_cast<std::uint64_t>(Owned(BytesOf(recorded_.result, 0)));
        }
    }

    // A text that the token library owns: it stays.
    static const char* Owned(const std::string& text) {
        static std::mutex mutex;
        static auto* const texts = new std::set<std::string>;
        const std::lock_guard<std::mutex> lock(mutex);
        return texts->insert(text).first->c_str();
    }

    const Call& recorded_;
    LiveCall& live_;
};

}  // namespace

void AnswerFrom(const Call& recorded, LiveCall& live) {
    try {
        Answer(recorded, live).Give();
    } catch (const Json::exception&) {
        throw BadRecording("outputs of another function");
    }
}

}  // namespace recorder
}  // namespace kesta

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
T* address(std::uint64_t raw) {
    return reinterpret_cast<T*>(raw);
}

// Digits of the tag, over and over: good as a serial number, as Base64, as hexadecimal.
std::string standIn(std::size_t length, const Json::binary_t& tag) {
    constexpr const char* kDigits = "0123456789ABCDEF";
    std::string text;
    for (std::size_t i = 0; i < length; ++i) {
        const unsigned byte = tag.empty() ? 0U : tag[i / 2 % tag.size()];
        text += kDigits[i % 2 == 0 ? byte >> 4 : byte & 15];
    }
    return text;
}

std::string bytesOf(const Json& kept) {
    if (kept.is_binary()) return {kept.get_binary().begin(), kept.get_binary().end()};
    if (!kept.is_array() || kept.size() != 2) return {};
    return standIn(kept[0].get<std::size_t>(), kept[1].get_binary());
}

class Answer {
public:
    Answer(const Call& recorded, LiveCall& live) : m_recorded(recorded), m_live(live) {}

    void give() {
        const Row& row = m_live.row();
        for (std::size_t i = 0; i < countOf(row); ++i) {
            const Json& kept = m_recorded.outputs.at(i);
            if (m_live.raw[i] != 0 && !kept.is_null()) write(row.parameters[i], i, kept);
        }
        result();
    }

private:
    void write(const Parameter& parameter, std::size_t i, const Json& kept) {
        const std::uint64_t raw = m_live.raw[i];
        switch (parameter.shape) {
            case Shape::kTextOut:
                return text(address<char>(raw), roomOf(parameter), bytesOf(kept));
            case Shape::kBytesOut:
                return bytes(address<char>(raw), bytesOf(kept));
            case Shape::kNewText:
                return newText(*address<char*>(raw), bytesOf(kept));
            case Shape::kNumbersOut:
                for (std::size_t n = 0; n < kept.size() && n < m_live.room; ++n) {
                    address<std::uint32_t>(raw)[n] = kept[n];
                }
                return;
            case Shape::kDevice:
                return device(*address<_S_DEV_CONFIG>(raw), kept);
            case Shape::kEvent:
                return event(*address<VALTO_EVENT_INFO>(raw), kept);
            case Shape::kStringObject:
                return;  // its reader does not look at it, and its text is not kept
            default:
                *address<std::uint32_t>(raw) = kept;
        }
    }

    std::size_t roomOf(const Parameter& parameter) const {
        return parameter.bound == Bound::kSize ? parameter.size : m_live.room;
    }

    static void text(char* to, std::size_t room, const std::string& characters) {
        const std::size_t count = std::min(room, characters.size());
        std::memcpy(to, characters.data(), count);
        if (count < room) to[count] = '\0';
    }

    void bytes(char* to, const std::string& content) const {
        std::memcpy(to, content.data(), std::min<std::size_t>(m_live.room, content.size()));
    }

    static void newText(char*& to, const std::string& characters) {
        to = new char[characters.size() + 1];
        std::memcpy(to, characters.c_str(), characters.size() + 1);
    }

    static void device(_S_DEV_CONFIG& record, const Json& kept) {
        std::memset(&record, 0, sizeof record);
        const std::string media = bytesOf(kept.at(0));
        std::memcpy(record.szMediaId, media.data(),
                    std::min(media.size(), sizeof record.szMediaId));
    }

    static void event(VALTO_EVENT_INFO& info, const Json& kept) {
        std::memset(&info, 0, sizeof info);
        info.u32EventType = kept.at(0);
        info.ei.slotEvent.u32SlotID = kept.at(1);
    }

    void result() {
        if (m_live.kind == ResultKind::kNumber) {
            m_live.result = static_cast<std::uint64_t>(m_recorded.result.get<std::int64_t>());
        } else if (m_recorded.result.is_binary()) {
            m_live.result = reinterpret_cast<std::uint64_t>(owned(bytesOf(m_recorded.result)));
        }
    }

    // A text that the token library owns: it stays.
    static const char* owned(const std::string& text) {
        static std::mutex mutex;
        static auto* const texts = new std::set<std::string>;
        const std::lock_guard<std::mutex> lock(mutex);
        return texts->insert(text).first->c_str();
    }

    const Call& m_recorded;
    LiveCall& m_live;
};

}  // namespace

void answerFrom(const Call& recorded, LiveCall& live) {
    Answer(recorded, live).give();
}

}  // namespace recorder
}  // namespace kesta

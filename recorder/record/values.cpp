#include "values.h"

#include <sodium/crypto_shorthash_siphash24.h>

#include <algorithm>

#include "kesta/event_library.h"
#include "kesta/token_library.h"
#include "kesta_unified_zrkukey.h"

namespace kesta {
namespace recorder {
namespace {

static_assert(kTagSize == crypto_shorthash_siphash24_BYTES, "the tag is the hash");
static_assert(kKeySize == crypto_shorthash_siphash24_KEYBYTES, "the key is the hash's");

template <typename T>
T* address(std::uint64_t raw) {
    return reinterpret_cast<T*>(raw);
}

std::uint32_t numberBehind(std::uint64_t raw) {
    return *address<const std::uint32_t>(raw);
}

// One value after the other.
class Values {
public:
    Values(Packer& packer, const LiveCall& call, const Discretion& discretion)
        : m_packer(packer), m_call(call), m_discretion(discretion) {}

    void argument(std::size_t i) {
        const Parameter& parameter = m_call.row().parameters[i];
        const std::uint64_t raw = m_call.raw[i];
        if (parameter.shape == Shape::kNumber) {
            m_packer.number(static_cast<std::int64_t>(raw));
        } else if (raw == 0) {
            m_packer.nil();
        } else {
            behind(parameter, raw);
        }
    }

    void output(std::size_t i) {
        if (m_call.raw[i] == 0 || !isWritten(i)) return m_packer.nil();
        const Parameter& parameter = m_call.row().parameters[i];
        const std::uint64_t raw = m_call.raw[i];
        switch (parameter.shape) {
            case Shape::kTextOut:
                return hideable(address<const char>(raw),
                                strnlen(address<const char>(raw), limitOf(parameter)),
                                parameter.visibility);
            case Shape::kBytesOut:
                return hideable(address<const void>(raw), bytesBehind(parameter),
                                parameter.visibility);
            case Shape::kNewText:
                return newText(*address<char*>(raw), parameter.visibility);
            case Shape::kNumbersOut:
                return numbers(address<const std::uint32_t>(raw), bytesBehind(parameter));
            case Shape::kDevice:
                return device(*address<const _S_DEV_CONFIG>(raw), parameter.visibility);
            case Shape::kEvent:
                return event(*address<const VALTO_EVENT_INFO>(raw));
            case Shape::kStringObject:
                return stringObject(*address<const KestaStringObject>(raw), parameter.visibility);
            default:
                return m_packer.unsignedNumber(numberBehind(raw));
        }
    }

private:
    // What an address leads to before the call.
    void behind(const Parameter& parameter, std::uint64_t raw) {
        switch (parameter.shape) {
            case Shape::kText:
                return textIn(address<const char>(raw), parameter.size, parameter.visibility);
            case Shape::kLength:
                if (!m_call.hasRoom) return m_packer.present();
                return m_packer.unsignedNumber(m_call.room);
            case Shape::kNumberInOut:
                return m_packer.unsignedNumber(numberBehind(raw));
            case Shape::kRequest:
                return request(*address<const KestaRequestRecord>(raw));
            case Shape::kStringObject:
                return stringObject(*address<const KestaStringObject>(raw), parameter.visibility);
            default:
                return m_packer.present();
        }
    }

    // Memory that a call did not write may hold anything.
    bool isWritten(std::size_t i) const {
        const Parameter& parameter = m_call.row().parameters[i];
        const std::uint64_t partner =
            parameter.partner < 0 ? 0 : m_call.raw[static_cast<std::size_t>(parameter.partner)];
        if (!m_call.returned || parameter.shape < Shape::kTextOut) return false;
        switch (parameter.shape) {
            case Shape::kOpaque:
            case Shape::kRequest:
                return false;
            case Shape::kStringObject:
                return true;
            case Shape::kLength:
                return m_call.succeeded() || m_call.code() == KESTA_BUFFER_TOO_SMALL ||
                       (m_call.hasRoom && numberBehind(m_call.raw[i]) != m_call.room);
            case Shape::kLengthOut:
                return m_call.succeeded() && partner == 0 && isWrittenByWait(i);
            default:
                return m_call.succeeded() && isWrittenByWait(i);
        }
    }

    // A wait tells the event; a probe of it the length alone, a stopped one the kind alone.
    bool isWrittenByWait(std::size_t i) const {
        constexpr std::size_t kWait = numberOf(Boundary::kExports, "WaitForKeyEvent");
        if (m_call.function != kWait) return true;
        if (m_call.raw[1] == 0) return i == 2;
        return i == 0 || m_call.raw[0] == 0 || numberBehind(m_call.raw[0]) != KESTA_EVENT_STOPPED;
    }

    std::size_t limitOf(const Parameter& parameter) const {
        if (parameter.bound == Bound::kSize) return parameter.size;
        if (parameter.bound == Bound::kRoom) return m_call.room;
        return numberBehind(m_call.raw[static_cast<std::size_t>(parameter.partner)]);
    }

    // As many as the length tells, but no more than there was room for.
    std::size_t bytesBehind(const Parameter& parameter) const {
        const std::uint64_t length = m_call.raw[static_cast<std::size_t>(parameter.partner)];
        return length == 0 ? 0 : std::min(numberBehind(length), m_call.room);
    }

    void hideable(const void* data, std::size_t size, Class visibility) {
        if (m_discretion.shows(visibility)) return m_packer.bytes(data, size);
        unsigned char tag[kTagSize];
        crypto_shorthash_siphash24(tag, static_cast<const unsigned char*>(data), size,
                                   m_discretion.key);
        m_packer.array(2);
        m_packer.unsignedNumber(size);
        m_packer.bytes(tag, sizeof tag);
    }

    // size is 0 for a text that surely ends in a NUL.
    void textIn(const char* characters, std::size_t size, Class visibility) {
        hideable(characters, size != 0 ? strnlen(characters, size) : std::strlen(characters),
                 visibility);
    }

    void newText(const char* characters, Class visibility) {
        if (characters == nullptr) return m_packer.nil();
        hideable(characters, std::strlen(characters), visibility);
    }

    void numbers(const std::uint32_t* values, std::size_t count) {
        m_packer.array(count);
        for (std::size_t i = 0; i < count; ++i) m_packer.unsignedNumber(values[i]);
    }

    void request(const KestaRequestRecord& record) {
        m_packer.array(4);
        for (const std::int64_t field : {record.certType, record.keyType, record.hashType}) {
            m_packer.number(field);
        }
        m_packer.number(record.paired);
    }

    // Fields without a known meaning are secrets; mostly they are zero, which tells nothing.
    void unknown(const unsigned char* data, std::size_t size) {
        if (std::all_of(data, data + size, [](unsigned char byte) { return byte == 0; })) {
            return m_packer.nil();
        }
        hideable(data, size, Class::kSecret);
    }

    void device(const _S_DEV_CONFIG& record, Class visibility) {
        m_packer.array(3);
        hideable(record.szMediaId, strnlen(record.szMediaId, sizeof record.szMediaId), visibility);
        unknown(record.reserved0, sizeof record.reserved0);
        unknown(record.reserved264, sizeof record.reserved264);
    }

    void event(const VALTO_EVENT_INFO& info) {
        constexpr std::size_t kKnown = sizeof info.ei.slotEvent;
        m_packer.array(4);
        m_packer.unsignedNumber(info.u32EventType);
        m_packer.unsignedNumber(info.ei.slotEvent.u32SlotID);
        unknown(reinterpret_cast<const unsigned char*>(info.reserved4), sizeof info.reserved4);
        unknown(info.ei.raw + kKnown, sizeof info.ei.raw - kKnown);
    }

    void stringObject(const KestaStringObject& object, Class visibility) {
        if (object.characters == nullptr) return m_packer.nil();
        const auto* const header =
            reinterpret_cast<const KestaStringHeader*>(object.characters) - 1;
        const int length = header->dataLength;
        hideable(object.characters, static_cast<std::size_t>(length < 0 ? 0 : length), visibility);
    }

    Packer& m_packer;
    const LiveCall& m_call;
    const Discretion& m_discretion;
};

}  // namespace

void LiveCall::noteRoom() {
    const Row& called = row();
    for (std::size_t i = 0; i < countOf(called); ++i) {
        const Parameter& parameter = called.parameters[i];
        if (parameter.shape != Shape::kLength || raw[i] == 0 || parameter.partner < 0) continue;
        if (raw[static_cast<std::size_t>(parameter.partner)] == 0) continue;
        room = numberBehind(raw[i]);
        hasRoom = true;
    }
}

void packArguments(Packer& packer, const LiveCall& call, const Discretion& discretion) {
    const std::size_t count = countOf(call.row());
    packer.array(count);
    Values values(packer, call, discretion);
    for (std::size_t i = 0; i < count; ++i) values.argument(i);
}

void packOutputs(Packer& packer, const LiveCall& call, const Discretion& discretion) {
    const std::size_t count = countOf(call.row());
    packer.array(count);
    Values values(packer, call, discretion);
    for (std::size_t i = 0; i < count; ++i) values.output(i);
}

void packResult(Packer& packer, const LiveCall& call) {
    const auto* const text = address<const char>(call.kind == ResultKind::kText ? call.result : 0);
    if (!call.returned || call.kind == ResultKind::kNone) {
        packer.nil();
    } else if (call.kind == ResultKind::kNumber) {
        packer.number(call.code());
    } else if (text == nullptr) {
        packer.nil();
    } else {
        packer.bytes(text, std::strlen(text));
    }
}

}  // namespace recorder
}  // namespace kesta

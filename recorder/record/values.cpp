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
T* Address(std::uint64_t raw) {
    return reinterpret_cast<T*>(raw);
}

std::uint32_t NumberBehind(std::uint64_t raw) {
    return *Address<const std::uint32_t>(raw);
}

// One value after the other.
class Values {
public:
    Values(Packer& packer, const LiveCall& call, const Discretion& discretion)
        : packer_(packer), call_(call), discretion_(discretion) {}

    void Argument(std::size_t i) {
        const Parameter& parameter = call_.row().parameters[i];
        const std::uint64_t raw = call_.raw[i];
        if (parameter.shape == Shape::kNumber) {
            packer_.Number(static_cast<std::int64_t>(raw));
        } else if (raw == 0) {
            packer_.Nil();
        } else {
            Behind(parameter, raw);
        }
    }

    void Output(std::size_t i) {
        if (call_.raw[i] == 0 || !IsWritten(i)) return packer_.Nil();
        const Parameter& parameter = call_.row().parameters[i];
        const std::uint64_t raw = call_.raw[i];
        switch (parameter.shape) {
            case Shape::kTextOut:
                return Hideable(Address<const char>(raw),
                                strnlen(Address<const char>(raw), LimitOf(parameter)),
                                parameter.visibility);
            case Shape::kBytesOut:
                return Hideable(Address<const void>(raw), BytesBehind(parameter),
                                parameter.visibility);
            case Shape::kNewText:
                return NewText(*Address<char*>(raw), parameter.visibility);
            case Shape::kNumbersOut:
                return Numbers(Address<const std::uint32_t>(raw), BytesBehind(parameter));
            case Shape::kDevice:
                return Device(*Address<const _S_DEV_CONFIG>(raw), parameter.visibility);
            case Shape::kEvent:
                return Event(*Address<const VALTO_EVENT_INFO>(raw));
            case Shape::kStringObject:
                return StringObject(*Address<const KestaStringObject>(raw), parameter.visibility);
            default:
                return packer_.UnsignedNumber(NumberBehind(raw));
        }
    }

private:
    // What an address leads to before the call.
    void Behind(const Parameter& parameter, std::uint64_t raw) {
        switch (parameter.shape) {
            case Shape::kText:
                return TextIn(Address<const char>(raw), parameter.size, parameter.visibility);
            case Shape::kLength:
                if (!call_.hasRoom) return packer_.Present();
                return packer_.UnsignedNumber(call_.room);
            case Shape::kNumberInOut:
                return packer_.UnsignedNumber(NumberBehind(raw));
            case Shape::kRequest:
                return Request(*Address<const KestaRequestRecord>(raw));
            case Shape::kStringObject:
                return StringObject(*Address<const KestaStringObject>(raw), parameter.visibility);
            default:
                return packer_.Present();
        }
    }

    // Memory that a call did not write may hold anything.
    bool IsWritten(std::size_t i) const {
        const Parameter& parameter = call_.row().parameters[i];
        const std::uint64_t partner =
            parameter.partner < 0 ? 0 : call_.raw[static_cast<std::size_t>(parameter.partner)];
        if (!call_.returned || parameter.shape < Shape::kTextOut) return false;
        switch (parameter.shape) {
            case Shape::kOpaque:
            case Shape::kRequest:
                return false;
            case Shape::kStringObject:
                return true;
            case Shape::kLength:
                return call_.Succeeded() || call_.Code() == KESTA_BUFFER_TOO_SMALL ||
                       (call_.hasRoom && NumberBehind(call_.raw[i]) != call_.room);
            case Shape::kLengthOut:
                return call_.Succeeded() && partner == 0 && IsWrittenByWait(i);
            default:
                return call_.Succeeded() && IsWrittenByWait(i);
        }
    }

    // A wait tells the event; a probe of it the length alone, a stopped one the kind alone.
    bool IsWrittenByWait(std::size_t i) const {
        constexpr std::size_t kWait = NumberOf(Boundary::kExports, "WaitForKeyEvent");
        if (call_.function != kWait) return true;
        if (call_.raw[1] == 0) return i == 2;
        return i == 0 || call_.raw[0] == 0 || NumberBehind(call_.raw[0]) != KESTA_EVENT_STOPPED;
    }

    std::size_t LimitOf(const Parameter& parameter) const {
        if (parameter.bound == Bound::kSize) return parameter.size;
        if (parameter.bound == Bound::kRoom) return call_.room;
        return NumberBehind(call_.raw[static_cast<std::size_t>(parameter.partner)]);
    }

    // As many as the length tells, but no more than there was room for.
    std::size_t BytesBehind(const Parameter& parameter) const {
        const std::uint64_t length = call_.raw[static_cast<std::size_t>(parameter.partner)];
        return length == 0 ? 0 : std::min(NumberBehind(length), call_.room);
    }

    void Hideable(const void* data, std::size_t size, Class visibility) {
        if (discretion_.Shows(visibility)) return packer_.Bytes(data, size);
        unsigned char tag[kTagSize];
        crypto_shorthash_siphash24(tag, static_cast<const unsigned char*>(data), size,
                                   discretion_.key);
        packer_.Array(2);
        packer_.UnsignedNumber(size);
        packer_.Bytes(tag, sizeof tag);
    }

    // size is 0 for a text that surely ends in a NUL.
    void TextIn(const char* characters, std::size_t size, Class visibility) {
        Hideable(characters, size != 0 ? strnlen(characters, size) : std::strlen(characters),
                 visibility);
    }

    void NewText(const char* characters, Class visibility) {
        if (characters == nullptr) return packer_.Nil();
        Hideable(characters, std::strlen(characters), visibility);
    }

    void Numbers(const std::uint32_t* values, std::size_t count) {
        packer_.Array(count);
        for (std::size_t i = 0; i < count; ++i) packer_.UnsignedNumber(values[i]);
    }

    void Request(const KestaRequestRecord& record) {
        packer_.Array(4);
        for (const std::int64_t field : {record.certType, record.keyType, record.hashType}) {
            packer_.Number(field);
        }
        packer_.Number(record.paired);
    }

    // Fields without a known meaning are secrets; mostly they are zero, which tells nothing.
    void Unknown(const unsigned char* data, std::size_t size) {
        if (std::all_of(data, data + size, [](unsigned char byte) { return byte == 0; })) {
            return packer_.Nil();
        }
        Hideable(data, size, Class::kSecret);
    }

    void Device(const _S_DEV_CONFIG& record, Class visibility) {
        packer_.Array(3);
        Hideable(record.szMediaId, strnlen(record.szMediaId, sizeof record.szMediaId), visibility);
        Unknown(record.reserved0, sizeof record.reserved0);
        Unknown(record.reserved264, sizeof record.reserved264);
    }

    void Event(const VALTO_EVENT_INFO& info) {
        constexpr std::size_t kKnown = sizeof info.ei.slotEvent;
        packer_.Array(4);
        packer_.UnsignedNumber(info.u32EventType);
        packer_.UnsignedNumber(info.ei.slotEvent.u32SlotID);
        Unknown(reinterpret_cast<const unsigned char*>(info.reserved4), sizeof info.reserved4);
        Unknown(info.ei.raw + kKnown, sizeof info.ei.raw - kKnown);
    }

    void StringObject(const KestaStringObject& object, Class visibility) {
        if (object.characters == nullptr) return packer_.Nil();
        const auto* const header =
            reinterpret_cast<const KestaStringHeader*>(object.characters) - 1;
        const int length = header->dataLength;
        Hideable(object.characters, static_cast<std::size_t>(length < 0 ? 0 : length), visibility);
    }

    Packer& packer_;
    const LiveCall& call_;
    const Discretion& discretion_;
};

}  // namespace

void LiveCall::NoteRoom() {
    const Row& called = row();
    for (std::size_t i = 0; i < CountOf(called); ++i) {
        const Parameter& parameter = called.parameters[i];
        if (parameter.shape != Shape::kLength || raw[i] == 0 || parameter.partner < 0) continue;
        if (raw[static_cast<std::size_t>(parameter.partner)] == 0) continue;
        room = NumberBehind(raw[i]);
        hasRoom = true;
    }
}

void PackArguments(Packer& packer, const LiveCall& call, const Discretion& discretion) {
    const std::size_t count = CountOf(call.row());
    packer.Array(count);
    Values values(packer, call, discretion);
    for (std::size_t i = 0; i < count; ++i) values.Argument(i);
}

void PackOutputs(Packer& packer, const LiveCall& call, const Discretion& discretion) {
    const std::size_t count = CountOf(call.row());
    packer.Array(count);
    Values values(packer, call, discretion);
    for (std::size_t i = 0; i < count; ++i) values.Output(i);
}

void PackResult(Packer& packer, const LiveCall& call) {
    const auto* const text = Address<const char>(call.kind == ResultKind::kText ? call.result : 0);
    if (!call.returned || call.kind == ResultKind::kNone) {
        packer.Nil();
    } else if (call.kind == ResultKind::kNumber) {
        packer.Number(call.Code());
    } else if (text == nullptr) {
        packer.Nil();
    } else {
        packer.Bytes(text, std::strlen(text));
    }
}

}  // namespace recorder
}  // namespace kesta

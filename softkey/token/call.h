// The frame around every entry point: it catches what is thrown and turns it into a result code,
// and carries out the misbehaviour that was asked for.
#ifndef SOFTKEY_TOKEN_CALL_H
#define SOFTKEY_TOKEN_CALL_H

#include <cstdint>
#include <functional>
#include <optional>

#include "softkey/misbehaviour/misbehaviour.h"
#include "softkey/store/records.h"

namespace softkey {

// What an entry point is called, which key it was given, and where it reports a length.
struct EntryPoint {
    const char* name;
    const char* serial = nullptr;
    std::uint32_t* length = nullptr;
    // The library makes one operation of this entry point and of one that comes before it: where it
    // follows at once, what the other saw of the state serves both.
    bool goesOn = false;
};

// One call of one entry point, as far as its body needs to know. Whatever is handed out goes
// through here.
class Call {
public:
    Call(const EntryPoint& entry, const Misbehaviour& plan) : entry_(entry), plan_(plan) {}

    // Half way through the work on a key: where the plan delays and pulls out, hangs, crashes and
    // throws, once for each call. kKeyRemoved when the key is gone then, if only for a moment.
    void Midway(const KeyRecord& key);
    // The key that a serial number names, half way through looking at it.
    KeyRecord LookAt(const char* serial);
    // The same for a body that has no such place, or did not come to it: at its end.
    void PassMidway();

    // Copies a text with its NUL into the caller's buffer. *length holds the buffer's size on entry
    // and the text's length, without the NUL, on return. A null buffer, or one too small, gets the
    // size that is needed instead; the latter is kBufferTooSmall.
    void WriteText(std::string_view text, char* buffer, std::uint32_t* length) const;
    // Bytes into a buffer that IsProbe found large enough.
    void WriteBytes(std::string_view bytes, void* buffer, std::uint32_t* length) const;
    // Into a buffer that the contract gives that size.
    void Copy(std::string_view text, char* buffer, std::size_t size) const;
    // As a text of the caller's, who releases it with delete[].
    void HandOut(std::string_view text, char** place) const;
    // As a text that stays; null when the plan says so.
    const char* Standing(const char* text) const;

    const Misbehaviour& plan() const { return plan_; }

private:
    void Pass(const KeyRecord* key);

    EntryPoint entry_;
    const Misbehaviour& plan_;
    bool passed_ = false;
};

// Runs the body and answers its result. The body throws Failure for everything but success. An
// exception leaves only when the misbehaviour plan says so.
int EnterWith(const EntryPoint& entry, const std::function<void(Call&)>& body);

// The function refers to the body: a copy of it could need memory before anything is caught.
template <typename Body>
int Enter(const EntryPoint& entry, const Body& body) {
    return EnterWith(entry, std::cref(body));
}

// Answers whether a buffer of that size was asked for or is missing: a probe. Writes the size that
// is needed then, and when the buffer is too small, which is kBufferTooSmall.
bool IsProbe(std::size_t needed, const void* buffer, std::uint32_t* length);

}  // namespace softkey

#endif

// The frame around every entry point: it catches what is thrown and turns it into a result code,
// and carries out the misbehaviour that was asked for.
#ifndef SOFTKEY_TOKEN_CALL_H
#define SOFTKEY_TOKEN_CALL_H

#include <cstdint>
#include <functional>

#include "softkey/misbehaviour/misbehaviour.h"
#include "softkey/store/records.h"

namespace softkey {

// One call of one entry point, as far as its body needs to know.
class Call {
public:
    explicit Call(Misbehaviour plan) : plan_(std::move(plan)) {}

    // Half way through the work on a key: where a planned pull-out happens.
    void Midway(const KeyRecord& key) const;

private:
    Misbehaviour plan_;
};

// What an entry point is called, which key it was given, and where it reports a length.
struct EntryPoint {
    const char* name;
    const char* serial = nullptr;
    std::uint32_t* length = nullptr;
};

// Runs the body and answers its result. The body throws Failure for everything but success. An
// exception leaves only when the misbehaviour plan says so.
int Enter(const EntryPoint& entry, const std::function<void(Call&)>& body);

// Copies a text with its NUL into the caller's buffer. *length holds the buffer's size on entry and
// the text's length, without the NUL, on return. A null buffer, or one too small, gets the size
// that is needed instead; the latter is kBufferTooSmall.
void WriteText(std::string_view text, char* buffer, std::uint32_t* length);

// Answers whether a buffer of that size was asked for or is missing: a probe. Writes the size that
// is needed then, and when the buffer is too small, which is kBufferTooSmall.
bool IsProbe(std::size_t needed, const void* buffer, std::uint32_t* length);

}  // namespace softkey

#endif

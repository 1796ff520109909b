// A call's values as a recording keeps them: in clear, or as a length and a tag.
//
//   null      a null address, or an output that was not written
//   true      an address of memory that the call may write to
//   number    an integer
//   bytes     a text or bytes in clear
//   [length, tag]  what is not kept; equal values have equal tags throughout a recording
#ifndef KESTA_RECORDER_VALUES_H
#define KESTA_RECORDER_VALUES_H

#include "boundary/table.h"
#include "file/layout.h"
#include "packer.h"

namespace kesta {
namespace recorder {

// What is kept, and the key of the tags.
struct Discretion {
    bool full = false;
    unsigned char key[kKeySize] = {};

    bool Shows(Class visibility) const {
        return visibility == Class::kPublic || (full && visibility != Class::kSecret);
    }
};

enum class ResultKind : std::uint8_t { kNone, kNumber, kText };

// A call as the stand-in for its function sees it.
struct LiveCall {
    std::size_t function;
    const std::uint64_t* raw;  // the arguments: integers widened by their sign, or addresses
    ResultKind kind;
    bool hasRoom = false;  // room is what the length held on entry
    std::uint32_t room = 0;
    bool returned = false;
    bool threw = false;  // an exception; else, not having returned, the thread was cancelled
    std::uint64_t result = 0;

    const Row& row() const { return RowOf(function); }
    std::int32_t Code() const { return static_cast<std::int32_t>(result); }
    How how() const { return returned ? kReturned : threw ? kThrew : kCancelled; }
    bool Succeeded() const { return returned && (kind != ResultKind::kNumber || Code() == 0); }
    void NoteRoom();
};

// Each writes one array with a value for each parameter.
void PackArguments(Packer& packer, const LiveCall& call, const Discretion& discretion);
void PackOutputs(Packer& packer, const LiveCall& call, const Discretion& discretion);

void PackResult(Packer& packer, const LiveCall& call);

}  // namespace recorder
}  // namespace kesta

#endif

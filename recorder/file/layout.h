// The bytes of a recording. docs/recording-format.md tells the same to those who write a reader.
//
// A recording is a sequence of MessagePack objects: the head, then records, with zeros (the number
// 0, over and over) between and behind them. A record is an extension object on a multiple of 8
// bytes, and its type says whether it is whole.
#ifndef KESTA_RECORDER_LAYOUT_H
#define KESTA_RECORDER_LAYOUT_H

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace kesta {
namespace recorder {

// An array of three: the name, the version of the format, the state's bytes.
constexpr unsigned char kMagic[] = {0x93, 0xaf, 'k', 'e', 's', 't',  'a', '-',  'r', 'e', 'c', 'o',
                                    'r',  'd',  'i', 'n', 'g', 0xcc, 1,   0xc6, 0,   0,   0,   104};
constexpr std::size_t kVersionAt = 18;
constexpr unsigned kVersion = kMagic[kVersionAt];

// What the writing processes share, in place behind the magic bytes. Every access is atomic.
struct State {
    std::uint64_t used;       // where the next record goes
    std::uint64_t allocated;  // the file has room up to here
    std::uint64_t lost;       // records that found no room
    std::uint64_t calls;      // numbers given to calls
    std::uint64_t processes;  // numbers given to processes
    std::uint64_t reserved[8];
};
static_assert(sizeof(kMagic) == 24 && sizeof(State) == 104, "the head is 128 bytes");
constexpr std::size_t kHeadSize = sizeof(kMagic) + sizeof(State);

// In front of each record: c9, the length in four bytes, the type.
constexpr std::size_t kFrameSize = 6;
constexpr unsigned char kExtension = 0xc9;
constexpr unsigned char kUnfinished = 0;  // its process ended while it wrote it
constexpr unsigned char kWhole = 1;
constexpr std::size_t kAlignment = 8;

constexpr std::size_t Framed(std::size_t length) {
    return (kFrameSize + length + kAlignment - 1) / kAlignment * kAlignment;
}

// The first eight bytes of a record: the frame and two bytes of content.
inline std::uint64_t FirstWord(std::size_t length, unsigned char type, const unsigned char* two) {
    const unsigned char bytes[8] = {kExtension,
                                    static_cast<unsigned char>(length >> 24),
                                    static_cast<unsigned char>(length >> 16),
                                    static_cast<unsigned char>(length >> 8),
                                    static_cast<unsigned char>(length),
                                    type,
                                    two == nullptr ? static_cast<unsigned char>(0) : two[0],
                                    two == nullptr ? static_cast<unsigned char>(0) : two[1]};
    std::uint64_t word;
    std::memcpy(&word, bytes, sizeof word);
    return word;
}

// The first element of a record.
enum Kind : int {
    kDescription = 0,  // [0, map]: versions, the functions' signatures; once, first
    kEnter = 1,        // [1, call, parent, process, thread, time, function, arguments]
    kLeave = 2,        // [2, call, time, how, result, lastError, outputs]
    kProcess = 3,      // [3, process, pid, wall, time, program, machine]
    kLibrary = 4,      // [4, process, boundary, file, size, build id]
};

// How a call ended.
enum How : int { kReturned = 0, kThrew = 1, kCancelled = 2 };

// Bytes that stand for a value which is not kept.
constexpr std::size_t kTagSize = 8;
constexpr std::size_t kKeySize = 16;

// How the processes of a recording hear of it.
constexpr const char* kFileVariable = "KESTA_RECORDER_FILE";
constexpr const char* kKeyVariable = "KESTA_RECORDER_KEY";
constexpr const char* kFullVariable = "KESTA_RECORDER_FULL";

}  // namespace recorder
}  // namespace kesta

#endif

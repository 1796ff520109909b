// What the processes of a replay and the command that started them share: a file, mapped by each.
#ifndef KESTA_RECORDER_REPLAY_STATE_H
#define KESTA_RECORDER_REPLAY_STATE_H

#include <cstddef>
#include <cstdint>

namespace kesta {
namespace recorder {

constexpr const char* kReplayFileVariable = "KESTA_REPLAYER_FILE";
constexpr const char* kReplayStateVariable = "KESTA_REPLAYER_STATE";
constexpr const char* kReplayModeVariable = "KESTA_REPLAYER_MODE";  // letters: t tolerant, d timed
constexpr const char* kReplayTokenVariable = "KESTA_REPLAYER_TOKEN";
constexpr const char* kReplayEventsVariable = "KESTA_REPLAYER_EVENTS";

// Every access is atomic but to the text, which whoever sets differs writes first.
struct ReplayState {
    std::uint32_t differs;  // 0, 1 while the text is written, 2
    std::uint32_t answered;
    std::uint64_t start;  // of the steady clock, when the replay began
    char text[4080];
    // Behind it: one byte for each recorded process, then one for each recorded call, not 0 once a
    // live one has taken it.
};
static_assert(sizeof(ReplayState) == 4096, "no gaps");

}  // namespace recorder
}  // namespace kesta

#endif

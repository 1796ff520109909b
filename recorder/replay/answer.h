// Does to a live call's arguments what a recorded call did.
#ifndef KESTA_RECORDER_ANSWER_H
#define KESTA_RECORDER_ANSWER_H

#include "file/reader.h"
#include "record/values.h"

namespace kesta {
namespace recorder {

// Writes the recorded outputs and sets the result. What the recording does not keep is replaced by
// stand-ins of the same length, equal ones for equal values. Throws BadRecording where the recorded
// outputs are not this function's.
void AnswerFrom(const Call& recorded, LiveCall& live);

}  // namespace recorder
}  // namespace kesta

#endif

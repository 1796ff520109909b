// What record, replay and trace share.
#ifndef UKEY_RECORDING_H
#define UKEY_RECORDING_H

#include <functional>
#include <string>
#include <vector>

#include "session.h"

namespace ukey {

// The recorder's own errors, as this command's. file: the recording, for the messages.
Exit OnRecording(const std::string& file, const std::function<Exit()>& work);

// What the recorder's libraries said, in the person's language.
std::string RecorderText(const std::string& english);

// The words behind "--".
void TakeCommand(const Options& options, std::vector<std::string>& words);

}  // namespace ukey

#endif
